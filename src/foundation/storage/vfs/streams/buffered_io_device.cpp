#include <foundation/storage/vfs/streams/buffered_io_device.hpp>

#include <foundation/storage/vfs/streams/detail/guarded_streambuf.hpp>

#include <utility>

namespace foundation::storage::vfs {

struct BufferedIODevice::Impl {
    detail::GuardedStreambuf<IODevice> buffer;
    bool closed = false;
};

namespace {

/// Runs an operation on the chain. What is not of the IOException family becomes `Failure`.
template<class Failure, class Operation>
auto asIOException(Operation operation) {
    try {
        return operation();
    } catch (IOException const&) {
        throw;
    } catch (...) {
        throw Failure(ErrorCode::IOError);
    }
}

} // namespace

BufferedIODevice::BufferedIODevice(File file) : BufferedIODevice(IODevice(std::move(file))) {}

BufferedIODevice::BufferedIODevice(File file, provider::ByteStreamOpenOptions options)
    : BufferedIODevice(IODevice(std::move(file), options)) {}

BufferedIODevice::BufferedIODevice(IODevice device) : impl_(std::make_unique<Impl>()) {
    impl_->buffer.push(device, detail::deviceBufferSize);
}

BufferedIODevice::~BufferedIODevice() {
    try {
        close();
    } catch (...) {
    }
}

long BufferedIODevice::read(char* buffer, long count) const {
    return asIOException<IOReadException>([&]() -> long {
        std::streamsize const got = impl_->buffer.sgetn(buffer, count);
        return got == 0 ? -1 : got;
    });
}

long BufferedIODevice::write(char const* buffer, long count) const {
    return asIOException<IOWriteException>(
        [&]() -> long { return impl_->buffer.sputn(buffer, count); });
}

long BufferedIODevice::seek(long offset, std::ios_base::seekdir way) const {
    return asIOException<IOSeekException>([&]() -> long {
        return impl_->buffer.pubseekoff(offset, way, std::ios_base::in | std::ios_base::out);
    });
}

long BufferedIODevice::tell() const {
    return seek(0, std::ios_base::cur);
}

void BufferedIODevice::close() {
    if (impl_->buffer.is_complete()) {
        asIOException<IOCloseException>([&] { impl_->buffer.popDevice(); });
    }
    impl_->closed = true;
}

bool BufferedIODevice::is_open() const noexcept {
    return !impl_->closed;
}

} // namespace foundation::storage::vfs
