#pragma once

#include <fl/i18n/ustring.hpp>

#include <map>
#include <mutex>
#include <optional>
#include <string_view>

namespace foundation::storage::provider::http::detail {

/// In which parts of a server WebDAV is spoken, as far as that was asked: by the first name of the
/// path. What holds at the root holds below where nothing else is known. Keeps a bounded number.
/// Safe on any thread.
class DavSpaces {
  public:
    /// `path` is resolved: it starts with a slash, and has no `.` and `..`.
    std::optional<bool> find(std::u16string_view path) const;
    void keep(std::u16string_view path, bool isDav);
    /// "/name", or "/" of the root.
    static std::u16string_view spaceOf(std::u16string_view path) noexcept;

  private:
    mutable std::mutex mutex_;
    std::map<fl::i18n::ustring, bool, std::less<>> known_; ///< guarded by the mutex
};

} // namespace foundation::storage::provider::http::detail
