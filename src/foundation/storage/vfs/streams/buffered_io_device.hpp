#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/vfs/streams/io_device.hpp>

#include <ios>
#include <memory>

namespace foundation::storage::vfs {

/// An IODevice behind one buffer of 128 KiB, shared by reading and writing. For one thread at a
/// time.
///
/// Failures are of the IOException family: those of the device as they are, anything else as the
/// class of the operation with ErrorCode::IOError. A write that fails in close() or seek() while
/// the buffer is flushed is not reported by them: the device's own close is.
class FOUNDATION_EXPORT BufferedIODevice {
  public:
    /// Opens for reading. Throws as File::openReadOnly.
    explicit BufferedIODevice(File file);
    /// Throws as File::open.
    BufferedIODevice(File file, provider::ByteStreamOpenOptions options);
    /// Shares the stream of an open device.
    explicit BufferedIODevice(IODevice device);
    /// Closes, and drops what fails.
    ~BufferedIODevice();

    BufferedIODevice(BufferedIODevice const&) = delete;
    BufferedIODevice& operator=(BufferedIODevice const&) = delete;

    /// The number of bytes read: `count`, unless the file ends before. -1 where that is none, also
    /// for a count of 0.
    long read(char* buffer, long count) const;
    long write(char const* buffer, long count) const;
    /// The new position, in bytes from the start. Drops what was read ahead.
    long seek(long offset, std::ios_base::seekdir way) const;
    /// As seek(0, cur), and as costly.
    long tell() const;
    /// Writes out what is pending and closes the device. Closing again does nothing.
    void close();
    bool is_open() const noexcept;

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace foundation::storage::vfs
