#pragma once

#include <boost/iostreams/categories.hpp>
#include <boost/iostreams/filtering_streambuf.hpp>

#include <ios>
#include <streambuf>

namespace foundation::storage::vfs::detail {

/// Bytes in the buffer between a chain and its device. Boost's own default is 4096.
inline constexpr std::streamsize deviceBufferSize = 131072;

/// A chain of one device that may be used, and found empty, while it holds none. The base class
/// reads through pointers into a link that is gone once the chain has been reset, and dereferences
/// null in a chain that was never complete; here both are the end of the file.
class GuardedStreambuf final
    : public boost::iostreams::filtering_streambuf<boost::iostreams::seekable> {
    using Base = boost::iostreams::filtering_streambuf<boost::iostreams::seekable>;

  public:
    /// Closes the device and empties the chain. A device that fails to close leaves the chain
    /// complete and marked as closed: closing again then drops the link, and nothing reaches the
    /// device, since what was pending is forgotten at the first attempt.
    void closeChain() {
        ForgetsBuffer const guard{*this};
        reset();
    }

    /// As closeChain(), by taking the one link off.
    void popDevice() {
        ForgetsBuffer const guard{*this};
        pop();
    }

  protected:
    int_type underflow() override { return is_complete() ? Base::underflow() : traits_type::eof(); }
    int_type pbackfail(int_type c) override {
        return is_complete() ? Base::pbackfail(c) : traits_type::eof();
    }
    int_type overflow(int_type c) override {
        return is_complete() ? Base::overflow(c) : traits_type::eof();
    }
    std::streamsize xsgetn(char* s, std::streamsize n) override {
        return is_complete() ? Base::xsgetn(s, n) : 0;
    }
    std::streamsize xsputn(char const* s, std::streamsize n) override {
        return is_complete() ? Base::xsputn(s, n) : 0;
    }
    int sync() override { return is_complete() ? Base::sync() : -1; }
    pos_type seekoff(off_type off, std::ios_base::seekdir way,
                     std::ios_base::openmode which) override {
        return is_complete() ? Base::seekoff(off, way, which) : pos_type(off_type(-1));
    }
    pos_type seekpos(pos_type position, std::ios_base::openmode which) override {
        return is_complete() ? Base::seekpos(position, which) : pos_type(off_type(-1));
    }

  private:
    struct ForgetsBuffer {
        GuardedStreambuf& buffer;
        ~ForgetsBuffer() {
            buffer.setg(nullptr, nullptr, nullptr);
            buffer.setp(nullptr, nullptr);
        }
    };
};

} // namespace foundation::storage::vfs::detail
