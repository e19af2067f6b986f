#include "events_picture.hpp"

#include <fl/filesystem/basic_path.hpp>
#include <fl/i18n/conversion.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/iri/absolute_iri.hpp>
#include <foundation/storage/vfs/listing/file_or_folder_entry.hpp>
#include <foundation/storage/vfs/listing/folder_listing.hpp>

#include <boost/property_tree/ptree.hpp>

#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

namespace bench {

namespace vfs = foundation::storage::vfs;

namespace {

std::string pathOf(vfs::AbsoluteIRI const& location) {
    return fl::i18n::toDisplayString(fromAbsoluteIRI(location));
}

/// The location of the other end of a move, empty where the event tells of none.
vfs::ustring otherEnd(vfs::Event const& event, char const* key) {
    if (!event.hasExtendedEventData()) {
        return {};
    }
    auto const text = event.getExtendedEventData().getData().get_optional<std::string>(key);
    return text ? fl::i18n::to_ustring(*text) : vfs::ustring();
}

} // namespace

Items itemsOnDisk(std::filesystem::path const& root) {
    Items items;
    for (auto const& entry : std::filesystem::recursive_directory_iterator(root)) {
        items[entry.path().lexically_relative(root).string()] =
            entry.is_directory() ? ItemKind::Folder : ItemKind::File;
    }
    return items;
}

Picture::Picture(vfs::Folder root)
    : root_(std::move(root)),
      rootPath_(pathOf(root_.getLocation())) {}

/// Empty for the root itself.
std::string Picture::below(vfs::AbsoluteIRI const& location) const {
    std::string const path = pathOf(location);
    if (path == rootPath_) {
        return {};
    }
    if (!path.starts_with(rootPath_ + '/')) {
        throw std::runtime_error("told of " + path);
    }
    return path.substr(rootPath_.size() + 1);
}

/// What is below a folder now; nothing where it has moved on.
Items Picture::listed(std::string const& path) const {
    Items items;
    try {
        vfs::Folder const folder =
            path.empty() ? root_ : vfs::Folder(root_, fl::i18n::to_ustring(path));
        for (vfs::FileOrFolderEntry const& entry : folder.listAllEntriesRecursive()) {
            items[below(getLocation(entry))] =
                entry.which() == 0 ? ItemKind::File : ItemKind::Folder;
        }
    } catch (vfs::Exception const& failure) {
        if (failure.getErrorCode() != vfs::ErrorCode::ResourceNotFound || path.empty()) {
            throw;
        }
    }
    return items;
}

void Picture::look() {
    Items items = listed({});
    std::lock_guard const lock(mutex_);
    items_ = std::move(items);
}

void Picture::take(vfs::Event const& event) {
    vfs::EventData const change = event.getEventData();
    std::string const path = below(getLocation(change.getFileOrFolder()));
    std::lock_guard const lock(mutex_);
    switch (change.getKind()) {
    case vfs::Kind::Overflow:
        items_ = listed({});
        ++overflows_;
        break;
    case vfs::Kind::Created: {
        bool const isFolder = change.getFileOrFolder().which() != 0;
        items_[path] = isFolder ? ItemKind::Folder : ItemKind::File;
        if (isFolder && overflows_ > 0 && !otherEnd(event, "movedFrom").empty()) {
            // It may have moved while its old place was looked at, or was yet to be.
            items_.merge(listed(path));
        }
        break;
    }
    case vfs::Kind::Removed: {
        vfs::ustring const movedTo = otherEnd(event, "movedTo");
        takeRemoval(path, movedTo.empty() ? std::string() : below(vfs::AbsoluteIRI(movedTo)));
        break;
    }
    default:
        break;
    }
}

/// What is in a folder goes with it, or moves with it as long as all of it is known for sure.
void Picture::takeRemoval(std::string const& path, std::string const& movedTo) {
    auto const first = items_.lower_bound(path + '/');
    auto const last = items_.lower_bound(path + '0'); // the character behind '/'
    Items moved;
    if (!movedTo.empty() && overflows_ == 0) {
        for (auto item = first; item != last; ++item) {
            moved[movedTo + item->first.substr(path.size())] = item->second;
        }
    }
    items_.erase(first, last);
    items_.erase(path);
    items_.merge(moved);
}

Items Picture::items() const {
    std::lock_guard const lock(mutex_);
    return items_;
}

std::size_t Picture::overflows() const {
    std::lock_guard const lock(mutex_);
    return overflows_;
}

bool Picture::knows(std::string const& path, std::size_t overflows) const {
    std::lock_guard const lock(mutex_);
    return overflows_ > overflows || items_.contains(path);
}

} // namespace bench
