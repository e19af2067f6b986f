#pragma once

#include <foundation/storage/provider/error_code.hpp>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace foundation::storage::provider::spool {

/// What was written could not be kept, or not be read again.
class Failure : public std::runtime_error {
  public:
    Failure(std::string const& text, ErrorCode code) : std::runtime_error(text), code_(code) {}
    ErrorCode code() const noexcept { return code_; }

  private:
    ErrorCode code_;
};

/// The room for content that is not in its storage yet: in memory up to a bound, and then in a
/// temporary file that has no name, so that nothing is left of it however the process ends. Safe on
/// any thread.
class Space {
  public:
    /// An empty folder is /var/tmp, and /tmp where that does not do.
    Space(std::size_t mostMemory, std::string temporaryFolder);
    Space(Space const&) = delete;
    Space& operator=(Space const&) = delete;
    ~Space();

    /// Bytes of memory; false where they are beyond the bound.
    bool takeMemory(std::size_t bytes) noexcept;
    void giveMemory(std::size_t bytes) noexcept { memory_ -= bytes; }

    /// A place for `Block::fullSize` bytes in the file, which begins with what anybody left.
    std::uint64_t takeSlot();
    void giveSlot(std::uint64_t slot) noexcept;
    void write(std::uint64_t slot, std::size_t offset, char const* data, std::size_t count);
    void read(std::uint64_t slot, std::size_t offset, char* buffer, std::size_t count) const;

    /// Bytes in memory, and in the file.
    std::size_t memory() const noexcept { return memory_; }
    std::uint64_t fileSize() const;

  private:
    void openFile();

    std::size_t const mostMemory_;
    std::string const folder_;
    std::atomic<std::size_t> memory_ = 0;
    mutable std::mutex mutex_;
    std::atomic<int> file_ = -1; ///< opened once, under the mutex
    // guarded by the mutex:
    std::uint64_t slots_ = 0;
    std::vector<std::uint64_t> free_;
};

/// A piece of content: bytes that were never written are zero. For one thread at a time.
class Block {
  public:
    static constexpr std::size_t fullSize = std::size_t{64} * 1024;

    explicit Block(Space& space) noexcept : space_(space) {}
    Block(Block const&) = delete;
    Block& operator=(Block const&) = delete;
    ~Block();

    /// REQUIRES: offset + count is not beyond the full size; so does read(). Throws Failure and
    /// std::bad_alloc.
    void write(std::size_t offset, char const* data, std::size_t count);
    void read(std::size_t offset, char* buffer, std::size_t count) const;

  private:
    bool growTo(std::size_t size);
    void goToFile();

    Space& space_;
    std::unique_ptr<char[]> memory_;
    std::size_t capacity_ = 0; ///< of the memory
    std::size_t filled_ = 0;
    std::uint64_t slot_ = 0;
    bool isInFile_ = false;
};

} // namespace foundation::storage::provider::spool
