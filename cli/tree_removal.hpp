#pragma once

#include "invocation.hpp"
#include "walked_path.hpp"

#include <foundation/storage/vfs/listing/folder_listing.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace cli {

/// What the options of rm ask for.
struct RemovalWishes {
    bool ask = false;     ///< before each item
    bool verbose = false; ///< name each item
    bool dryRun = false;  ///< name each item that would go, and let it be

    /// Whether there is nothing to be said of what is inside a folder.
    bool silent() const noexcept { return !ask && !verbose && !dryRun; }
    /// Whether nothing may go, or be said to go, that has not been named.
    bool namesAlone() const noexcept { return ask || dryRun; }
};

/// Removes items, and what there is to be asked and said of each. Links are removed, and not
/// followed. For one thread.
class ItemRemoval {
  public:
    ItemRemoval(Invocation& invocation, RemovalWishes const& wishes)
        : invocation_(invocation),
          wishes_(wishes) {}

    /// Whether the person wants this, which is always so where nobody is to be asked.
    bool isWanted(std::string const& verb, Location const& location) const;
    /// Remove one item, unless the person does not want it. True where it is gone, or would be.
    /// Throw what the storage throws; an item that is gone already is not told of.
    bool removeFile(Location const& location) const;
    bool removeEmptyFolder(Location const& location) const;
    bool removeTree(Location const& location) const;

  private:
    template<class Remove>
    bool removeItem(Location const& location, std::string const& shown, Remove const& remove) const;

    Invocation& invocation_;
    RemovalWishes const& wishes_;
};

/// Removes one folder with everything in it, and goes on behind what fails.
///
/// Where nothing is to be said of what is inside, the storage removes the tree by itself, if it
/// can. That ends at the first failure; what is left then, and every tree of another storage, is
/// walked, folder by folder, without recursion. What a listing cannot tell of, such a storage takes
/// along with the folder, unless each item is to be asked for; then, and in a rehearsal, each
/// folder that stays is reported with why it could not be listed. A storage's own removal is safe
/// from a folder that is exchanged for a link meanwhile, if the storage says so; the walk, which
/// names each item by its path, is not.
class TreeRemoval {
  public:
    TreeRemoval(Invocation& invocation, RemovalWishes const& wishes, Location const& top);

    /// True where nothing is left, or would be. `interrupted` is the line for a signal that comes
    /// while the storage removes by itself, and so ends the process at once. Reports failures.
    /// Throws Interrupted and OutputFailure.
    bool remove(std::string const& interrupted);

  private:
    using Folder = foundation::storage::vfs::Folder;

    /// A folder on the way down.
    struct Level {
        bool stays = false;
        std::optional<FailureText> unlisted; ///< why it could not be listed
    };

    bool removedByStorage(Folder const& folder) const;
    std::vector<std::string> enter();
    std::vector<std::string> foldersIn(Folder const& folder);
    void noteUnlisted();
    foundation::storage::vfs::FolderListing<foundation::storage::vfs::File>
    filesIn(Folder const& folder);
    void removeFiles(
        Location const& location,
        foundation::storage::vfs::FolderListing<foundation::storage::vfs::File> const& files);
    void leave();
    bool removeEmptied(Location const& location);
    void reportUnlisted();
    void report(Location const& location);

    Invocation& invocation_;
    RemovalWishes const& wishes_;
    ItemRemoval const items_;
    Location const top_;
    bool const byStorage_; ///< whether the storage can remove trees, and may remove unnamed items
    std::string interrupted_;
    WalkedPath path_;
    std::vector<Level> levels_;
    bool topStays_ = false;
};

} // namespace cli
