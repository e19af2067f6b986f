#pragma once

#include "transfer_run.hpp"
#include "walked_path.hpp"

#include <foundation/storage/provider/extensions/i_folder_attributes.hpp>
#include <foundation/storage/vfs/listing/entries.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>
#include <foundation/storage/vfs/walking/folder_visitor.hpp>

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace cli {

/// Copies a tree as the wishes of the run have it, and goes on behind what fails. Folders that are
/// there are merged into, and never through a link. Links are copied as links, or followed where
/// the wishes say so; a link that leads back to a folder on the way to it is refused. What another
/// process swaps for something else meanwhile is not guarded.
///
/// Memory grows with the depth of the tree, and with what is left behind. For one thread.
class TreeCopy final : private foundation::storage::vfs::FolderVisitor {
  public:
    /// The folder at `source` is to be the folder at `destination`. `leftBehind`, where it is not
    /// null, gets the paths below the top of what was not copied, and of folders that were not
    /// entered; empty for the top itself.
    TreeCopy(TransferRun& run, Location const& source, Location const& destination,
             std::set<std::string>* leftBehind);

    /// Reports failures itself; throws Interrupted and OutputFailure.
    void copy();

  private:
    using FolderEntry = foundation::storage::vfs::FolderEntry;
    using FileEntry = foundation::storage::vfs::FileEntry;
    using Folder = foundation::storage::vfs::Folder;
    using File = foundation::storage::vfs::File;
    using Result = foundation::storage::vfs::FolderVisitResult;
    using StorageIRI = foundation::storage::provider::StorageIRI;

    /// A folder on the way down.
    struct Level {
        Folder destination;
        std::size_t pathLength;              ///< of the folder above
        bool made = false;                   ///< by this copy, so that nothing else is in it
        bool implied = false;                ///< the storage has no folders without files
        bool empty = true;                   ///< nothing was met in it so far
        std::optional<StorageIRI> canonical; ///< where links are followed
        std::vector<FileEntry> waiting{};    ///< small files that are copied together
    };

    Result visitEntryBefore(FolderEntry const& entry) override;
    Result visitEntry(FileEntry const& entry) override;
    Result visitEntryAfter(FolderEntry const& entry) override;
    Result visitFolderEntryFailed(FolderEntry const& entry,
                                  foundation::storage::vfs::Exception const& failure) override;

    void enter(FolderEntry const& entry, std::size_t pathLength);
    bool isThere(Folder const& folder) const;
    void make(Level& level, FolderEntry const& entry);
    bool putAside(FileEntry const& entry);
    void copyWaiting();
    void filled(Level& level, FileEntry const& entry, Transferred result);
    Result copyEntry(FileEntry const& entry, File const& source);
    Result followEntry(FileEntry const& entry);
    void refuseLoop(StorageIRI const& linked) const;
    void leave(FolderEntry const& entry);
    void carryAttributesOver(FolderEntry const& entry, Level const& level);
    void leaveBehind(std::string const& path);
    void leaveFileBehind(FileEntry const& entry);
    Result next() const;

    TransferRun& run_;
    Location source_;
    Location destination_;
    WalkedPath sourcePath_;
    WalkedPath destinationPath_;
    PlacesOf const folderPlaces_; ///< of the folder that the walk is in
    PlacesOf const filePlaces_;   ///< of the file that it is at
    fl::i18n::ustring const* fileName_ = nullptr;

    std::shared_ptr<foundation::storage::provider::IProvider> destinationProvider_;
    /// Set where both sides are of one kind, so that folders may have the same mode and times.
    foundation::storage::provider::extensions::IFolderAttributes* folderAttributes_ = nullptr;
    bool sameScheme_ = false;
    bool sourceHasLinks_ = false;

    std::vector<Level> levels_;
    std::size_t waiting_ = 0; ///< files of all levels
    std::optional<StorageIRI> destinationCanonical_;
    std::optional<StorageIRI> linked_; ///< the folder that a link leads to, while it is entered
    std::set<std::string>* leftBehind_;
};

} // namespace cli
