#pragma once

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/byte_stream_open_options.hpp>
#include <foundation/storage/provider/local/detail/kernel_path.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <memory>
#include <optional>
#include <string>

namespace foundation::storage::provider::local {

enum class StreamAccess { Read, Write, ReadWrite };

/// Reads, writes and seeks on a descriptor that another object owns, and remembers the failure that
/// poisons it. The position is the kernel's.
class DescriptorIo {
  public:
    static constexpr long unknown = -1;

    /// `end` is where a file for reading ended when it was opened at its start: a read that stops
    /// short there has met the end, and the kernel is not asked once more.
    DescriptorIo(int descriptor, StreamAccess access, long end = unknown) noexcept
        : descriptor_(descriptor),
          access_(access),
          end_(end) {}

    long read(char* buffer, long count);
    long write(char const* buffer, long count);
    long seek(long offset, std::ios_base::seekdir way);

    /// Throws the failure that poisoned the stream, if one did, as a failure to close.
    void checkBeforeClose() const;
    /// Makes every later call fail with this system error, and throws it as a failure to close.
    [[noreturn]] void failClose(int error);
    /// Every later call fails: the stream has been closed.
    void markClosed() noexcept;

  private:
    /// Held so that poisoning needs no memory: it comes after an effect that stands.
    struct Poison {
        int error;         ///< a system error number, or 0
        char const* words; ///< the reason where there is no number
        ErrorCode code;

        std::string reason() const;
    };
    template<class Failure>
    void checkPoison(char const* what) const;
    [[noreturn]] void failWrite(Poison const& poison);

    int descriptor_;
    StreamAccess access_;
    long end_;
    long position_ = 0; ///< kept for reading alone
    std::optional<Poison> poison_;
};

/// The words for a system error number.
std::string reasonOf(int error);

/// A stream on a file of the local disk. Holds one descriptor.
class LocalStream final : public ByteStream {
  public:
    LocalStream(detail::FileDescriptor file, StreamAccess access,
                long end = DescriptorIo::unknown) noexcept;

    long read(char* buffer, long count) override;
    long write(char const* buffer, long count) override;
    long seek(long offset, std::ios_base::seekdir way) override;
    void close() override;

  private:
    detail::FileDescriptor file_;
    DescriptorIo io_;
};

/// Opens a file and nothing but a file: a FIFO, socket or device is refused with code
/// UnsupportedOperation before anything could come of opening it, a folder with InvalidLocation.
/// `flags` are those of open(2); with `found`, what is open.
detail::FileDescriptor openRegularFile(detail::KernelPath const& path, StorageIRI const& location,
                                       int flags, struct stat& found);

std::unique_ptr<ByteStream> openForReading(StorageIRI const& location);
std::unique_ptr<ByteStream> openWithOptions(StorageIRI const& location,
                                            ByteStreamOpenOptions const& options);

} // namespace foundation::storage::provider::local
