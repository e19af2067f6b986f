#include <foundation/storage/provider/local/local_cursor.hpp>

#include <foundation/storage/provider/local/detail/failures.hpp>
#include <foundation/storage/provider/local/detail/listed_folder.hpp>

#include <fl/i18n/conversion.hpp>

#include <mutex>
#include <optional>
#include <stdexcept>
#include <utility>

namespace foundation::storage::provider::local {

using detail::FileDescriptor;
using detail::FolderChunk;
using detail::FolderChunkPtr;
using detail::FolderIdentity;
using detail::ListingQuery;

namespace {

/// A folder that is longer than its first chunk, shared by all cursors of one listing, which may be
/// on different threads. Its descriptor is closed as soon as the end has been read, and opened
/// again for a cursor that is behind.
class LongFolder {
  public:
    /// `folder` has just been read up to `position`.
    LongFolder(StorageIRI location, ListingQuery query, FileDescriptor folder,
               FolderIdentity identity, off_t position)
        : location_(std::move(location)),
          query_(std::move(query)),
          identity_(identity),
          descriptor_(std::move(folder)),
          position_(position) {}

    StorageIRI const& location() const noexcept { return location_; }

    /// The chunk behind `chunk`; the code of a failure.
    std::optional<ErrorCode> readBehind(FolderChunk const& chunk, FolderChunkPtr& result) {
        std::lock_guard const lock(mutex_);
        // Whatever fails below, the descriptor goes, and with it the doubt about its position.
        FileDescriptor folder = std::move(descriptor_);
        if (!folder) {
            auto failure = detail::reopenListedFolder(location_, detail::readFolderFlags, folder);
            if (!failure) {
                failure = detail::resumeFolder(folder.get(), identity_, chunk);
            }
            if (failure) {
                return failure;
            }
        } else if (position_ != chunk.resumeAt() &&
                   ::lseek(folder.get(), chunk.resumeAt(), SEEK_SET) < 0) {
            return errorCodeOfErrno(errno);
        }
        if (int const error = detail::readFolderChunk(folder.get(), query_, result)) {
            return errorCodeOfErrno(error);
        }
        if (!result->isLast()) {
            descriptor_ = std::move(folder);
            position_ = result->resumeAt();
        }
        return std::nullopt;
    }

  private:
    StorageIRI const location_;
    ListingQuery const query_;
    FolderIdentity const identity_;

    std::mutex mutex_;
    FileDescriptor descriptor_; ///< guarded by mutex_
    off_t position_;            ///< of the descriptor, guarded by mutex_
};

class LocalCursor final : public IFolderEntryIterator {
  public:
    /// `folder` is null where `chunk` is the last one.
    LocalCursor(FolderChunkPtr chunk, std::shared_ptr<LongFolder> folder) noexcept
        : chunk_(std::move(chunk)),
          folder_(std::move(folder)) {}

    FolderEntry currentEntry() const override {
        if (current_ == next_) {
            throw std::logic_error("a cursor that was not advanced has no entry");
        }
        FolderChunk::Entry const entry = chunk_->at(current_);
        return entry.toFolderEntry(fl::i18n::storageNameToUstring(entry.name));
    }

    bool hasNext() const override { return next_ != chunk_->size() || lookAhead(); }

    void advance() override {
        if (next_ == chunk_->size()) {
            goAhead();
            next_ = 0;
        }
        current_ = next_;
        next_ = chunk_->next(current_);
    }

    LocalCursor* cloneIterator() const override { return new LocalCursor(*this); }

  private:
    bool lookAhead() const {
        if (!failure_ && !ahead_ && folder_) {
            failure_ = folder_->readBehind(*chunk_, ahead_);
        }
        return failure_ || (ahead_ && ahead_->size() != 0);
    }

    void goAhead() {
        if (!lookAhead()) {
            throw std::logic_error("a cursor was advanced beyond the end of a listing");
        }
        if (failure_) {
            std::shared_ptr<LongFolder> const folder = std::move(folder_);
            throw Exception(*std::exchange(failure_, std::nullopt), folder->location());
        }
        chunk_ = std::move(ahead_);
        if (chunk_->isLast()) {
            folder_.reset();
        }
    }

    FolderChunkPtr chunk_;
    std::uint32_t current_ = 0;
    std::uint32_t next_ = 0;             ///< the same as current_ before the first entry
    std::shared_ptr<LongFolder> folder_; ///< null where nothing is left to read
    mutable FolderChunkPtr ahead_;       ///< the next chunk, when it was needed early
    mutable std::optional<ErrorCode> failure_;
};

} // namespace

std::unique_ptr<IFolderEntryIterator> listLocalFolder(StorageIRI const& location,
                                                      ListingQuery query) {
    FileDescriptor folder = detail::openListedFolder(location);
    FolderChunkPtr chunk;
    if (int const error = detail::readFolderChunk(folder.get(), query, chunk)) {
        detail::throwErrno(error, location);
    }
    std::shared_ptr<LongFolder> rest;
    if (!chunk->isLast()) {
        FolderIdentity identity;
        if (int const error = detail::identify(folder.get(), identity)) {
            detail::throwErrno(error, location);
        }
        rest = std::make_shared<LongFolder>(location, std::move(query), std::move(folder), identity,
                                            chunk->resumeAt());
    }
    return std::make_unique<LocalCursor>(std::move(chunk), std::move(rest));
}

} // namespace foundation::storage::provider::local
