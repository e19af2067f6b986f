#pragma once

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/i_folder_entry_iterator.hpp>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace conformance_test {

/// Hands everything to another stream.
class WrappedStream : public foundation::storage::provider::ByteStream {
  public:
    explicit WrappedStream(std::unique_ptr<ByteStream> inner);
    long read(char* buffer, long count) override { return inner_->read(buffer, count); }
    long write(char const* buffer, long count) override { return inner_->write(buffer, count); }
    long seek(long offset, std::ios_base::seekdir way) override {
        return inner_->seek(offset, way);
    }
    void close() override { inner_->close(); }

  private:
    std::unique_ptr<ByteStream> const inner_;
};

/// Buffers what is written, and forgets at the end what no full buffer followed.
class StreamThatLosesTheLastChunk final : public WrappedStream {
  public:
    using WrappedStream::WrappedStream;
    long read(char* buffer, long count) override;
    long write(char const* buffer, long count) override;
    long seek(long offset, std::ios_base::seekdir way) override;
    void close() override;

  private:
    void flush();

    std::string pending_;
    bool isLong_ = false;
};

class StreamOfShortReads final : public WrappedStream {
  public:
    using WrappedStream::WrappedStream;
    long read(char* buffer, long count) override;
};

class StreamThatClampsPositions final : public WrappedStream {
  public:
    using WrappedStream::WrappedStream;
    long seek(long offset, std::ios_base::seekdir way) override;
};

/// Hands everything but clones to another cursor.
class WrappedCursor : public foundation::storage::provider::IFolderEntryIterator {
  public:
    explicit WrappedCursor(std::shared_ptr<IFolderEntryIterator> inner);
    foundation::storage::provider::FolderEntry currentEntry() const override {
        return inner_->currentEntry();
    }
    bool hasNext() const override { return inner_->hasNext(); }
    void advance() override { inner_->advance(); }

  protected:
    std::shared_ptr<IFolderEntryIterator> const inner_;
};

class CursorThatIsMovedByAsking final : public WrappedCursor {
  public:
    using WrappedCursor::WrappedCursor;
    bool hasNext() const override;
    void advance() override;
    IFolderEntryIterator* cloneIterator() const override;

  private:
    mutable bool isAsked_ = false;
};

/// Locked, as clones are for a thread each: the flaw is the position, and no crash.
class CursorThatIsShared final : public WrappedCursor {
  public:
    using WrappedCursor::WrappedCursor;
    foundation::storage::provider::FolderEntry currentEntry() const override;
    bool hasNext() const override;
    void advance() override;
    IFolderEntryIterator* cloneIterator() const override;

  private:
    CursorThatIsShared(CursorThatIsShared const& other);

    std::shared_ptr<std::mutex> const mutex_ = std::make_shared<std::mutex>();
};

class CursorOverWhatIsNotHidden final : public foundation::storage::provider::IFolderEntryIterator {
  public:
    explicit CursorOverWhatIsNotHidden(IFolderEntryIterator& all);
    foundation::storage::provider::FolderEntry currentEntry() const override;
    bool hasNext() const override { return done_ < entries_.size(); }
    void advance() override;
    IFolderEntryIterator* cloneIterator() const override;

  private:
    std::vector<foundation::storage::provider::FolderEntry> entries_;
    std::size_t done_ = 0;
};

} // namespace conformance_test
