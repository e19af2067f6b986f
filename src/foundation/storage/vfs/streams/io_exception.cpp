#include <foundation/storage/vfs/streams/io_exception.hpp>

namespace foundation::storage::vfs {

IOException::IOException(std::string const& message, ErrorCode code)
    : std::ios_base::failure(message, std::io_errc::stream),
      code_(code) {}

IOException::~IOException() noexcept = default;

char const* IOException::what() const noexcept {
    return std::ios_base::failure::what();
}
ErrorCode IOException::getErrorCode() const {
    return code_;
}

IOReadException::IOReadException(ErrorCode code) : IOException("IOReadException", code) {}
IOReadException const* IOReadException::clone() const {
    return new IOReadException(*this);
}
void IOReadException::rethrow() const {
    throw IOReadException(*this);
}

IOWriteException::IOWriteException(ErrorCode code) : IOException("IOWriteException", code) {}
IOWriteException const* IOWriteException::clone() const {
    return new IOWriteException(*this);
}
void IOWriteException::rethrow() const {
    throw IOWriteException(*this);
}

IOSeekException::IOSeekException(ErrorCode code) : IOException("IOSeekException", code) {}
IOSeekException const* IOSeekException::clone() const {
    return new IOSeekException(*this);
}
void IOSeekException::rethrow() const {
    throw IOSeekException(*this);
}

IOCloseException::IOCloseException(ErrorCode code) : IOException("IOCloseException", code) {}
IOCloseException const* IOCloseException::clone() const {
    return new IOCloseException(*this);
}
void IOCloseException::rethrow() const {
    throw IOCloseException(*this);
}

} // namespace foundation::storage::vfs
