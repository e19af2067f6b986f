#pragma once

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/local/detail/descriptor_window.hpp>
#include <foundation/storage/provider/local/detail/watch_publication.hpp>
#include <foundation/storage/provider/local/detail/watch_reports.hpp>
#include <foundation/storage/provider/local/detail/watch_table.hpp>

#include <cstdint>
#include <dirent.h>
#include <vector>

namespace foundation::storage::provider::local::detail {

/// Whether an error number of opening a folder says that there is none under the name.
bool isGone(int error) noexcept;
/// That it may not be opened.
bool isDenied(int error) noexcept;
/// The one or the other: then it has no inside to watch either. All else is a failure of the look.
bool isPassedOver(int error) noexcept;

int errorOf(Exception const& failure) noexcept;
/// What open(2) answers; a provider's exception as the error number that it stands for.
int openFolder(StorageIRI const& location, int flags, FileDescriptor& folder);

/// Opens the folder of a node, for reading, by its path. The error number, or 0; ENOENT where
/// another one is there.
int openWatchedFolder(WatchPublication& publication, WatchNode const& node, WatchTable& table,
                      FileDescriptor& folder);

/// Brings the watches of a folder, and of the tree below where that is published, up to date with
/// the disk: each folder is watched first and then listed, so that what is made in it at any time
/// is met by the one or the other. Links are not entered. For one use at a time.
class WatchSurvey {
  public:
    /// What is found is new and reported as created, or is known and only watched.
    enum class Finds { Reported, Silent };

    WatchSurvey(WatchTable& table, WatchReports& reports) noexcept
        : table_(table),
          reports_(reports) {}

    /// `folder` is open for `node`. Folders that deny access or vanish are passed over; the
    /// first other error number, or 0. What could not be watched is left out.
    int run(WatchPublication& publication, WatchNode& node, FileDescriptor folder, Finds finds);

    /// Whether a folder that was found for `node`, null for a new one, is watched at another place
    /// of the publication from which it is gone: an event is to come that takes it from there, with
    /// all that is below it. Where it is in both places, by a mount, it has a node for each.
    bool isOnItsWay(WatchPublication& publication, int watch, WatchNode const* node) const;

  private:
    struct Level {
        WatchNode* node;
        WatchNode* next; ///< the subfolder to go to
    };

    int survey(WatchNode& node, int folder);
    int list(WatchNode& node, int folder);
    void meet(WatchNode& node, int folder, dirent64 const& entry);
    void dropVanished(WatchNode& node);
    int goOn();
    int hold(WatchNode& node);
    void closeAll() noexcept;
    void note(int error) noexcept { error_ = error_ == 0 ? error : error_; }

    std::uint32_t depth() const noexcept { return static_cast<std::uint32_t>(levels_.size()); }

    WatchTable& table_;
    WatchReports& reports_;
    WatchPublication* publication_ = nullptr;
    Finds finds_ = Finds::Silent;
    std::uint32_t number_ = 0; ///< of this survey
    int error_ = 0;
    std::vector<Level> levels_;
    DescriptorWindow window_;
    alignas(dirent64) char buffer_[32 * 1024]; // larger ones gain nothing
};

} // namespace foundation::storage::provider::local::detail
