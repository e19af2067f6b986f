#include <foundation/storage/provider/memory/detail/publication_table.hpp>

namespace foundation::storage::provider::memory::detail {

bool Publication::covers(std::u16string_view item) const noexcept {
    if (scope == Scope::Folder) {
        return !item.empty() && folderOf(item) == path;
    }
    return scope == Scope::Tree && item.size() > path.size() && item.starts_with(path) &&
           item[path.size()] == u'/';
}

void PublicationTable::add(PublicationPtr const& publication, ustring const& key) {
    EntryType const type = publication->isOfFolder() ? EntryType::Folder : EntryType::File;
    auto const row = byKey_.try_emplace({type, key}).first;
    auto path = byPath_.end();
    try {
        row->second.push_back(publication);
        path = byPath_.try_emplace(publication->path).first;
        path->second.push_back(publication);
    } catch (...) {
        if (path != byPath_.end() && path->second.empty()) {
            byPath_.erase(path);
        }
        if (!row->second.empty() && row->second.back() == publication) {
            row->second.pop_back();
        }
        if (row->second.empty()) {
            byKey_.erase(row);
        }
        throw;
    }
}

PublicationPtr PublicationTable::takeOldest(EntryType type, ustring const& key) {
    auto const row = byKey_.find({type, key});
    if (row == byKey_.end()) {
        return nullptr;
    }
    PublicationPtr oldest = std::move(row->second.front());
    row->second.pop_front();
    if (row->second.empty()) {
        byKey_.erase(row);
    }
    auto const path = byPath_.find(oldest->path);
    std::erase(path->second, oldest);
    if (path->second.empty()) {
        byPath_.erase(path);
    }
    return oldest;
}

} // namespace foundation::storage::provider::memory::detail
