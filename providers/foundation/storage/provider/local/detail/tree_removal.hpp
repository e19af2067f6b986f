#pragma once

#include <foundation/storage/provider/error_code.hpp>
#include <foundation/storage/provider/local/detail/descriptor_window.hpp>
#include <foundation/storage/provider/local/detail/kernel_path.hpp>
#include <foundation/storage/provider/local/detail/listed_folder.hpp>

#include <cstddef>
#include <cstdint>
#include <dirent.h>
#include <string>
#include <string_view>
#include <vector>

namespace foundation::storage::provider::local::detail {

/// Removes a folder and everything below it, depth first, and stops at the first failure. Every
/// step is taken relative to the open folder that it is about, so that whatever is renamed
/// meanwhile, a folder swapped for a link included, nothing outside is touched. For one use by one
/// thread.
///
/// Memory is the names on the way and, of each folder on it, those of the subfolders that one
/// buffer gave: what was read is removed before more is read, so no position has to be kept.
class TreeRemoval {
  public:
    /// `root` is the entry of the folder that is at `location`.
    TreeRemoval(FolderSlot const& root, StorageIRI const& location) noexcept
        : root_(root),
          location_(location) {}

    /// Throws provider::Exception naming the item that could not be removed.
    void run();

  private:
    /// A folder on the way; the first one is the folder that has the root, and stays.
    struct Level {
        std::size_t subfolders;       ///< where in names_ its own begin
        bool isRead = false;          ///< to the end
        unsigned attempts = 0;        ///< at the last subfolder
        FolderIdentity identity = {}; ///< set when the descriptor is given up
    };

    std::uint32_t depth() const noexcept { return static_cast<std::uint32_t>(levels_.size() - 1); }
    bool isAboveRoot() const noexcept { return levels_.size() == 1; }
    int folder() const noexcept { return isAboveRoot() ? root_.folder() : window_.at(depth()); }
    bool hasSubfolder() const noexcept { return names_.size() != levels_.back().subfolders; }
    char const* subfolder() const noexcept;

    void enter();
    void goIn(FileDescriptor folder);
    void readOn();
    bool removeUnlessFolder(char const* name);
    void leave();
    void climbFrom(FileDescriptor const& folder);
    void removeSubfolder(int errorWhereNotEmpty);
    void makeRoom() noexcept;

    StorageIRI locationOf(std::string_view name) const;
    [[noreturn]] void fail(int error, std::string_view name) const;

    FolderSlot const& root_;
    StorageIRI const& location_;
    /// The names of the subfolders that are still there, each with a NUL behind it, outer levels
    /// first. The last one of every level but the innermost is the folder that was entered.
    std::string names_;
    std::vector<Level> levels_;
    DescriptorWindow window_;
    alignas(dirent64) char buffer_[32 * 1024]; // larger ones gain nothing
};

} // namespace foundation::storage::provider::local::detail
