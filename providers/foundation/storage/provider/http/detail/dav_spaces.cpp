#include <foundation/storage/provider/http/detail/dav_spaces.hpp>

namespace foundation::storage::provider::http::detail {

namespace {

constexpr std::size_t mostSpaces = 1024;

} // namespace

std::u16string_view DavSpaces::spaceOf(std::u16string_view path) noexcept {
    std::size_t const end = path.find(u'/', 1);
    return path.empty() ? std::u16string_view(u"/") : path.substr(0, end);
}

std::optional<bool> DavSpaces::find(std::u16string_view path) const {
    std::lock_guard const lock(mutex_);
    if (auto const found = known_.find(spaceOf(path)); found != known_.end()) {
        return found->second;
    }
    // What is said of the root alone says nothing against a space below it.
    auto const root = known_.find(std::u16string_view(u"/"));
    return root != known_.end() && root->second ? std::optional(true) : std::nullopt;
}

void DavSpaces::keep(std::u16string_view path, bool isDav) {
    std::lock_guard const lock(mutex_);
    if (known_.size() >= mostSpaces) {
        known_.clear();
    }
    known_.insert_or_assign(fl::i18n::ustring(spaceOf(path)), isDav);
}

} // namespace foundation::storage::provider::http::detail
