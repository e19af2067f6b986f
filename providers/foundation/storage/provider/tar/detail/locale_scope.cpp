#include <foundation/storage/provider/tar/detail/locale_scope.hpp>

#include <foundation/storage/provider/tar/detail/archive_reader.hpp>

namespace foundation::storage::provider::tar::detail {

namespace {

/// Kept for the life of the process; the plain one where there is no other.
locale_t localeOf(char const* name) noexcept {
    locale_t const found = ::newlocale(LC_ALL_MASK, name, nullptr);
    return found != nullptr ? found : ::newlocale(LC_ALL_MASK, "C", nullptr);
}

} // namespace

LocaleScope::LocaleScope(Charset charset) noexcept {
    static locale_t const plain = localeOf("C");
    static locale_t const utf8 = localeOf("C.UTF-8");
    locale_t const wanted = charset == Charset::Utf8 ? utf8 : plain;
    before_ = ::uselocale(wanted); // a null one changes nothing
}

} // namespace foundation::storage::provider::tar::detail
