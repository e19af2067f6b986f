#pragma once

#include "transfer_run.hpp"
#include "walked_path.hpp"

#include <foundation/storage/vfs/listing/entries.hpp>
#include <foundation/storage/vfs/walking/folder_visitor.hpp>

#include <set>
#include <string>
#include <vector>

namespace cli {

/// The second half of a move that is a copy: compares each file of a tree with its copy, and
/// removes it where the copy is complete; at last each folder that is empty by then, and has a copy
/// too. Counts what it removes as moved. For one thread.
class SourceRemoval final : private foundation::storage::vfs::FolderVisitor {
  public:
    /// `leftBehind` are the paths below the top that stay without a question; TreeCopy gives them.
    SourceRemoval(TransferRun& run, Location const& source, Location const& copy,
                  std::set<std::string> const& leftBehind);

    /// Reports failures itself; throws Interrupted and OutputFailure.
    void remove();

  private:
    using FolderEntry = foundation::storage::vfs::FolderEntry;
    using FileEntry = foundation::storage::vfs::FileEntry;
    using Result = foundation::storage::vfs::FolderVisitResult;

    Result visitEntryBefore(FolderEntry const& entry) override;
    Result visitEntry(FileEntry const& entry) override;
    Result visitEntryAfter(FolderEntry const& entry) override;
    Result visitFolderEntryFailed(FolderEntry const& entry,
                                  foundation::storage::vfs::Exception const& failure) override;
    void leave();
    void expectCopy() const;

    TransferRun& run_;
    Location source_;
    WalkedPath sourcePath_;
    WalkedPath copyPath_;
    PlacesOf const folderPlaces_;
    std::set<std::string> const& leftBehind_;
    std::vector<std::size_t> lengths_; ///< of the paths of the folders above
    bool anyStays_;
};

/// Gives a copied file the time of its source, where the storage can, and unless it is a link: that
/// would change what the link leads to.
void carryTimeOver(foundation::storage::vfs::StorageSystemReference const& system,
                   Location const& source, Location const& copy);

} // namespace cli
