// What changes the archive: a tree of it, until it is flushed.

#include <foundation/storage/provider/zip/zip_provider.hpp>

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/zip/detail/item_update.hpp>
#include <foundation/storage/provider/zip/pending_stream.hpp>
#include <foundation/storage/provider/zip/zip_change.hpp>
#include <foundation/storage/provider/zip/zip_stream.hpp>

#include <fl/i18n/conversion.hpp>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace foundation::storage::provider::zip {

using detail::EntryKind;
using detail::LastLink;

namespace {

constexpr std::uint16_t anybodyMayWrite = 0222;

/// Below a folder that is removed. The first failure ends it, and what is removed by then is gone.
void removeContents(detail::PendingTree& tree, detail::PendingNode& folder,
                    StorageIRI const& location) {
    while (!folder.children.empty()) {
        auto const& [name, child] = *folder.children.begin();
        StorageIRI const below(location, fl::i18n::storageNameToUstring(name));
        if (child->isFolder()) {
            removeContents(tree, *child, below);
        }
        tree.remove(*child, below);
    }
}

} // namespace

ZipProvider::View ZipProvider::viewToChange(StorageIRI const& location) {
    for (;;) {
        View view = this->view();
        if (view.pending) {
            return view;
        }
        detail::checkMayBeWritten(item_, location);
        if (view.archive->index->leftOut() != 0) {
            fail(ErrorCode::UnsupportedOperation, location); // they would be lost
        }
        if (auto const outer = std::dynamic_pointer_cast<ZipProvider>(item_.getProvider())) {
            outer->addInner(weak_from_this());
        }
        view.pending = std::make_shared<Tree>(
            view.archive->index, StorageIRI(location.getScheme(), item_.getLocation(), u"/"),
            options_, space_);
        std::lock_guard const lock(mutex_);
        if (archive_ == view.archive) { // else it was read again meanwhile
            pending_ = view.pending;
            flushedChanges_ = space_->changes();
            return view;
        }
    }
}

/// Whoever looked before the first change was counted, and found that somebody else has changed the
/// item, has given up the tree. Throws where it would never be flushed.
void ZipProvider::checkIsPending(Tree const& tree) const {
    std::lock_guard const lock(mutex_);
    if (pending_.get() != &tree) {
        fail(ErrorCode::ResourceInUse, item_.getLocation());
    }
}

void ZipProvider::setLastModified(StorageIRI const& location,
                                  boost::posix_time::ptime const& time) {
    Timestamp const timestamp = toTimestamp(time);
    change(location, [&](Tree& tree, auto const& walkTo) {
        tree.setLastModified(described(walkTo, location), timestamp.seconds, location);
    });
}

void ZipProvider::setWritable(StorageIRI const& location, bool writable) {
    change(location, [&](Tree& tree, auto const& walkTo) {
        Node& node = described(walkTo, location);
        if (node.kind == EntryKind::Link) {
            fail(ErrorCode::UnsupportedOperation, location); // links have no mode of their own
        }
        tree.setMode(node,
                     static_cast<std::uint16_t>(writable ? node.mode | detail::ownerMayWrite
                                                         : node.mode & ~anybodyMayWrite),
                     location);
    });
}

void ZipProvider::setFolderAttributes(StorageIRI const& location,
                                      extensions::FolderAttributeChange const& wanted) {
    change(location, [&](Tree& tree, auto const& walkTo) {
        Node& node = existing(walkTo, location, LastLink::Itself);
        if (!node.isFolder()) {
            fail(ErrorCode::InvalidLocation, location);
        }
        if (wanted.mode) {
            constexpr std::uint32_t settable = 01777;
            tree.setMode(
                node,
                static_cast<std::uint16_t>((node.mode & ~settable) | (*wanted.mode & settable)),
                location);
        }
        if (wanted.lastModified) {
            tree.setLastModified(node, wanted.lastModified->seconds, location);
        }
    });
}

void ZipProvider::createFile(StorageIRI const& location) {
    change(location, [&](Tree& tree, auto const& walkTo) {
        tree.add(freePlace(walkTo, location), tree.makeFile(), location);
    });
}

