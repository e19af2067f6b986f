#pragma once

#include <foundation/storage/provider/error_code.hpp>
#include <foundation/storage/provider/zip/zip_options.hpp>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace foundation::storage::provider::zip::detail {

/// What is pending could not be kept, or not be read again.
class PendingFailure : public std::runtime_error {
  public:
    PendingFailure(std::string const& text, ErrorCode code)
        : std::runtime_error(text),
          code_(code) {}
    ErrorCode code() const noexcept { return code_; }

  private:
    ErrorCode code_;
};

/// The room for content that is not in the archive yet: in memory up to a bound, and then in a
/// temporary file that has no name, so that nothing is left of it however the process ends. Shared
/// by all that is pending of one archive. Safe on any thread.
class PendingSpace {
  public:
    explicit PendingSpace(ZipOptions const& options);
    PendingSpace(PendingSpace const&) = delete;
    PendingSpace& operator=(PendingSpace const&) = delete;
    ~PendingSpace();

    /// Bytes of memory; false where they are beyond the bound.
    bool takeMemory(std::size_t bytes) noexcept;
    void giveMemory(std::size_t bytes) noexcept { memory_ -= bytes; }

    /// A place for `PendingBlock::fullSize` bytes in the file, which begins with what anybody left.
    std::uint64_t takeSlot();
    void giveSlot(std::uint64_t slot) noexcept;
    void write(std::uint64_t slot, std::size_t offset, char const* data, std::size_t count);
    void read(std::uint64_t slot, std::size_t offset, char* buffer, std::size_t count) const;

    /// How often anything changed that the archive is to hold.
    std::uint64_t changes() const noexcept { return changes_; }
    void countChange() noexcept { ++changes_; }
    /// Streams that may still write.
    void addWriter() noexcept { ++writers_; }
    void removeWriter() noexcept { --writers_; }
    bool hasWriter() const noexcept { return writers_ != 0; }
    /// Bytes in memory, and in the file.
    std::size_t memory() const noexcept { return memory_; }
    std::uint64_t fileSize() const;

  private:
    void openFile();

    std::size_t const mostMemory_;
    std::string const folder_;
    std::atomic<std::size_t> memory_ = 0;
    std::atomic<std::uint64_t> changes_ = 0;
    std::atomic<int> writers_ = 0;
    mutable std::mutex mutex_;
    std::atomic<int> file_ = -1; ///< opened once, under the mutex
    // guarded by the mutex:
    std::uint64_t slots_ = 0;
    std::vector<std::uint64_t> free_;
};

/// A piece of content: bytes that were never written are zero. For one thread at a time.
class PendingBlock {
  public:
    static constexpr std::size_t fullSize = std::size_t{64} * 1024;

    explicit PendingBlock(PendingSpace& space) noexcept : space_(space) {}
    PendingBlock(PendingBlock const&) = delete;
    PendingBlock& operator=(PendingBlock const&) = delete;
    ~PendingBlock();

    /// REQUIRES: offset + count is not beyond the full size; so does read(). Throws PendingFailure
    /// and std::bad_alloc.
    void write(std::size_t offset, char const* data, std::size_t count);
    void read(std::size_t offset, char* buffer, std::size_t count) const;

  private:
    bool growTo(std::size_t size);
    void goToFile();

    PendingSpace& space_;
    std::unique_ptr<char[]> memory_;
    std::size_t capacity_ = 0; ///< of the memory
    std::size_t filled_ = 0;
    std::uint64_t slot_ = 0;
    bool isInFile_ = false;
};

} // namespace foundation::storage::provider::zip::detail
