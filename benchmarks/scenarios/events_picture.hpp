#pragma once

#include <foundation/storage/vfs/events/event.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>

#include <cstddef>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>

namespace bench {

enum class ItemKind { File, Folder };
/// What is in a tree, by its path below the root.
using Items = std::map<std::string, ItemKind>;

/// What is on the disk, looked at without the system.
Items itemsOnDisk(std::filesystem::path const& root);

/// What somebody knows of a tree who looked at it once and believes what is told from then on;
/// who looks again when told of an overflow, and behind the first one at each folder that is told
/// to have moved. take() is for one thread at a time; the rest for any.
class Picture {
  public:
    explicit Picture(foundation::storage::vfs::Folder root);

    /// To be called when the tree is watched, before anything in it changes.
    void look();
    void take(foundation::storage::vfs::Event const& event);

    Items items() const;
    std::size_t overflows() const;
    /// Whether an item has been told of as created, or an overflow since so many, behind which
    /// that may be left out.
    bool knows(std::string const& path, std::size_t overflows) const;

  private:
    std::string below(foundation::storage::vfs::AbsoluteIRI const& location) const;
    Items listed(std::string const& path) const;
    void takeRemoval(std::string const& path, std::string const& movedTo);

    foundation::storage::vfs::Folder const root_;
    std::string const rootPath_;
    mutable std::mutex mutex_;
    Items items_;               // guarded by mutex_
    std::size_t overflows_ = 0; // guarded by mutex_
};

} // namespace bench