void ZipProvider::createFolder(StorageIRI const& location) {
    change(location, [&](Tree& tree, auto const& walkTo) {
        tree.add(freePlace(walkTo, location), tree.makeFolder(), location);
    });
}

void ZipProvider::createFolderRecursive(StorageIRI const& location) {
    std::lock_guard const changing(changing_);
    View const view = viewToChange(location);
    Tree& tree = *view.pending;
    std::string const path = detail::pathInArchive(location);
    std::lock_guard const lock(tree.mutex);
    Node* at = tree.rootHandle();
    for (std::string_view rest = path; !rest.empty();) {
        std::size_t const end = std::min(rest.find('/', 1), rest.size());
        std::string_view const step = rest.substr(0, end);
        rest.remove_prefix(end);
        Tree::Place const followed = walkTo(view, location, LastLink::Followed, at, step);
        if (followed.error == ErrorCode::InvalidLocation) {
            fail(ErrorCode::InvalidLocation, location);
        }
        if (!followed.error && followed.entry->isFolder()) {
            at = followed.entry;
            continue;
        }
        Tree::Place const place = walkTo(view, location, LastLink::Itself, at, step);
        if (!place.isFree()) { // a file, or a link that leads nowhere
            bool const isLast = rest.find_first_not_of('/') == std::string_view::npos;
            fail(isLast ? ErrorCode::ResourceAlreadyExists : ErrorCode::ResourceNotFound, location);
        }
        at = &tree.add(place, tree.makeFolder(), location);
    }
    checkIsPending(tree);
}

void ZipProvider::createLink(StorageIRI const& location, ustring const& target) {
    if (target.empty()) {
        fail(ErrorCode::ResourceNotFound, location);
    }
    std::string bytes;
    try {
        bytes = fl::i18n::ustringToStorageName(target);
    } catch (std::range_error const&) {
        fail(ErrorCode::InvalidLocation, location);
    }
    if (bytes.find('\0') != std::string::npos || bytes.size() > detail::longestTarget) {
        fail(ErrorCode::InvalidLocation, location);
    }
    change(location, [&](Tree& tree, auto const& walkTo) {
        tree.add(freePlace(walkTo, location), tree.makeLink(std::move(bytes)), location);
    });
}

void ZipProvider::removeFile(StorageIRI const& location) {
    change(location, [&](Tree& tree, auto const& walkTo) {
        Node& node = existing(walkTo, location, LastLink::Itself);
        if (node.isFolder()) {
            fail(ErrorCode::InvalidLocation, location);
        }
        tree.remove(node, location);
    });
}

void ZipProvider::removeFolder(StorageIRI const& location) {
    change(location, [&](Tree& tree, auto const& walkTo) {
        Node& node = existing(walkTo, location, LastLink::Itself);
        if (!node.isFolder()) {
            fail(ErrorCode::ResourceNotFound, location);
        }
        if (node.parent == nullptr) {
            fail(ErrorCode::ResourceInUse, location);
        }
        if (!node.children.empty()) {
            detail::checkWritable(*node.parent, location);
            fail(ErrorCode::FolderNotEmpty, location);
        }
        tree.remove(node, location);
    });
}

void ZipProvider::removeFolderRecursively(StorageIRI const& location) {
    change(location, [&](Tree& tree, auto const& walkTo) {
        Node& node = existing(walkTo, location, LastLink::Itself);
        if (!node.isFolder()) {
            fail(ErrorCode::ResourceNotFound, location);
        }
        if (node.parent == nullptr) {
            fail(ErrorCode::ResourceInUse, location);
        }
        removeContents(tree, node, location);
        tree.remove(node, location);
    });
}

std::unique_ptr<ByteStream> ZipProvider::openStream(StorageIRI const& location,
                                                    ByteStreamOpenOptions const& options) {
    std::lock_guard const changing(changing_);
    View const view = viewToChange(location);
    auto stream = std::make_unique<PendingStream>(
        contentToWrite(view, location, options),
        options.access == ByteStreamAccess::ReadWrite ? StreamAccess::ReadWrite
                                                      : StreamAccess::Write,
        options.withoutAppend == 0 ? StreamWriting::AtEnd : StreamWriting::AtPosition);
    checkIsPending(*view.pending);
    return stream;
}

