#pragma once

#include <boost/iostreams/categories.hpp>
#include <boost/iostreams/filtering_streambuf.hpp>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <ios>
#include <streambuf>

namespace foundation::storage::vfs::detail {

/// Bytes in the buffer between a chain and its device. Boost's own default is 4096.
inline constexpr std::streamsize deviceBufferSize = 131072;
/// Bytes that can be put back whatever was read; Boost's own default.
inline constexpr std::streamsize putbackSize = 4;

/// A chain of one device that may be used, and found empty, while it holds none, or one that failed
/// to close. The base class reads through pointers into a link that is gone once the chain has been
/// reset, and dereferences null in a chain that was never complete; here both are the end of the
/// file.
///
/// What the buffer holds is copied without going through the chain, and whole buffers are read past
/// it, in the calls that the device would see anyway.
template<class Device>
class GuardedStreambuf final
    : public boost::iostreams::filtering_streambuf<boost::iostreams::seekable> {
    using Base = boost::iostreams::filtering_streambuf<boost::iostreams::seekable>;

  public:
    using typename Base::int_type;
    using typename Base::off_type;
    using typename Base::pos_type;
    using typename Base::traits_type;

    /// Closes the device and empties the chain. A device that fails to close leaves the chain
    /// complete and marked as closed: closing again then drops the link, and nothing reaches the
    /// device, since what was pending is forgotten at the first attempt.
    void closeChain() {
        ForgetsBuffer const guard{*this};
        spent_ = true; // stays so where the device fails to close, until the link is gone
        this->reset();
        spent_ = false;
    }

    /// As closeChain(), by taking the one link off.
    void popDevice() {
        ForgetsBuffer const guard{*this};
        // Taking it off, the chain does not tell the link what this buffer holds; any operation
        // does.
        Base::xsputn(nullptr, 0);
        spent_ = true;
        this->pop();
        spent_ = false;
    }

  protected:
    int_type underflow() override { return usable() ? Base::underflow() : traits_type::eof(); }
    int_type pbackfail(int_type c) override {
        return usable() ? Base::pbackfail(c) : traits_type::eof();
    }
    int_type overflow(int_type c) override {
        return usable() ? Base::overflow(c) : traits_type::eof();
    }
    std::streamsize xsgetn(char* s, std::streamsize n) override {
        if (!usable()) {
            return 0;
        }
        if (n > 0 && n <= this->egptr() - this->gptr()) {
            takeBuffered(s, n);
            return n;
        }
        return n < deviceBufferSize ? Base::xsgetn(s, n) : readLarge(s, n);
    }
    std::streamsize xsputn(char const* s, std::streamsize n) override {
        if (!usable()) {
            return 0;
        }
        if (n > 0 && n <= this->epptr() - this->pptr()) {
            std::memcpy(this->pptr(), s, static_cast<std::size_t>(n));
            this->pbump(static_cast<int>(n)); // the buffer is smaller than an int counts
            return n;
        }
        return Base::xsputn(s, n);
    }
    int sync() override { return usable() ? Base::sync() : -1; }
    pos_type seekoff(off_type off, std::ios_base::seekdir way,
                     std::ios_base::openmode which) override {
        return usable() ? Base::seekoff(off, way, which) : pos_type(off_type(-1));
    }
    pos_type seekpos(pos_type position, std::ios_base::openmode which) override {
        return usable() ? Base::seekpos(position, which) : pos_type(off_type(-1));
    }

  private:
    bool usable() { return !spent_ && this->is_complete(); }

    void takeBuffered(char* s, std::streamsize n) {
        std::memcpy(s, this->gptr(), static_cast<std::size_t>(n));
        this->setg(this->eback(), this->gptr() + n, this->egptr());
    }

    std::streamsize readLarge(char* s, std::streamsize n) {
        std::streamsize done = std::min(n, std::streamsize{this->egptr() - this->gptr()});
        if (done > 0) {
            takeBuffered(s, done);
        }
        // The link puts what can be put back into the first bytes of its buffer, and has to have
        // been read through once for that.
        while (n - done >= deviceBufferSize && this->gptr() - this->eback() >= putbackSize) {
            std::streamsize const got =
                this->template component<Device>(0)->read(s + done, deviceBufferSize);
            if (got <= 0) {
                return done;
            }
            done += got;
            keepForPutback(s + done, got);
        }
        return done < n ? done + Base::xsgetn(s + done, n - done) : done;
    }

    /// Makes the last bytes before `end`, of which `count` are new, what can be put back.
    void keepForPutback(char const* end, std::streamsize count) {
        char* const next = this->gptr();
        std::streamsize const fresh = std::min(count, putbackSize);
        std::streamsize const old = putbackSize - fresh;
        std::memmove(next - putbackSize, next - old, static_cast<std::size_t>(old));
        std::memcpy(next - fresh, end - fresh, static_cast<std::size_t>(fresh));
        this->setg(next - putbackSize, next, next);
    }

    struct ForgetsBuffer {
        GuardedStreambuf& buffer;
        ~ForgetsBuffer() {
            buffer.setg(nullptr, nullptr, nullptr);
            buffer.setp(nullptr, nullptr);
        }
    };

    bool spent_ = false;
};

} // namespace foundation::storage::vfs::detail
