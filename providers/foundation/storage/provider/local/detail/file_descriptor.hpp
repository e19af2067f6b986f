#pragma once

#include <cerrno>
#include <unistd.h>
#include <utility>

namespace foundation::storage::provider::local::detail {

/// Owns a descriptor, or none. For one thread at a time.
class FileDescriptor {
  public:
    FileDescriptor() noexcept = default;
    explicit FileDescriptor(int number) noexcept : number_(number) {}
    FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        FileDescriptor old(std::exchange(number_, std::exchange(other.number_, -1)));
        return *this;
    }
    FileDescriptor(FileDescriptor const&) = delete;
    FileDescriptor& operator=(FileDescriptor const&) = delete;
    ~FileDescriptor() { close(); }

    int get() const noexcept { return number_; }
    explicit operator bool() const noexcept { return number_ >= 0; }

    /// Releases the descriptor and gives the error number of it, or 0. An interrupted close has
    /// released the descriptor too, and is none.
    int close() noexcept {
        if (number_ < 0) {
            return 0;
        }
        int const result = ::close(std::exchange(number_, -1));
        return result != 0 && errno != EINTR ? errno : 0;
    }

  private:
    int number_ = -1;
};

/// Runs a system call until no signal interrupts it.
template<class Call>
auto uninterrupted(Call const& call) noexcept {
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

} // namespace foundation::storage::provider::local::detail
