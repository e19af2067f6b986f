#include <foundation/storage/provider/zip/zip_provider.hpp>

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/zip/detail/archive_path.hpp>
#include <foundation/storage/provider/zip/detail/archive_walk.hpp>
#include <foundation/storage/provider/zip/detail/central_directory.hpp>
#include <foundation/storage/provider/zip/pending_cursor.hpp>
#include <foundation/storage/provider/zip/pending_stream.hpp>
#include <foundation/storage/provider/zip/zip_stream.hpp>

#include <fl/i18n/conversion.hpp>

#include <type_traits>
#include <utility>

namespace foundation::storage::provider::zip {

using detail::ArchiveIndex;
using detail::EntryKind;
using detail::LastLink;

namespace {

[[noreturn]] void fail(ErrorCode code, StorageIRI const& location) {
    throw Exception(code, location);
}

char const* methodName(std::uint16_t method) {
    switch (static_cast<detail::Method>(method)) {
    case detail::Method::Stored:
        return "stored";
    case detail::Method::Deflated:
        return "deflate";
    case detail::Method::Bzip2:
        return "bzip2";
    case detail::Method::OldZstandard:
    case detail::Method::Zstandard:
        return "zstd";
    case detail::Method::Xz:
        return "xz";
    }
    return "unknown";
}

} // namespace

ZipProvider::ZipProvider(StorageItem item, ZipOptions const& options)
    : item_(std::move(item)),
      options_(options),
      space_(std::make_shared<detail::PendingSpace>(options)),
      itemState_(stateOfItem()) {
    archive_ = read();
}

ZipProvider::~ZipProvider() {
    try {
        if (lost_) {
            bringBack();
        }
    } catch (std::exception const&) { // NOLINT(bugprone-empty-catch): the last try
    }
}

ZipProvider::ItemState ZipProvider::stateOfItem() const {
    AttributeValues const values = item_.getFileAttributes().values();
    return {values.size, values.lastModified, values.created};
}

ZipProvider::ArchivePtr ZipProvider::read() const {
    auto archive = std::make_shared<Archive>();
    archive->streams =
        std::make_shared<container::ItemStreams>(item_, container::ItemStreams::First::End);
    archive->index = detail::readCentralDirectory(*archive->streams, options_);
    return archive;
}

ZipProvider::View ZipProvider::view() const {
    ItemState const now = stateOfItem();
    std::lock_guard const lock(mutex_);
    if (own_ != Own::Seen) {
        lookAtOwn();
    } else if (now != itemState_ || archive_->streams->isOutdated()) {
        lookAgain();
    }
    return {archive_, pending_};
}

/// REQUIRES: the mutex is held, so that nobody flushes.
void ZipProvider::lookAgain() const {
    ItemState const now = stateOfItem(); // what was seen before may have been flushed away
    bool const hasChanged = now != itemState_;
    if (!hasChanged && !archive_->streams->isOutdated()) {
        return;
    }
    if (pending_ && hasChanges()) {
        if (!hasChanged) {
            return; // it may as well be the same, and then nothing of what is pending is lost
        }
        fail(ErrorCode::ResourceInUse, item_.getLocation());
    }
    pending_.reset();
    archive_ = read();
    itemState_ = now;
}

/// Takes what we have written ourselves for what there is. Should that fail, what is pending stays
/// where it is, and the next one who looks tries again. REQUIRES: the mutex is held.
void ZipProvider::lookAtOwn() const {
    ItemState const now = stateOfItem();
    if (own_ == Own::Published) {
        ArchivePtr archive = read();
        std::shared_ptr<Tree> fresh;
        if (pending_ && hasChanges()) {
            fresh = std::make_shared<Tree>(archive->index, pending_->location(), options_, space_);
            carryOver(*pending_, *fresh);
        }
        archive_ = std::move(archive);
        pending_ = std::move(fresh);
    }
    itemState_ = now;
    own_ = Own::Seen;
}

/// In this order: what a writer has changed counts before it is none any more. REQUIRES: the mutex
/// is held.
bool ZipProvider::hasChanges() const noexcept {
    return space_->hasWriter() || space_->changes() != flushedChanges_;
}

bool ZipProvider::isCurrent(Archive const& archive) const {
    std::lock_guard const lock(mutex_);
    return archive_.get() == &archive && own_ != Own::Published;
}

namespace {

/// A flush of our own has written another archive meanwhile.
struct Superseded : Exception {
    using Exception::Exception;
};

} // namespace

/// The result of opening and reading a member, whose place is that in the archive. The item is
/// opened by its name, which a flush may have given to another archive since we looked: whatever
/// comes of that is none. Throws Superseded.
template<class Read>
auto ZipProvider::readIn(Archive const& archive, Read const& read) const {
    try {
        auto result = read();
        if (isCurrent(archive)) {
            return result;
        }
    } catch (std::exception const&) {
        if (isCurrent(archive)) {
            throw;
        }
    }
    throw Superseded(ErrorCode::ResourceInUse, item_.getLocation());
}

std::string ZipProvider::linkTarget(Archive& archive, Number link,
                                    StorageIRI const& location) const {
    if (std::optional<std::string> known = archive.targets.find(link)) {
        return *std::move(known);
    }
    detail::Member const member = archive.index->memberOf(link);
    if (member.size > detail::longestTarget) {
        fail(ErrorCode::InvalidLocation, location);
    }
    try {
        std::string target = readIn(archive, [&] {
            std::string bytes(static_cast<std::size_t>(member.size), '\0');
            auto const stream = openMember(*archive.streams, member, location, options_);
            if (!bytes.empty()) {
                stream->read(bytes.data(), static_cast<long>(bytes.size()));
            }
            return bytes;
        });
        archive.targets.keep(link, target);
        return target;
    } catch (ByteStreamFailure const& failure) {
        fail(failure.getErrorCode(), location);
    }
}

ZipProvider::Tree::Place ZipProvider::walkTo(View const& view, StorageIRI const& location,
                                             LastLink last, Node* from,
                                             std::string_view path) const {
    return detail::walk(*view.pending, from, path, last, [&](Node* link) {
        return link->base != ArchiveIndex::none ? linkTarget(*view.archive, link->base, location)
                                                : link->target;
    });
}

/// Calls with the tree that there is, the view that it is of, and a function that goes the path of
/// the location in it. Again where a flush has come between.
template<class Question>
auto ZipProvider::ask(StorageIRI const& location, Question const& question) const {
    for (;;) {
        try {
            return askOnce(location, question);
        } catch (Superseded const&) { // NOLINT(bugprone-empty-catch)
        }
    }
}

template<class Question>
auto ZipProvider::askOnce(StorageIRI const& location, Question const& question) const {
    View const view = this->view();
    std::string const path = detail::pathInArchive(location);
    if (view.pending) {
        Tree& tree = *view.pending;
        std::lock_guard const lock(tree.mutex);
        return question(tree, view, [&](LastLink last) {
            return walkTo(view, location, last, tree.rootHandle(), path);
        });
    }
    ArchiveIndex const& index = *view.archive->index;
    return question(index, view, [&](LastLink last) {
        return detail::walk(index, index.rootHandle(), path, last,
                            [&](Number link) { return linkTarget(*view.archive, link, location); });
    });
}

namespace {

/// What a path leads to, links followed.
template<class Walk>
auto existing(Walk const& walkTo, LastLink last, StorageIRI const& location) {
    auto const place = walkTo(last);
    if (place.error) {
        fail(*place.error, location);
    }
    return place.entry;
}

/// What a link leads to, and the link itself where that is nothing.
template<class Walk>
auto described(Walk const& walkTo, StorageIRI const& location) {
    auto const place = walkTo(LastLink::Followed);
    return place.error ? existing(walkTo, LastLink::Itself, location) : place.entry;
}

/// For a question: absence is an answer.
template<class Walk>
auto lookUp(Walk const& walkTo, StorageIRI const& location) {
    auto place = walkTo(LastLink::Itself);
    if (place.error && *place.error != ErrorCode::ResourceNotFound) {
        fail(*place.error, location);
    }
    return place;
}

/// The member that an entry is, unless it has other bytes by now.
ArchiveIndex::Number memberIn(ArchiveIndex const&, ArchiveIndex::Number entry) {
    return entry;
}
ArchiveIndex::Number memberIn(detail::PendingTree const&, detail::PendingNode const* node) {
    return node->content ? ArchiveIndex::none : node->base;
}

} // namespace

ExistsResult ZipProvider::exists(StorageIRI const& location) const {
    return ask(location, [&](auto const& tree, View const&, auto const& walkTo) {
        auto const place = lookUp(walkTo, location);
        return place.error                  ? ExistsResult::Nothing
               : tree.isFolder(place.entry) ? ExistsResult::Folder
                                            : ExistsResult::File;
    });
}

ExtendedExistsResult ZipProvider::existsExtended(StorageIRI const& location) const {
    return ask(location, [&](auto const& tree, View const&, auto const& walkTo) {
        auto const place = lookUp(walkTo, location);
        if (place.error) {
            return ExtendedExistsResult::Nothing;
        }
        switch (tree.kindOf(place.entry)) {
        case EntryKind::Folder:
            return ExtendedExistsResult::Folder;
        case EntryKind::File:
            return ExtendedExistsResult::File;
        case EntryKind::Other:
            return ExtendedExistsResult::Other;
        case EntryKind::Link:
            break;
        }
        auto const target = walkTo(LastLink::Followed);
        return target.error                  ? ExtendedExistsResult::DanglingLink
               : tree.isFolder(target.entry) ? ExtendedExistsResult::LinkToFolder
                                             : ExtendedExistsResult::LinkToFile;
    });
}

bool ZipProvider::fileExists(StorageIRI const& location) const {
    return exists(location) == ExistsResult::File;
}

bool ZipProvider::folderExists(StorageIRI const& location) const {
    return ask(location, [&](auto const& tree, View const&, auto const& walkTo) {
        auto const place = walkTo(LastLink::Followed);
        return !place.error && tree.isFolder(place.entry);
    });
}

bool ZipProvider::hasFeature(StorageIRI const&, ExtendedFeature const& feature) const {
    switch (feature) {
    case ExtendedFeature::RecursiveListing:
    case ExtendedFeature::FlatWildcardListing:
    case ExtendedFeature::RecursiveWildcardListing:
    case ExtendedFeature::RecursiveFolderRemoval:
        return true;
    case ExtendedFeature::RecursiveChangeEvents:
        break;
    }
    return false;
}

StorageIRI ZipProvider::getCanonicalLocation(StorageIRI const& location) const {
    std::string const path = ask(location, [&](auto const& tree, View const&, auto const& walkTo) {
        // What is missing has a place too, be it the path itself or what a link leads to.
        auto const place = walkTo(LastLink::Followed);
        auto const none = std::remove_cvref_t<decltype(tree)>::none;
        if (place.error && place.folder == none) {
            fail(*place.error, location);
        }
        std::string text = place.name;
        for (auto entry = place.error ? place.folder : place.entry; entry != tree.rootHandle();
             entry = tree.parentOf(entry)) {
            text.insert(0, text.empty() ? "" : "/");
            text.insert(0, tree.nameOf(entry));
        }
        return text;
    });
    StorageIRI const root(location.getScheme(), item_.getCanonicalLocation(), u"/");
    return path.empty() ? root : StorageIRI(root, fl::i18n::storageNameToUstring(path));
}

FileAttributes ZipProvider::getFileAttributes(StorageIRI const& location) const {
    return ask(location, [&](auto const& tree, View const&, auto const& walkTo) {
        auto const entry = described(walkTo, location);
        if (tree.isFolder(entry)) {
            fail(ErrorCode::InvalidLocation, location);
        }
        return FileAttributes(tree.attributesOf(entry));
    });
}

FolderAttributes ZipProvider::getFolderAttributes(StorageIRI const& location) const {
    return ask(location, [&](auto const& tree, View const&, auto const& walkTo) {
        auto const entry = existing(walkTo, LastLink::Followed, location);
        if (!tree.isFolder(entry)) {
            fail(ErrorCode::ResourceNotFound, location);
        }
        return FolderAttributes(tree.attributesOf(entry));
    });
}

ExtendedAttributes ZipProvider::getExtendedAttributes(StorageIRI const& location) const {
    return ask(location, [&](auto const& tree, View const& view, auto const& walkTo) {
        auto const entry = described(walkTo, location);
        ArchiveIndex const& index = *view.archive->index;
        ExtendedAttributes result{
            {"posix.mode", container::octal(tree.attributesOf(entry).mode.value_or(0))}};
        if (entry == tree.rootHandle() && index.leftOut() != 0) {
            result["zip.left-out"] = std::to_string(index.leftOut());
        }
        Number const number = memberIn(tree, entry);
        if (!tree.isFolder(entry) && number != ArchiveIndex::none) {
            detail::Member const member = index.memberOf(number);
            result["zip.method"] = methodName(member.method);
            result["zip.compressed-size"] = std::to_string(member.compressedSize);
            if (member.isEncrypted) {
                result["zip.encrypted"] = "yes";
            }
        }
        return result;
    });
}

namespace {

std::shared_ptr<detail::PendingContent> contentIn(ArchiveIndex const&, ArchiveIndex::Number) {
    return nullptr;
}
std::shared_ptr<detail::PendingContent> contentIn(detail::PendingTree const&,
                                                  detail::PendingNode const* node) {
    return node->content;
}

} // namespace

std::unique_ptr<ByteStream> ZipProvider::openReadOnlyStream(StorageIRI const& location) const {
    for (;;) {
        ArchivePtr archive;
        Readable const found = ask(location, [&](auto const& tree, View const& view,
                                                 auto const& walkTo) {
            auto const entry = existing(walkTo, LastLink::Followed, location);
            switch (tree.kindOf(entry)) {
            case EntryKind::Folder:
                fail(ErrorCode::InvalidLocation, location);
            case EntryKind::Other:
                fail(ErrorCode::UnsupportedOperation, location);
            case EntryKind::File:
            case EntryKind::Link:
                break;
            }
            archive = view.archive;
            Number const number = memberIn(tree, entry);
            return Readable{contentIn(tree, entry), number == ArchiveIndex::none
                                                        ? detail::Member()
                                                        : view.archive->index->memberOf(number)};
        });
        if (found.content) {
            return std::make_unique<PendingStream>(found.content, StreamAccess::Read,
                                                   StreamWriting::AtPosition);
        }
        try {
            return readIn(*archive, [&] {
                return openMember(*archive->streams, found.member, location, options_);
            });
        } catch (Superseded const&) { // NOLINT(bugprone-empty-catch)
        }
    }
}

namespace {

/// A link that has its target itself.
std::optional<std::string> ownTarget(ArchiveIndex const&, ArchiveIndex::Number) {
    return std::nullopt;
}
std::optional<std::string> ownTarget(detail::PendingTree const&, detail::PendingNode const* link) {
    return link->base == ArchiveIndex::none ? std::optional(link->target) : std::nullopt;
}

} // namespace

ustring ZipProvider::readLink(StorageIRI const& location) const {
    std::string const target =
        ask(location, [&](auto const& tree, View const& view, auto const& walkTo) {
            auto const entry = existing(walkTo, LastLink::Itself, location);
            if (tree.kindOf(entry) != EntryKind::Link) {
                fail(ErrorCode::InvalidLocation, location);
            }
            std::optional<std::string> own = ownTarget(tree, entry);
            return own ? *std::move(own)
                       : linkTarget(*view.archive, memberIn(tree, entry), location);
        });
    return fl::i18n::storageNameToUstring(target);
}

namespace {

std::unique_ptr<IFolderEntryIterator> cursorOver(ArchiveIndex const&,
                                                 std::shared_ptr<ArchiveIndex const> index,
                                                 std::shared_ptr<detail::PendingTree> const&,
                                                 ArchiveIndex::Number folder, StorageIRI const&,
                                                 ZipSelection selection) {
    return std::make_unique<ZipCursor>(std::make_shared<ZipCursor::Listing const>(
        ZipCursor::Listing{std::move(index), folder, std::move(selection)}));
}
std::unique_ptr<IFolderEntryIterator>
cursorOver(detail::PendingTree const& tree, std::shared_ptr<ArchiveIndex const> const&,
           std::shared_ptr<detail::PendingTree> pending, detail::PendingNode* folder,
           StorageIRI const& location, ZipSelection selection) {
    return std::make_unique<PendingCursor>(std::make_shared<PendingListing const>(
        PendingListing{std::move(pending), tree.share(folder), location, std::move(selection)}));
}

} // namespace

std::unique_ptr<IFolderEntryIterator> ZipProvider::list(StorageIRI const& location,
                                                        ZipSelection selection) const {
    return ask(location, [&](auto const& tree, View const& view, auto const& walkTo) {
        auto const folder = existing(walkTo, LastLink::Followed, location);
        if (!tree.isFolder(folder)) {
            fail(ErrorCode::ResourceNotFound, location);
        }
        return cursorOver(tree, view.archive->index, view.pending, folder, location,
                          std::move(selection));
    });
}

} // namespace foundation::storage::provider::zip
