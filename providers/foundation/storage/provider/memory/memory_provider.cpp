#include <foundation/storage/provider/memory/memory_provider.hpp>

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/memory/detail/tree.hpp>
#include <foundation/storage/provider/memory/memory_stream.hpp>

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>
#include <utility>

namespace foundation::storage::provider::memory {

using detail::Changes;
using detail::existing;
using detail::FileNode;
using detail::FolderNode;
using detail::LastLink;
using detail::LinkNode;
using detail::Node;
using detail::pathOf;
using detail::Place;
using detail::Tree;

namespace {

/// What a path leads to, for a question: absence is an answer.
Place lookUp(Tree const& tree, StorageIRI const& location, LastLink last) {
    Place const place = tree.walk(pathOf(location), last);
    if (place.error && !place.isMissing()) {
        throw Exception(*place.error, location);
    }
    return place;
}

/// What a path leads to, links followed; a link that leads nowhere, or in circles, itself.
Place described(Tree const& tree, StorageIRI const& location) {
    Place const place = tree.walk(pathOf(location), LastLink::Follow);
    return place.node ? place : existing(tree, location, LastLink::Keep);
}

std::shared_ptr<FileNode> share(Place const& place) {
    return std::static_pointer_cast<FileNode>(place.folder->share(place.name));
}

AttributeValues attributesOf(Place const& place) {
    switch (place.node->kind()) {
    case Node::Kind::File:
        return place.file()->attributes();
    case Node::Kind::Link:
        return place.link()->attributes();
    case Node::Kind::Folder:
        break;
    }
    return place.asFolder()->attributes();
}

/// A place for a new entry. Throws where it is taken, or where there is no folder to make it in.
Place freePlace(Tree const& tree, StorageIRI const& location, LastLink last) {
    Place const place = tree.walk(pathOf(location), last);
    if (place.error) {
        throw Exception(*place.error, location);
    }
    if (place.node) {
        throw Exception(ErrorCode::ResourceAlreadyExists, location);
    }
    checkWritable(location, *place.folder);
    return place;
}

/// Whether a link's target could stand on a disk.
bool isStorable(ustring const& target) {
    try {
        return fl::i18n::ustringToStorageName(target).find('\0') == std::string::npos;
    } catch (std::range_error const&) {
        return false;
    }
}

std::shared_ptr<FileNode> openExisting(Place const& place, StorageIRI const& location) {
    if (!place.file()) {
        throw Exception(place.node && place.node->isFolder() ? ErrorCode::InvalidLocation
                                                             : ErrorCode::ResourceNotFound,
                        location);
    }
    return share(place);
}

} // namespace

MemoryProvider::MemoryProvider(MemoryOptions const& options)
    : tree_(std::make_shared<Tree>(options)) {}

MemoryProvider::~MemoryProvider() {
    tree_->publications->clear();
}

ExistsResult MemoryProvider::exists(StorageIRI const& location) const {
    std::shared_lock const lock(tree_->mutex);
    Place const place = lookUp(*tree_, location, LastLink::Keep);
    if (!place.node) {
        return ExistsResult::Nothing;
    }
    return place.node->isFolder() ? ExistsResult::Folder : ExistsResult::File;
}

ExtendedExistsResult MemoryProvider::existsExtended(StorageIRI const& location) const {
    std::shared_lock const lock(tree_->mutex);
    Place const place = lookUp(*tree_, location, LastLink::Keep);
    if (!place.node) {
        return ExtendedExistsResult::Nothing;
    }
    if (!place.link()) {
        return place.node->isFolder() ? ExtendedExistsResult::Folder : ExtendedExistsResult::File;
    }
    Place const target = tree_->walk(pathOf(location), LastLink::Follow);
    if (target.error || !target.node) {
        return ExtendedExistsResult::DanglingLink;
    }
    return target.node->isFolder() ? ExtendedExistsResult::LinkToFolder
                                   : ExtendedExistsResult::LinkToFile;
}

bool MemoryProvider::fileExists(StorageIRI const& location) const {
    return exists(location) == ExistsResult::File;
}

bool MemoryProvider::folderExists(StorageIRI const& location) const {
    std::shared_lock const lock(tree_->mutex);
    Place const place = tree_->walk(pathOf(location), LastLink::Follow);
    if (!place.node) {
        lookUp(*tree_, location, LastLink::Keep); // a loop on the way is more than absence
    }
    return place.asFolder() != nullptr;
}

StorageIRI MemoryProvider::getCanonicalLocation(StorageIRI const& location) const {
    ustring path;
    {
        std::shared_lock const lock(tree_->mutex);
        Place const place = tree_->walk(pathOf(location), LastLink::Follow);
        if (place.error) {
            throw Exception(*place.error, location);
        }
        if (FolderNode const* const folder = place.asFolder()) {
            path = pathOf(*folder);
        } else {
            path = pathOf(*place.folder);
            path += u'/';
            path += place.name;
        }
    }
    return StorageIRI(location, path.empty() ? ustring(u"/") : path);
}

FileAttributes MemoryProvider::getFileAttributes(StorageIRI const& location) const {
    std::shared_lock const lock(tree_->mutex);
    // A link to a folder counts as a file, with the attributes of what it leads to.
    if (existing(*tree_, location, LastLink::Keep).node->isFolder()) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    Place const place = described(*tree_, location);
    return FileAttributes(attributesOf(place));
}

FolderAttributes MemoryProvider::getFolderAttributes(StorageIRI const& location) const {
    std::shared_lock const lock(tree_->mutex);
    Place const place = described(*tree_, location);
    if (!place.node->isFolder()) {
        throw Exception(ErrorCode::ResourceNotFound, location);
    }
    return FolderAttributes(attributesOf(place));
}

ExtendedAttributes MemoryProvider::getExtendedAttributes(StorageIRI const& location) const {
    std::shared_lock const lock(tree_->mutex);
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", *attributesOf(described(*tree_, location)).mode);
    return {{"posix.mode", mode}};
}

void MemoryProvider::setLastModified(StorageIRI const& location,
                                     boost::posix_time::ptime const& time) {
    Timestamp const timestamp = toTimestamp(time);
    Changes changes(tree_->publications);
    std::unique_lock const lock(tree_->mutex);
    Place const place = described(*tree_, location);
    if (FileNode* const file = place.file()) {
        file->setLastModified(timestamp);
    } else if (FolderNode* const folder = place.asFolder()) {
        folder->setLastModified(timestamp);
    } else {
        place.link()->setLastModified(timestamp);
    }
    changes.attributesChanged(*place.node);
}

void MemoryProvider::setWritable(StorageIRI const& location, bool writable) {
    Changes changes(tree_->publications);
    std::unique_lock const lock(tree_->mutex);
    Place const place = described(*tree_, location);
    if (FileNode* const file = place.file()) {
        file->setWritable(writable);
    } else if (FolderNode* const folder = place.asFolder()) {
        folder->setWritable(writable);
    } else {
        throw Exception(ErrorCode::UnsupportedOperation,
                        location); // links have no mode of their own
    }
    changes.attributesChanged(*place.node);
}

void MemoryProvider::setFolderAttributes(StorageIRI const& location,
                                         extensions::FolderAttributeChange const& change) {
    Changes changes(tree_->publications);
    std::unique_lock const lock(tree_->mutex);
    FolderNode* const folder = existing(*tree_, location, LastLink::Keep).asFolder();
    if (!folder) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    if (change.mode) {
        folder->setMode(*change.mode);
    }
    if (change.lastModified) {
        folder->setLastModified(*change.lastModified);
    }
    changes.attributesChanged(*folder);
}

void MemoryProvider::createFile(StorageIRI const& location) {
    Changes changes(tree_->publications);
    std::unique_lock const lock(tree_->mutex);
    Place const place = freePlace(*tree_, location, LastLink::Keep);
    changes.created(place.folder->add(ustring(place.name),
                                      tree_->make<FileNode>(location, detail::newFileMode)));
}

void MemoryProvider::createFolder(StorageIRI const& location) {
    Changes changes(tree_->publications);
    std::unique_lock const lock(tree_->mutex);
    Place const place = freePlace(*tree_, location, LastLink::Keep);
    changes.created(place.folder->add(ustring(place.name),
                                      tree_->make<FolderNode>(location, detail::newFolderMode)));
}

void MemoryProvider::createFolderRecursive(StorageIRI const& location) {
    std::u16string_view path = pathOf(location);
    Changes changes(tree_->publications);
    std::unique_lock const lock(tree_->mutex);
    FolderNode* at = &tree_->root();
    while (!path.empty()) {
        std::size_t const end = std::min(path.find(u'/', 1), path.size());
        std::u16string_view const step = path.substr(0, end);
        path.remove_prefix(end);
        Place const place = tree_->walk(*at, step, LastLink::Follow);
        if (place.error == ErrorCode::InvalidLocation) {
            throw Exception(ErrorCode::InvalidLocation, location);
        }
        if (place.asFolder()) {
            at = place.asFolder();
            continue;
        }
        Place const there = tree_->walk(*at, step, LastLink::Keep);
        if (there.node) {
            // A file, or a link that leads nowhere.
            throw Exception(path.empty() ? ErrorCode::ResourceAlreadyExists
                                         : ErrorCode::ResourceNotFound,
                            location);
        }
        checkWritable(location, *at);
        auto folder = tree_->make<FolderNode>(location, detail::newFolderMode);
        FolderNode* const made = folder.get();
        changes.created(at->add(ustring(there.name), std::move(folder)));
        at = made;
    }
}

std::unique_ptr<ByteStream> MemoryProvider::openReadOnlyStream(StorageIRI const& location) const {
    std::shared_lock const lock(tree_->mutex);
    return std::make_unique<MemoryStream>(
        tree_, openExisting(existing(*tree_, location, LastLink::Follow), location),
        StreamAccess::Read, StreamWriting::AtPosition);
}

std::unique_ptr<ByteStream> MemoryProvider::openStream(StorageIRI const& location,
                                                       ByteStreamOpenOptions const& options) {
    Changes changes(tree_->publications);
    auto const find = [&](bool create) -> std::shared_ptr<FileNode> {
        Place const place = tree_->walk(pathOf(location), LastLink::Follow);
        if (place.error) {
            throw Exception(*place.error, location);
        }
        if (place.node) {
            return openExisting(place, location);
        }
        if (options.creation == ByteStreamCreation::OpenExisting) {
            throw Exception(ErrorCode::ResourceNotFound, location);
        }
        if (!create) {
            return nullptr;
        }
        checkWritable(location, *place.folder);
        auto made = tree_->make<FileNode>(location, detail::newFileMode);
        changes.created(place.folder->add(ustring(place.name), made));
        return made;
    };
    std::shared_ptr<FileNode> file;
    {
        std::shared_lock const lock(tree_->mutex);
        file = find(false);
    }
    if (!file) {
        std::unique_lock const lock(tree_->mutex);
        file = find(true);
    }
    if (options.withoutTruncate != 0) {
        if (!file->isWritable()) {
            throw Exception(ErrorCode::PermissionDenied, location);
        }
    } else {
        switch (file->truncateIfWritable()) {
        case detail::Truncation::Refused:
            throw Exception(ErrorCode::PermissionDenied, location);
        case detail::Truncation::Done:
            tree_->modified(*file, changes);
            break;
        case detail::Truncation::WasEmpty:
            break;
        }
    }
    return std::make_unique<MemoryStream>(
        tree_, std::move(file),
        options.access == ByteStreamAccess::ReadWrite ? StreamAccess::ReadWrite
                                                      : StreamAccess::Write,
        options.withoutAppend == 0 ? StreamWriting::AtEnd : StreamWriting::AtPosition);
}

ustring MemoryProvider::readLink(StorageIRI const& location) const {
    std::shared_lock const lock(tree_->mutex);
    LinkNode const* const link = existing(*tree_, location, LastLink::Keep).link();
    if (!link) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    return link->target();
}

void MemoryProvider::createLink(StorageIRI const& location, ustring const& target) {
    if (target.empty()) {
        throw Exception(ErrorCode::ResourceNotFound, location);
    }
    if (!isStorable(target)) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    Changes changes(tree_->publications);
    std::unique_lock const lock(tree_->mutex);
    Place const place = freePlace(*tree_, location, LastLink::Keep);
    changes.created(
        place.folder->add(ustring(place.name), tree_->make<LinkNode>(location, target)));
}

} // namespace foundation::storage::provider::memory
