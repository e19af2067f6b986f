#pragma once

#include <foundation/storage/provider/tar/detail/archive_reader.hpp>
#include <foundation/storage/provider/tar/detail/tar_index.hpp>

#include <memory>
#include <mutex>
#include <vector>

namespace foundation::storage::provider::tar::detail {

/// Readers of members that only the format's reader can find, lent to one stream each. Those that
/// go by number read all headers before; so up to two are kept for a later member. Safe on any
/// thread.
class MemberReaders : public std::enable_shared_from_this<MemberReaders> {
  public:
    /// Brings one back when its stream is done, unless it has failed.
    struct Return {
        std::shared_ptr<MemberReaders> owner; ///< null for one that is of no use to others
        void operator()(ArchiveReader* reader) const noexcept;
    };
    using Lent = std::unique_ptr<ArchiveReader, Return>;

    MemberReaders(std::shared_ptr<ArchiveSource> source, Charset charset);

    /// One that stands at the member. Throws container::DecodingFailure where the archive has none
    /// there. REQUIRES: its access is AtHeader or ByNumber.
    Lent lend(Member const& member);
    /// The same over the bytes that another one has: by its name, the item may be another by now.
    Lent startAgain(Lent reader, Member const& member);

  private:
    Lent start(ArchiveSource::Lent bytes, Member const& member);
    std::unique_ptr<ArchiveReader> nearest(std::uint64_t number);

    std::shared_ptr<ArchiveSource> const source_;
    Charset const charset_;
    std::mutex mutex_;
    std::vector<std::unique_ptr<ArchiveReader>> idle_; ///< guarded by the mutex
};

} // namespace foundation::storage::provider::tar::detail
