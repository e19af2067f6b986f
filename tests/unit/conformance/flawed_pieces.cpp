#include "flawed_pieces.hpp"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace conformance_test {

using namespace foundation::storage::provider;

WrappedStream::WrappedStream(std::unique_ptr<ByteStream> inner) : inner_(std::move(inner)) {}

void StreamThatLosesTheLastChunk::flush() {
    std::string const bytes = std::exchange(pending_, {});
    if (!bytes.empty()) {
        WrappedStream::write(bytes.data(), static_cast<long>(bytes.size()));
    }
}

long StreamThatLosesTheLastChunk::read(char* buffer, long count) {
    flush();
    return WrappedStream::read(buffer, count);
}

long StreamThatLosesTheLastChunk::write(char const* buffer, long count) {
    constexpr std::size_t chunk = 131'072;
    if (count <= 0) {
        return WrappedStream::write(buffer, count);
    }
    pending_.append(buffer, static_cast<std::size_t>(count));
    while (pending_.size() >= chunk) {
        WrappedStream::write(pending_.data(), static_cast<long>(chunk));
        pending_.erase(0, chunk);
        isLong_ = true;
    }
    if (!isLong_) {
        flush();
    }
    return count;
}

long StreamThatLosesTheLastChunk::seek(long offset, std::ios_base::seekdir way) {
    flush();
    return WrappedStream::seek(offset, way);
}

void StreamThatLosesTheLastChunk::close() {
    WrappedStream::close();
}

long StreamOfShortReads::read(char* buffer, long count) {
    return WrappedStream::read(buffer, std::min(count, 65'536L));
}

long StreamThatClampsPositions::seek(long offset, std::ios_base::seekdir way) {
    return WrappedStream::seek(way == std::ios_base::beg ? std::max(offset, 0L) : offset, way);
}

WrappedCursor::WrappedCursor(std::shared_ptr<IFolderEntryIterator> inner)
    : inner_(std::move(inner)) {}

bool CursorThatIsMovedByAsking::hasNext() const {
    if (std::exchange(isAsked_, true) && inner_->hasNext()) {
        inner_->advance();
    }
    return inner_->hasNext();
}

void CursorThatIsMovedByAsking::advance() {
    isAsked_ = false;
    inner_->advance();
}

IFolderEntryIterator* CursorThatIsMovedByAsking::cloneIterator() const {
    return new CursorThatIsMovedByAsking(
        std::shared_ptr<IFolderEntryIterator>(inner_->cloneIterator()));
}

IFolderEntryIterator* CursorThatIsShared::cloneIterator() const {
    return new CursorThatIsShared(*this);
}

CursorThatIsShared::CursorThatIsShared(CursorThatIsShared const& other)
    : WrappedCursor(other.inner_),
      mutex_(other.mutex_) {}

FolderEntry CursorThatIsShared::currentEntry() const {
    std::lock_guard const lock(*mutex_);
    return WrappedCursor::currentEntry();
}

bool CursorThatIsShared::hasNext() const {
    std::lock_guard const lock(*mutex_);
    return WrappedCursor::hasNext();
}

void CursorThatIsShared::advance() {
    std::lock_guard const lock(*mutex_);
    WrappedCursor::advance();
}

CursorOverWhatIsNotHidden::CursorOverWhatIsNotHidden(IFolderEntryIterator& all) {
    while (all.hasNext()) {
        all.advance();
        if (!all.currentEntry().getName().starts_with(u'.')) {
            entries_.push_back(all.currentEntry());
        }
    }
}

FolderEntry CursorOverWhatIsNotHidden::currentEntry() const {
    if (done_ == 0) {
        throw std::logic_error("before the first entry");
    }
    return entries_[done_ - 1];
}

void CursorOverWhatIsNotHidden::advance() {
    if (!hasNext()) {
        throw std::logic_error("behind the last entry");
    }
    ++done_;
}

IFolderEntryIterator* CursorOverWhatIsNotHidden::cloneIterator() const {
    return new CursorOverWhatIsNotHidden(*this);
}

} // namespace conformance_test
