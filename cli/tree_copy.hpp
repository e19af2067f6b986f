#pragma once

#include "background.hpp"
#include "transfer_run.hpp"
#include "walked_path.hpp"

#include <foundation/storage/provider/extensions/i_folder_attributes.hpp>
#include <foundation/storage/provider/extensions/i_small_file_copies.hpp>
#include <foundation/storage/vfs/listing/entries.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>
#include <foundation/storage/vfs/walking/folder_visitor.hpp>

#include <chrono>
#include <cstddef>
#include <exception>
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
/// Memory grows with the depth of the tree, and with what is left behind. Small files are copied on
/// as many threads as there are processors; to its caller it is for one thread.
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

    /// A folder on the way down, or one that the walk has left while files in it wait.
    struct Level {
        FolderEntry entry;
        Folder destination;
        Level* above;
        std::size_t pathLength = 0;   ///< of the folder above, in the paths of what is told
        bool made = false;            ///< by this copy, so that nothing else is in it
        bool implied = false;         ///< the storage has no folders without files
        bool empty = true;            ///< nothing was met in it so far
        bool unlisted = false;        ///< it could not be read to its end
        std::exception_ptr failure{}; ///< met when the walk left it
        std::optional<StorageIRI> canonical{}; ///< where links are followed
    };

    /// What the walk met. Small files wait until there are enough of
    /// them to be copied together, and all that is met behind them waits with them, so that
    /// everything is told in the order of the walk, and a folder gets its times behind its files.
    struct Step {
        enum class Kind { Entered, SmallFile, File, Left };
        Kind kind;
        Level* level;
        std::optional<FileEntry> file{};
        std::unique_ptr<Level> left{}; ///< outlives the steps below it
    };

    /// Steps that wait, and what comes of the small files among them.
    struct Batch {
        std::vector<Step> steps{};
        std::vector<Step const*> small{};
        std::vector<CopyResult> results{};
        bool full = false; ///< the destination has no space left
    };

    Result visitEntryBefore(FolderEntry const& entry) override;
    Result visitEntry(FileEntry const& entry) override;
    Result visitEntryAfter(FolderEntry const& entry) override;
    Result visitFolderEntryFailed(FolderEntry const& entry,
                                  foundation::storage::vfs::Exception const& failure) override;

    std::unique_ptr<Level> enter(FolderEntry const& entry);
    bool isThere(Folder const& folder) const;
    void make(Level& level, FolderEntry const& entry);
    bool isSmall(FileEntry const& entry) const;
    void copyMany(std::size_t begin, std::size_t end, std::vector<CopyResult>& results);
    void add(Step step);
    void copyWaiting();
    void catchUp();
    void copyTogether();
    void tellBatch();
    void tell(Batch const& batch);
    void take(Step const& step);
    void endIfInterrupted();
    void enterPath(FolderEntry const& entry);
    void returnTo(std::size_t pathLength);
    void entered(Level& level);
    void filled(Level& level, FileEntry const& entry, Transferred result);
    void copyEntry(Level& level, FileEntry const& entry, std::optional<File> const& source);
    Result followEntry(FileEntry const& entry);
    void refuseLoop(StorageIRI const& linked) const;
    void leave();
    void left(Level const& level);
    void carryAttributesOver(Level const& level);
    void leaveBehind(std::string const& path);
    void leaveFileBehind(FileEntry const& entry);
    Result next() const;

    TransferRun& run_;
    Location source_;
    Location destination_;
    WalkedPath sourcePath_;
    WalkedPath destinationPath_;
    PlacesOf const folderPlaces_; ///< of the folder that is told of, or what is in it
    PlacesOf const filePlaces_;   ///< of the file that is told of
    fl::i18n::ustring const* fileName_ = nullptr;

    std::shared_ptr<foundation::storage::provider::IProvider> destinationProvider_;
    /// Set where both sides are of one kind, so that folders may have the same mode and times.
    foundation::storage::provider::extensions::IFolderAttributes* folderAttributes_ = nullptr;
    /// Set where one provider serves both sides, and can do it.
    foundation::storage::provider::extensions::ISmallFileCopies* smallFileCopies_ = nullptr;
    bool sameScheme_ = false;
    bool waitsForServers_ = false;
    bool sourceHasLinks_ = false;

    std::vector<std::unique_ptr<Level>> levels_; ///< where the walk is
    std::vector<Step> steps_;                    ///< those that wait, behind the batch
    std::chrono::steady_clock::time_point waitingSince_;
    std::optional<StorageIRI> destinationCanonical_;
    std::optional<StorageIRI> linked_; ///< the folder that a link leads to, while it is entered
    std::set<std::string>* leftBehind_;

    Batch batch_;           ///< being copied while the walk goes on
    Background background_; ///< behind all that it works with, so that it ends before
};

} // namespace cli
