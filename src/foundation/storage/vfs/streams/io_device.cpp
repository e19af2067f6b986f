#include <foundation/storage/vfs/streams/io_device.hpp>

#include <foundation/storage/vfs/errors/detail/translated.hpp>

#include <stdexcept>
#include <utility>

namespace foundation::storage::vfs {

using detail::translated;

IODevice::IODevice(File file)
    : file_(std::move(file)),
      device_(std::make_shared<provider::ByteStreamDevice>(file_.openReadOnly())) {}

IODevice::IODevice(File file, provider::ByteStreamOpenOptions options)
    : file_(std::move(file)),
      device_(std::make_shared<provider::ByteStreamDevice>(file_.open(options))) {}

provider::ByteStreamDevice const& IODevice::open() const {
    if (!device_) {
        throw std::logic_error("Cannot operate on a closed IODevice.");
    }
    return *device_;
}

long IODevice::read(char* buffer, long count) const {
    provider::ByteStreamDevice const& device = open();
    return translated([&] { return device.read(buffer, count); });
}

long IODevice::write(char const* buffer, long count) const {
    provider::ByteStreamDevice const& device = open();
    return translated([&] { return device.write(buffer, count); });
}

long IODevice::seek(long offset, std::ios_base::seekdir way) const {
    provider::ByteStreamDevice const& device = open();
    return translated([&] { return device.seek(offset, way); });
}

long IODevice::tell() const {
    return seek(0, std::ios_base::cur);
}

void IODevice::close() {
    provider::ByteStreamDevice const& device = open();
    translated([&] { device.close(); });
    device_.reset();
}

} // namespace foundation::storage::vfs