/// REQUIRES: nobody else changes anything.
std::shared_ptr<detail::PendingContent>
ZipProvider::contentToWrite(View const& view, StorageIRI const& location,
                            ByteStreamOpenOptions const& options) {
    Tree& tree = *view.pending;
    std::unique_lock lock(tree.mutex);
    Tree::Place const place = walkTo(view, location, LastLink::Followed, tree.rootHandle(),
                                     detail::pathInArchive(location));
    if (place.isFree() && options.creation == ByteStreamCreation::OpenOrCreate) {
        return tree.add(place, tree.makeFile(), location).content;
    }
    if (place.error) {
        fail(*place.error, location);
    }
    Node& node = *place.entry;
    if (node.kind != EntryKind::File) {
        fail(node.isFolder() ? ErrorCode::InvalidLocation : ErrorCode::UnsupportedOperation,
             location);
    }
    if (!node.isWritable()) {
        fail(ErrorCode::PermissionDenied, location);
    }
    bool const truncates = options.withoutTruncate == 0;
    if (node.content) {
        if (truncates) {
            node.content->truncate();
        }
        return node.content;
    }
    std::int64_t const lastModified = tree.attributesOf(&node).lastModified.seconds;
    Number const base = node.base;
    std::shared_ptr<detail::PendingContent> content;
    if (truncates && view.archive->index->memberOf(base).size != 0) {
        content = std::make_shared<detail::PendingContent>(space_);
    } else {
        lock.unlock(); // others may go on looking
        content = contentOf(view, base, location);
        lock.lock();
        content->beAsInArchive(lastModified);
    }
    tree.setContent(node, content);
    return content;
}

std::shared_ptr<detail::PendingContent> ZipProvider::contentOf(View const& view, Number base,
                                                               StorageIRI const& location) const {
    auto content = std::make_shared<detail::PendingContent>(space_);
    try {
        auto const stream = openMember(*view.archive->streams, view.archive->index->memberOf(base),
                                       location, options_);
        std::vector<char> buffer(std::size_t{256} * 1024);
        for (;;) {
            long const got = stream->read(buffer.data(), static_cast<long>(buffer.size()));
            if (got <= 0) {
                return content;
            }
            content->fill(buffer.data(), static_cast<std::size_t>(got));
        }
    } catch (ByteStreamFailure const& failure) {
        fail(failure.getErrorCode(), location);
    } catch (detail::PendingFailure const& failure) {
        fail(failure.code(), location);
    }
}

std::unique_ptr<ByteStream> ZipProvider::openReplacement(StorageIRI const& location,
                                                         ReplacementPolicy const& policy) {
    change(location, [&](Tree& tree, auto const& walkTo) {
        Tree::Place const place = walkTo(location, LastLink::Itself);
        checkReplaceable(place, policy, location);
        if (place.error) {
            tree.checkNew(place, location);
            return;
        }
        if (place.entry->kind == EntryKind::Other) {
            fail(ErrorCode::UnsupportedOperation, location);
        }
        detail::checkWritable(*place.folder, location);
    });
    return std::make_unique<PendingReplacement>(
        std::make_shared<detail::PendingContent>(space_),
        [self = shared_from_this(), location,
         policy](std::shared_ptr<detail::PendingContent> content,
                 extensions::NewFileAttributes const& attributes) {
            self->publish(location, policy, std::move(content), attributes);
        });
}

void ZipProvider::publish(StorageIRI const& location, ReplacementPolicy policy,
                          std::shared_ptr<detail::PendingContent> content,
                          extensions::NewFileAttributes const& attributes) {
    change(location, [&](Tree& tree, auto const& walkTo) {
        Tree::Place const place = walkTo(location, LastLink::Itself);
        std::shared_ptr<Node> const node = tree.makeFile();
        node->content = std::move(content);
        if (!place.error && place.entry->kind == EntryKind::File) {
            node->mode = place.entry->mode;
        } else if (attributes.mode) {
            constexpr std::uint32_t permissions = 0777;
            node->mode = static_cast<std::uint16_t>(*attributes.mode & permissions);
        }
        if (attributes.lastModified) {
            node->content->setLastModified(detail::storableTime(attributes.lastModified->seconds));
        }
        tree.publish(place, node, policy, location);
    });
}

} // namespace foundation::storage::provider::zip
