#include <foundation/storage/provider/spool/space.hpp>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace foundation::storage::provider::spool {

namespace {

constexpr std::size_t smallestBlock = 64;

[[noreturn]] void fail(char const* what, int error) {
    throw Failure(std::string(what) + ": " + std::generic_category().message(error),
                  errorCodeOfErrno(error));
}

/// A file without a name, or -1.
int openUnnamed(std::string const& folder) noexcept {
    int const file = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (file >= 0) {
        return file;
    }
    // Not every file system has them.
    try {
        std::string name = folder + "/.vfs-XXXXXX";
        int const named = ::mkostemp(name.data(), O_CLOEXEC);
        if (named >= 0) {
            ::unlink(name.c_str());
        }
        return named;
    } catch (std::bad_alloc const&) {
        errno = ENOMEM;
        return -1;
    }
}

} // namespace

Space::Space(std::size_t mostMemory, std::string temporaryFolder)
    : mostMemory_(mostMemory),
      folder_(std::move(temporaryFolder)) {}

Space::~Space() {
    if (file_ >= 0) {
        ::close(file_);
    }
}

bool Space::takeMemory(std::size_t bytes) noexcept {
    std::size_t now = memory_;
    do {
        if (bytes > mostMemory_ || now > mostMemory_ - bytes) {
            return false;
        }
    } while (!memory_.compare_exchange_weak(now, now + bytes));
    return true;
}

void Space::openFile() {
    int error = ENOENT;
    for (std::string const& folder :
         {folder_, std::string(folder_.empty() ? "/var/tmp" : ""), std::string("/tmp")}) {
        if (folder.empty()) {
            continue;
        }
        int const file = openUnnamed(folder);
        if (file >= 0) {
            file_ = file;
            return;
        }
        error = errno;
        if (!folder_.empty()) {
            break; // who names a folder means it
        }
    }
    fail("no temporary file for what is written", error);
}

std::uint64_t Space::takeSlot() {
    std::lock_guard const lock(mutex_);
    if (file_ < 0) {
        openFile();
    }
    if (!free_.empty()) {
        std::uint64_t const slot = free_.back();
        free_.pop_back();
        return slot;
    }
    free_.reserve(static_cast<std::size_t>(std::bit_ceil(slots_ + 1))); // giving back cannot fail
    return slots_++;
}

void Space::giveSlot(std::uint64_t slot) noexcept {
    std::lock_guard const lock(mutex_);
    free_.push_back(slot);
    if (free_.size() == slots_) { // so that a long life keeps no disk full
        free_.clear();
        slots_ = 0;
        if (::ftruncate(file_, 0) != 0) {
            return; // it stays as large as it was
        }
    }
}

std::uint64_t Space::fileSize() const {
    struct stat file {};
    return file_ >= 0 && ::fstat(file_, &file) == 0 ? static_cast<std::uint64_t>(file.st_size) : 0;
}

void Space::write(std::uint64_t slot, std::size_t offset, char const* data, std::size_t count) {
    auto at = static_cast<off_t>(slot * Block::fullSize + offset);
    while (count > 0) {
        ssize_t const done = ::pwrite(file_, data, count, at);
        if (done < 0) {
            if (errno == EINTR) {
                continue;
            }
            fail("what is written could not be kept", errno);
        }
        data += done;
        at += done;
        count -= static_cast<std::size_t>(done);
    }
}

void Space::read(std::uint64_t slot, std::size_t offset, char* buffer, std::size_t count) const {
    auto at = static_cast<off_t>(slot * Block::fullSize + offset);
    while (count > 0) {
        ssize_t const done = ::pread(file_, buffer, count, at);
        if (done <= 0) {
            if (done < 0 && errno == EINTR) {
                continue;
            }
            fail("what is written could not be read", done < 0 ? errno : EIO);
        }
        buffer += done;
        at += done;
        count -= static_cast<std::size_t>(done);
    }
}

Block::~Block() {
    space_.giveMemory(capacity_);
    if (isInFile_) {
        space_.giveSlot(slot_);
    }
}

bool Block::growTo(std::size_t size) {
    std::size_t const capacity = std::bit_ceil(std::max(size, smallestBlock));
    if (!space_.takeMemory(capacity - capacity_)) {
        return false;
    }
    std::unique_ptr<char[]> larger;
    try {
        larger = std::make_unique_for_overwrite<char[]>(capacity);
    } catch (std::bad_alloc const&) {
        space_.giveMemory(capacity - capacity_);
        return false; // there is still the file
    }
    if (filled_ > 0) {
        std::memcpy(larger.get(), memory_.get(), filled_);
    }
    memory_ = std::move(larger);
    capacity_ = capacity;
    return true;
}

void Block::goToFile() {
    slot_ = space_.takeSlot();
    isInFile_ = true;
    try {
        space_.write(slot_, 0, memory_.get(), filled_);
    } catch (...) {
        isInFile_ = false;
        space_.giveSlot(slot_);
        throw;
    }
    memory_.reset();
    space_.giveMemory(std::exchange(capacity_, 0));
}

void Block::write(std::size_t offset, char const* data, std::size_t count) {
    std::size_t const end = offset + count;
    if (!isInFile_ && end > capacity_ && !growTo(end)) {
        goToFile();
    }
    if (!isInFile_) {
        if (offset > filled_) {
            std::memset(memory_.get() + filled_, 0, offset - filled_);
        }
        std::memcpy(memory_.get() + offset, data, count);
        filled_ = std::max(filled_, end);
        return;
    }
    static constexpr std::array<char, 4096> zeros{};
    while (filled_ < offset) {
        std::size_t const gap = std::min(zeros.size(), offset - filled_);
        space_.write(slot_, filled_, zeros.data(), gap);
        filled_ += gap;
    }
    space_.write(slot_, offset, data, count);
    filled_ = std::max(filled_, end);
}

void Block::read(std::size_t offset, char* buffer, std::size_t count) const {
    std::size_t const known = offset < filled_ ? std::min(count, filled_ - offset) : 0;
    if (known > 0 && isInFile_) {
        space_.read(slot_, offset, buffer, known);
    } else if (known > 0) {
        std::memcpy(buffer, memory_.get() + offset, known);
    }
    std::memset(buffer + known, 0, count - known);
}

} // namespace foundation::storage::provider::spool
