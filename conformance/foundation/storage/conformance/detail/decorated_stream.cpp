#include <foundation/storage/conformance/detail/decorated_stream.hpp>

#include <foundation/storage/provider/byte_stream_failure.hpp>

#include <utility>

namespace foundation::storage::conformance {

using namespace foundation::storage::provider;

namespace {

/// What a failure says behind the name of the call.
std::string reasonOf(ByteStreamFailure const& failure) {
    std::string const text = failure.what();
    auto const colon = text.find(": ");
    return colon == std::string::npos ? text : text.substr(colon + 2);
}

} // namespace

DecoratedStream::DecoratedStream(std::shared_ptr<ProviderDecorator const> decorator,
                                 StorageIRI location, std::unique_ptr<ByteStream> inner,
                                 ProviderDecorator::StreamKind kind)
    : decorator_(std::move(decorator)),
      location_(std::move(location)),
      inner_(std::move(inner)),
      kind_(kind) {}

DecoratedStream::~DecoratedStream() = default;

template<class Failure>
void DecoratedStream::checkPoison(char const* what) const {
    if (poison_) {
        throw Failure(std::string(what) + ": " + poison_->reason, poison_->code);
    }
}

template<class Call>
auto DecoratedStream::poisonedByFailureOf(Call const& call) {
    try {
        return call();
    } catch (ByteStreamFailure const& e) {
        poison_ = Poison{reasonOf(e), e.getErrorCode()};
        throw;
    } catch (...) {
        poison_ = Poison{"the decorator failed", ErrorCode::InternalError};
        throw;
    }
}

long DecoratedStream::read(char* buffer, long count) {
    checkPoison<ByteStreamReadFailure>("read");
    decorator_->before(Operation::Read, &location_);
    return decorator_->doRead(*inner_, buffer, count);
}

long DecoratedStream::write(char const* buffer, long count) {
    checkPoison<ByteStreamWriteFailure>("write");
    return poisonedByFailureOf([&] {
        decorator_->before(Operation::Write, &location_);
        return decorator_->doWrite(*inner_, buffer, count);
    });
}

long DecoratedStream::seek(long offset, std::ios_base::seekdir way) {
    checkPoison<ByteStreamSeekFailure>("seek");
    decorator_->before(Operation::Seek, &location_);
    return inner_->seek(offset, way);
}

void DecoratedStream::close() {
    checkPoison<ByteStreamCloseFailure>("close");
    if (kind_ == ProviderDecorator::StreamKind::Replacement) {
        // One that could not be published may be closed again.
        decorator_->before(Operation::Close, &location_);
    } else {
        poisonedByFailureOf([&] { decorator_->before(Operation::Close, &location_); });
    }
    inner_->close(); // knows itself whether its failure poisons
}

} // namespace foundation::storage::conformance
