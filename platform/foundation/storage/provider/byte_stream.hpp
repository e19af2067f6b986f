#pragma once

#include <foundation/export.hpp>

#include <ios>

namespace foundation::storage::provider {

/// The open bytes of a file. One position serves reading and writing. For one thread at a time.
///
/// Reads and writes loop over short counts. The first failed write, flush or close poisons the
/// stream: every later call, close() included, fails, so that bytes lost in a buffer above never
/// pass in silence. The destructor releases what is held and drops what fails. Failures are thrown
/// as the ByteStreamFailure that goes with the call.
class FOUNDATION_EXPORT ByteStream {
  public:
    ByteStream() = default;
    ByteStream(ByteStream const&) = delete;
    ByteStream& operator=(ByteStream const&) = delete;
    virtual ~ByteStream();

    /// Reads up to `count` bytes; fewer only at the end of the file, and -1 where nothing is left.
    /// A `count` of 0 gives 0.
    virtual long read(char* buffer, long count) = 0;
    /// Writes all of `count` bytes, or throws; returns `count`.
    virtual long write(char const* buffer, long count) = 0;
    /// Moves the position, also behind the end; returns it, counted in bytes from the start. A
    /// position before the start is refused.
    virtual long seek(long offset, std::ios_base::seekdir way) = 0;
    /// Ends the use of the stream and reports what could not be brought to the storage. Closing
    /// twice is a failure.
    virtual void close() = 0;
};

} // namespace foundation::storage::provider
