#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/byte_stream_device.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/streams/io_exception.hpp>

#include <boost/iostreams/categories.hpp>

#include <ios>
#include <memory>

namespace foundation::storage::vfs {

/// The bytes of a file, unbuffered: a seekable, closable device in the sense of Boost.Iostreams.
/// Copies share the open stream and its position, but each is closed by itself. For one thread at a
/// time.
///
/// Failures are IOReadException, IOWriteException, IOSeekException and IOCloseException, or
/// vfs::Exception where the provider throws of the item; std::logic_error after close().
class FOUNDATION_EXPORT IODevice {
  public:
    using char_type = char;
    struct category : boost::iostreams::seekable_device_tag, boost::iostreams::closable_tag {};

    /// Opens for reading. Throws as File::openReadOnly.
    explicit IODevice(File file);
    /// Throws as File::open.
    IODevice(File file, provider::ByteStreamOpenOptions options);

    /// The number of bytes read, -1 at the end of the file.
    long read(char* buffer, long count) const;
    /// The number of bytes written.
    long write(char const* buffer, long count) const;
    /// The new position, in bytes from the start.
    long seek(long offset, std::ios_base::seekdir way) const;
    long tell() const;
    /// After a failure the device is still open, and close() may be tried again. Without close()
    /// the stream ends with its last copy, and what fails then is lost.
    void close();
    bool is_open() const noexcept { return static_cast<bool>(device_); }

  private:
    provider::ByteStreamDevice const& open() const;

    File file_;
    std::shared_ptr<provider::ByteStreamDevice> device_;
};

} // namespace foundation::storage::vfs
