#pragma once

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/extensions/i_pinned_stream.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/s3/detail/new_content.hpp>
#include <foundation/storage/provider/s3/detail/object_reader.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace foundation::storage::provider::s3 {

/// What a stream for reading and one for writing have in common: a position, and a failure that
/// every later call answers.
class S3Stream : public ByteStream {
  public:
    long seek(long offset, std::ios_base::seekdir way) final;

  protected:
    template<class Thrown>
    void check(char const* call) const;
    /// Keeps the failure, and throws it as that of the call.
    template<class Thrown>
    [[noreturn]] void poison(char const* call, web::Failure const& failure);
    void markClosed();

    std::uint64_t position_ = 0;

  private:
    virtual std::uint64_t size() const = 0;

    std::optional<web::Failure> failure_;
};

/// An object that is read. One that changes meanwhile gives a failing read.
class S3ReadStream final : public S3Stream, public extensions::IPinnedStream {
  public:
    explicit S3ReadStream(std::unique_ptr<detail::ObjectReader> reader);

    long read(char* buffer, long count) override;
    long write(char const* buffer, long count) override;
    void close() override;
    std::unique_ptr<ByteStream> openAnother() const override;
    bool isOutdated() const noexcept override { return isOutdated_; }
    void rest() noexcept override;

  private:
    std::uint64_t size() const override;

    std::unique_ptr<detail::ObjectReader> reader_; ///< none when closed
    std::uint64_t const size_;
    bool isOutdated_ = false;
};

enum class StreamAccess { Write, ReadWrite };
enum class StreamWriting { AtPosition, AtEnd };

/// New content of an object, which the store gets with close(). Without that the object stays as
/// it is.
class S3WriteStream final : public S3Stream, public extensions::INewFileAttributes {
  public:
    /// What a stream does with a failed close().
    enum class Closing { Once, UntilDone };
    /// Puts the content into the store. Throws web::Failure.
    using Publish = std::function<void(detail::NewContent&)>;

    S3WriteStream(std::unique_ptr<detail::NewContent> content, StreamAccess access,
                  StreamWriting writing, Closing closing, Publish publish);

    long read(char* buffer, long count) override;
    long write(char const* buffer, long count) override;
    void close() override;
    void setNewFileAttributes(extensions::NewFileAttributes const& attributes) override;

  private:
    std::uint64_t size() const override;

    std::unique_ptr<detail::NewContent> content_; ///< none when closed
    StreamAccess const access_;
    StreamWriting const writing_;
    Closing const closing_;
    Publish const publish_;
};

} // namespace foundation::storage::provider::s3
