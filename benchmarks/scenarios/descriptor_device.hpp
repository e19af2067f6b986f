#pragma once

#include "contest.hpp"

#include <boost/iostreams/categories.hpp>

#include <fcntl.h>
#include <ios>
#include <string>
#include <unistd.h>

namespace bench {

/// A file by the system's calls and nothing else. Also the device of a chain of Boost.Iostreams,
/// which copies it: the descriptor is closed by hand.
class DescriptorDevice {
  public:
    using char_type = char;
    using category = boost::iostreams::seekable_device_tag;

    static DescriptorDevice forReading(std::string const& path) {
        return DescriptorDevice(path, O_RDONLY);
    }
    static DescriptorDevice forWriting(std::string const& path) {
        return DescriptorDevice(path, O_WRONLY | O_CREAT | O_TRUNC);
    }

    std::streamsize read(char* buffer, std::streamsize count) const {
        ssize_t const got = ::read(descriptor_, buffer, static_cast<std::size_t>(count));
        if (got < 0) {
            fail("read");
        }
        return got == 0 ? -1 : got;
    }
    std::streamsize write(char const* buffer, std::streamsize count) const {
        ssize_t const put = ::write(descriptor_, buffer, static_cast<std::size_t>(count));
        if (put != count) {
            fail("write");
        }
        return put;
    }
    std::streamsize seek(std::streamsize offset, std::ios_base::seekdir way) const {
        int const whence = way == std::ios_base::beg   ? SEEK_SET
                           : way == std::ios_base::cur ? SEEK_CUR
                                                       : SEEK_END;
        return ::lseek(descriptor_, offset, whence);
    }
    void close() const {
        if (::close(descriptor_) != 0) {
            fail("close");
        }
    }

  private:
    DescriptorDevice(std::string const& path, int flags)
        : descriptor_(::open(path.c_str(), flags | O_CLOEXEC, 0666)) {
        if (descriptor_ < 0) {
            fail(path);
        }
    }

    int descriptor_;
};

} // namespace bench
