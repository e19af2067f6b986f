#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/byte_stream.hpp>

#include <boost/iostreams/categories.hpp>

#include <ios>
#include <memory>
#include <utility>

namespace foundation::storage::provider {

namespace detail {
/// Throws ByteStreamWriteFailure for a stream that takes nothing, and says of no reason.
[[noreturn]] FOUNDATION_EXPORT void throwNothingWritten();
} // namespace detail

/// A copyable handle on an open stream, a seekable and closable device in the sense of
/// Boost.Iostreams. Copies share the stream and its position.
template<class Stream>
class GenericByteStreamDevice {
  public:
    using char_type = char;
    struct category : boost::iostreams::seekable_device_tag, boost::iostreams::closable_tag {};

    /// Takes the stream over and leaves `stream` empty.
    explicit GenericByteStreamDevice(std::unique_ptr<Stream>& stream)
        : stream_(std::move(stream)) {}

    long read(char* buffer, long count) const { return stream_->read(buffer, count); }
    /// Writes all of `count` bytes: a stream that takes less than it is offered is offered the
    /// rest. Boost.Iostreams would lose or repeat it.
    long write(char const* buffer, long count) const {
        long done = 0;
        do {
            long const taken = stream_->write(buffer + done, count - done);
            if (taken > count - done || (taken <= 0 && done < count)) {
                detail::throwNothingWritten();
            }
            done += taken;
        } while (done < count);
        return done;
    }
    long seek(long offset, std::ios_base::seekdir way) const { return stream_->seek(offset, way); }
    void close() const { stream_->close(); }

  private:
    std::shared_ptr<Stream> stream_;
};

/// The device of a provider's stream.
class FOUNDATION_EXPORT ByteStreamDevice : public GenericByteStreamDevice<ByteStream> {
  public:
    using GenericByteStreamDevice<ByteStream>::GenericByteStreamDevice;
    ByteStreamDevice(GenericByteStreamDevice<ByteStream> device)
        : GenericByteStreamDevice<ByteStream>(std::move(device)) {}
};

} // namespace foundation::storage::provider
