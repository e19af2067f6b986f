#pragma once

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/local/detail/descriptor_window.hpp>
#include <foundation/storage/provider/local/detail/trail.hpp>

#include <memory>
#include <optional>

namespace foundation::storage::provider::local::detail {

/// What all walks of one listing have in common.
struct ListedTree {
    StorageIRI location;
    ListingQuery query;
};

/// A position in a tree that is listed depth first, a folder before its contents. A copy stands at
/// the same position and starts without descriptors; it costs the same at every depth, and makes no
/// system call. For one thread at a time.
class TreeWalk {
  public:
    /// Opens the folder and reads its first entries. Throws provider::Exception naming it.
    explicit TreeWalk(std::shared_ptr<ListedTree const> tree);
    TreeWalk(TreeWalk const& other);
    TreeWalk& operator=(TreeWalk const&) = delete;

    /// Whether an entry or a failure is ahead. Keeps a failure for advance().
    bool hasNext() {
        if (level_.chunk->showsFrom(level_.next) || failure_) {
            return true;
        }
        leaveShown();
        return find();
    }

    /// False at the end. Throws what it met on the way as provider::Exception, once, and goes on
    /// behind the folder that this was about when called again; behind the listed one is the end.
    bool advance();

    bool hasEntry() const noexcept { return here_ || away_.chunk; }
    /// REQUIRES: hasEntry().
    FolderEntry entry();

  private:
    /// An entry that the walk has left, which can be asked for all the same.
    struct Place {
        TrailPtr trail;
        FolderChunkPtr chunk;
        std::uint32_t offset = 0;
    };

    std::uint32_t depth() const noexcept { return trail_ ? trail_->depth() + 1 : 0; }

    bool find();
    void leaveShown();
    void enter(std::uint32_t folder);
    void goDown(std::uint32_t folder, Level below, FileDescriptor descriptor);
    void goUp() noexcept;
    void readOn();
    bool isAbove(FolderIdentity const& identity) const noexcept;

    int descriptor();
    std::optional<ErrorCode> reopenListed(FileDescriptor& result) const;
    std::optional<ErrorCode> reopenBelow(FileDescriptor& result) const;
    void release() noexcept;
    void climbFrom(FileDescriptor const& folder, std::uint32_t depth) noexcept;

    void fail(ErrorCode code, std::string_view name = {});
    void endWith(ErrorCode code);

    std::shared_ptr<ListedTree const> const tree_;
    TrailPtr trail_; ///< to the folder that the walk is in
    Level level_;    ///< that folder
    /// The entry shown is `shown_` in level_; else it is away_, or there is none.
    bool here_ = false;
    std::uint32_t shown_ = 0;
    bool pending_ = false; ///< the folder at pendingFolder_ in level_ is to be entered first
    std::uint32_t pendingFolder_ = 0;
    Place away_;
    std::optional<Exception> failure_;

    /// The path of the current folder with a slash behind it, or nothing where it is not known.
    fl::i18n::ustring prefix_;
    bool prefixKnown_ = false;
    DescriptorWindow window_;
};

} // namespace foundation::storage::provider::local::detail
