#include <foundation/storage/provider/byte_stream_failure.hpp>

#include <foundation/storage/provider/byte_stream_device.hpp>

namespace foundation::storage::provider {

ByteStreamFailure::ByteStreamFailure(std::string const& text, ErrorCode code)
    : std::ios_base::failure(text, std::io_errc::stream),
      text_(text),
      code_(code) {}

ErrorCode ByteStreamFailure::getErrorCode() const noexcept {
    return code_;
}
char const* ByteStreamFailure::what() const noexcept {
    return text_.what();
}

fl::i18n::ustring ByteStreamFailure::ToUstringImpl() const {
    return convert_str(std::string(what()));
}

ByteStreamFailure const* ByteStreamFailure::clone() const {
    return new ByteStreamFailure(*this);
}
void ByteStreamFailure::rethrow() const {
    throw ByteStreamFailure(*this);
}

void detail::throwNothingWritten() {
    throw ByteStreamWriteFailure("write: the stream takes no more, and gives no reason",
                                 ErrorCode::IOError);
}

ByteStreamReadFailure const* ByteStreamReadFailure::clone() const {
    return new ByteStreamReadFailure(*this);
}
void ByteStreamReadFailure::rethrow() const {
    throw ByteStreamReadFailure(*this);
}

ByteStreamWriteFailure const* ByteStreamWriteFailure::clone() const {
    return new ByteStreamWriteFailure(*this);
}
void ByteStreamWriteFailure::rethrow() const {
    throw ByteStreamWriteFailure(*this);
}

ByteStreamSeekFailure const* ByteStreamSeekFailure::clone() const {
    return new ByteStreamSeekFailure(*this);
}
void ByteStreamSeekFailure::rethrow() const {
    throw ByteStreamSeekFailure(*this);
}

ByteStreamCloseFailure const* ByteStreamCloseFailure::clone() const {
    return new ByteStreamCloseFailure(*this);
}
void ByteStreamCloseFailure::rethrow() const {
    throw ByteStreamCloseFailure(*this);
}

} // namespace foundation::storage::provider
