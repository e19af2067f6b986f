#include <foundation/storage/provider/s3/detail/spool.hpp>

#include <foundation/storage/provider/web/failure.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <utility>

namespace foundation::storage::provider::s3::detail {

namespace {

[[noreturn]] void fail(std::string const& what, int error) {
    throw web::Failure(errorCodeOfErrno(error),
                       what + ": " + std::system_category().message(error));
}

/// A file without a name; -1 and errno where there is none to be had.
int openUnnamed(std::string const& folder) {
    int const file = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (file >= 0) {
        return file;
    }
    // File systems without such files
    std::string name = folder + "/.vfs-XXXXXX";
    int const named = ::mkostemp(name.data(), O_CLOEXEC);
    if (named >= 0) {
        ::unlink(name.c_str());
    }
    return named;
}

} // namespace

Spool::Spool(std::size_t mostMemory, std::string folder)
    : mostMemory_(mostMemory),
      folder_(std::move(folder)) {}

Spool::~Spool() {
    if (file_ >= 0) {
        ::close(file_);
    }
}

void Spool::goToFile() {
    if (!folder_.empty()) {
        file_ = openUnnamed(folder_);
    } else {
        file_ = openUnnamed("/var/tmp");
        if (file_ < 0) {
            file_ = openUnnamed("/tmp");
        }
    }
    if (file_ < 0) {
        fail("no temporary file for what is written", errno);
    }
    writeToFile(0, memory_);
    memory_ = {};
}

void Spool::write(std::uint64_t position, std::span<char const> bytes) {
    std::uint64_t const end = position + bytes.size();
    if (file_ < 0 && end > mostMemory_) {
        goToFile();
    }
    if (file_ >= 0) {
        writeToFile(position, bytes);
    } else {
        if (end > memory_.size()) {
            memory_.resize(static_cast<std::size_t>(end));
        }
        std::copy(bytes.begin(), bytes.end(), memory_.begin() + static_cast<long>(position));
    }
    size_ = std::max(size_, end);
}

void Spool::writeToFile(std::uint64_t position, std::span<char const> bytes) {
    while (!bytes.empty()) {
        ssize_t const done =
            ::pwrite(file_, bytes.data(), bytes.size(), static_cast<off_t>(position));
        if (done < 0) {
            if (errno == EINTR) {
                continue;
            }
            fail("what is written could not be kept", errno);
        }
        position += static_cast<std::uint64_t>(done);
        bytes = bytes.subspan(static_cast<std::size_t>(done));
    }
}

std::size_t Spool::read(std::uint64_t position, std::span<char> buffer) const {
    if (position >= size_) {
        return 0;
    }
    auto const count =
        static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), size_ - position));
    if (file_ < 0) {
        std::memcpy(buffer.data(), memory_.data() + position, count);
        return count;
    }
    for (std::size_t done = 0; done < count;) {
        ssize_t const got = ::pread(file_, buffer.data() + done, count - done,
                                    static_cast<off_t>(position + done));
        if (got > 0) {
            done += static_cast<std::size_t>(got);
        } else if (got == 0 || errno != EINTR) {
            fail("what was written could not be read", got == 0 ? EIO : errno);
        }
    }
    return count;
}

} // namespace foundation::storage::provider::s3::detail
