#pragma once

#include <foundation/storage/provider/spool/content.hpp>
#include <foundation/storage/provider/zip/detail/pending_space.hpp>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

namespace foundation::storage::provider::zip::detail {

/// The bytes of a file that are not in the archive yet. Any number of streams work on them at once,
/// and they live as long as one of these does, also where the file is removed or replaced. Safe on
/// any thread. Throws PendingFailure.
class PendingContent {
  public:
    explicit PendingContent(std::shared_ptr<PendingSpace> space);
    /// The same bytes and time as another has now.
    PendingContent(PendingContent const& other, std::shared_ptr<PendingSpace> space);
    PendingContent& operator=(PendingContent const&) = delete;

    /// The bytes read; 0 at and behind the end.
    std::size_t read(std::uint64_t position, char* buffer, std::size_t count) const;
    /// What came before a failure stays written. REQUIRES: position + count does not overflow.
    void write(std::uint64_t position, char const* data, std::size_t count);
    /// Writes at the end; the new end.
    std::uint64_t append(char const* data, std::size_t count);
    void truncate();
    /// Writes at the end what the archive has, which is no change.
    void fill(char const* data, std::size_t count);
    std::uint64_t size() const;

    /// In seconds from 1970.
    std::int64_t lastModified() const;
    void setLastModified(std::int64_t time);

    /// How often the bytes or the time have changed.
    std::uint64_t version() const noexcept { return version_; }
    /// That it has been filled with all that the archive has.
    void beAsInArchive(std::int64_t lastModified);
    /// Whether it is anything else than the archive has.
    bool isChanged() const noexcept { return version_ != versionInArchive_; }
    /// That the archive has what was there at a version.
    void beWritten(std::uint64_t version) noexcept { versionInArchive_ = version; }

    /// That changes of it are changes of the archive from now on.
    void beInTree() noexcept { isInTree_ = true; }

    /// While a stream may write into it.
    void addWriter() noexcept {
        ++writers_;
        space_->addWriter();
    }
    void removeWriter() noexcept {
        --writers_;
        space_->removeWriter();
    }
    bool hasWriter() const noexcept { return writers_ != 0; }

  private:
    void changedLocked();

    static constexpr std::uint64_t never = ~std::uint64_t{0};

    std::shared_ptr<PendingSpace> const space_;
    std::atomic<std::uint64_t> version_ = 0;
    std::atomic<std::uint64_t> versionInArchive_ = never;
    std::atomic<int> writers_ = 0;
    std::atomic<bool> isInTree_ = false;
    mutable std::mutex mutex_;
    // guarded by the mutex:
    spool::Content bytes_;
    std::int64_t lastModified_;
};

/// Seconds from 1970.
std::int64_t secondsNow() noexcept;

} // namespace foundation::storage::provider::zip::detail
