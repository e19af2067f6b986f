#include <foundation/storage/provider/http/http_stream.hpp>

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/extensions/i_pinned_stream.hpp>
#include <foundation/storage/provider/http/detail/range_reader.hpp>

#include <limits>
#include <optional>
#include <utility>

namespace foundation::storage::provider::http {

namespace {

class HttpStream final : public ByteStream, public extensions::IPinnedStream {
  public:
    explicit HttpStream(std::unique_ptr<detail::RangeReader> reader) : reader_(std::move(reader)) {}

    long read(char* buffer, long count) override {
        checkOpen<ByteStreamReadFailure>("read");
        if (count < 0) {
            throw ByteStreamReadFailure("read: a negative count", ErrorCode::InternalError);
        }
        if (count == 0) {
            return 0;
        }
        try {
            std::size_t const got =
                reader_->readAt(position_, {buffer, static_cast<std::size_t>(count)});
            position_ += got;
            return got == 0 ? -1 : static_cast<long>(got);
        } catch (web::Failure const& failure) {
            isOutdated_ = dynamic_cast<web::VersionFailure const*>(&failure) != nullptr;
            failure_ = failure;
            throw ByteStreamReadFailure(std::string("read: ") + failure.what(), failure.code());
        }
    }

    long write(char const*, long) override {
        checkOpen<ByteStreamWriteFailure>("write");
        failure_ = web::Failure(ErrorCode::PermissionDenied, "the file is open for reading alone");
        throw ByteStreamWriteFailure(std::string("write: ") + failure_->what(), failure_->code());
    }

    long seek(long offset, std::ios_base::seekdir way) override {
        checkOpen<ByteStreamSeekFailure>("seek");
        std::uint64_t from = 0;
        if (way == std::ios_base::cur) {
            from = position_;
        } else if (way == std::ios_base::end) {
            auto const size = reader_->size();
            if (!size) {
                throw ByteStreamSeekFailure("seek: the server does not tell the size of the file",
                                            ErrorCode::UnsupportedOperation);
            }
            from = *size;
        }
        constexpr auto farthest = std::numeric_limits<long>::max();
        if (from > static_cast<std::uint64_t>(farthest) || offset < -static_cast<long>(from) ||
            offset > farthest - static_cast<long>(from)) {
            throw ByteStreamSeekFailure("seek: the position is before the start, or too far",
                                        ErrorCode::InvalidLocation);
        }
        position_ = static_cast<std::uint64_t>(static_cast<long>(from) + offset);
        return static_cast<long>(position_);
    }

    void close() override {
        checkOpen<ByteStreamCloseFailure>("close");
        reader_.reset();
    }

    std::unique_ptr<ByteStream> openAnother() const override {
        return std::make_unique<HttpStream>(reader_->another());
    }
    bool isOutdated() const noexcept override { return isOutdated_; }
    void rest() noexcept override { reader_->rest(); }

  private:
    template<class Thrown>
    void checkOpen(char const* call) const {
        if (!reader_) {
            throw Thrown(std::string(call) + ": the stream is closed", ErrorCode::InternalError);
        }
        if (failure_) {
            throw Thrown(std::string(call) + ": " + failure_->what(), failure_->code());
        }
    }

    std::unique_ptr<detail::RangeReader> reader_; ///< none when closed
    std::uint64_t position_ = 0;
    std::optional<web::Failure> failure_; ///< what every later call answers
    bool isOutdated_ = false;
};

} // namespace

std::unique_ptr<ByteStream> openForReading(std::shared_ptr<web::Client const> client,
                                           web::Url const& url, StorageIRI const& location,
                                           HttpOptions const& options, First first,
                                           Opened const& opened) {
    auto reader = std::make_unique<detail::RangeReader>(
        std::move(client), url, detail::RangeSizes{options.firstRange, options.largestRange});
    try {
        first == First::Start ? reader->open() : reader->openFromEnd();
    } catch (web::Failure const& failure) {
        throw Exception(failure.code(), location, failure.what());
    }
    opened(*reader);
    return std::make_unique<HttpStream>(std::move(reader));
}

} // namespace foundation::storage::provider::http
