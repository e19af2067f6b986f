#pragma once

#include <locale.h>

namespace foundation::storage::provider::tar::detail {

enum class Charset;

/// The locale of the calling thread for as long as it lives. libarchive converts names to the
/// charset of the locale: where that is none that can hold them, it gives them as they are, and
/// where it is UTF-8, it would compose them too.
class LocaleScope {
  public:
    explicit LocaleScope(Charset charset) noexcept;
    LocaleScope(LocaleScope const&) = delete;
    LocaleScope& operator=(LocaleScope const&) = delete;
    ~LocaleScope() { ::uselocale(before_); }

  private:
    locale_t before_;
};

} // namespace foundation::storage::provider::tar::detail
