#include <foundation/storage/provider/http/detail/dav_spaces.hpp>

namespace foundation::storage::provider::http::detail {

namespace {

constexpr std::size_t mostSpaces = 1024;
constexpr std::chrono::minutes lifetimeOfPlain{1};

std::u16string_view folderOf(std::u16string_view path) noexcept {
    std::size_t const end = path.size() > 1 ? path.rfind(u'/', path.size() - 2) : 0;
    return path.substr(0, end == std::u16string_view::npos ? 0 : end);
}

} // namespace

std::u16string_view DavSpaces::spaceOf(std::u16string_view path) noexcept {
    std::size_t const end = path.find(u'/', 1);
    return path.empty() ? std::u16string_view(u"/") : path.substr(0, end);
}

bool DavSpaces::speaksDav(std::u16string_view path) const {
    std::lock_guard const lock(mutex_);
    return dav_.contains(spaceOf(path)) || dav_.contains(std::u16string_view(u"/"));
}

bool DavSpaces::isPlain(std::u16string_view path) const {
    std::lock_guard const lock(mutex_);
    auto const found = plain_.find(folderOf(path));
    return found != plain_.end() && Clock::now() - found->second < lifetimeOfPlain;
}

void DavSpaces::keepDav(std::u16string_view path) {
    std::lock_guard const lock(mutex_);
    if (dav_.size() >= mostSpaces) {
        dav_.clear();
    }
    dav_.emplace(spaceOf(path));
}

void DavSpaces::keepPlain(std::u16string_view path) {
    std::lock_guard const lock(mutex_);
    if (plain_.size() >= mostSpaces) {
        plain_.clear();
    }
    plain_.insert_or_assign(fl::i18n::ustring(folderOf(path)), Clock::now());
}

} // namespace foundation::storage::provider::http::detail
