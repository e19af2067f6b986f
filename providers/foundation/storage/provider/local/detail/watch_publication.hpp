#pragma once

#include <foundation/storage/provider/change_events.hpp>
#include <foundation/storage/provider/local/detail/listed_folder.hpp>
#include <foundation/storage/provider/local/detail/watch_tree.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace foundation::storage::provider::local::detail {

/// What is watched.
enum class WatchScope { File, Folder, Tree };

/// One publication: what was asked for, and how far watching it has come. The first group is
/// constant, the rest guarded by the lock of the watcher that has it.
struct WatchPublication : std::enable_shared_from_this<WatchPublication> {
    WatchPublication(StorageIRI const& at, ChangeCallback&& callbackToCall,
                     ChangeKinds const& kindsWanted, WatchScope scopeOfIt);

    StorageIRI const location;
    ChangeCallback const callback;
    WatchScope const scope;
    std::uint32_t const kinds; ///< a bit each
    std::uint64_t const serial;

    bool isFolder() const noexcept { return scope != WatchScope::File; }
    bool wants(events::Kind kind) const noexcept {
        return (kinds >> static_cast<unsigned>(kind) & 1U) != 0;
    }
    /// What the kernel is asked to report about the folders of the tree.
    std::uint32_t events() const noexcept;

    /// Whether it is a folder whose children are reported.
    bool isPublished(WatchNode const& node) const noexcept {
        return node.parent != nullptr || tree.isRoot(node);
    }

    /// The location of a watched folder; that of the root is `location` itself.
    StorageIRI const& locationOf(WatchNode const& node);

    std::atomic<bool> isStopped = false;

    /// The folder in which the item is, or else the innermost one above that is there. Its watch
    /// tells when the item, or what is missing on the way, comes and goes.
    WatchNode anchor;
    std::string awaited; ///< the name in that folder
    bool isAnchoredAtParent = false;
    FolderIdentity anchorIdentity;
    /// The published folder is there and may not be read: a change of its attributes may allow it.
    bool awaitsAccess = false;
    /// The folders above that one, watched for being moved or removed themselves only.
    std::vector<std::unique_ptr<WatchNode>> above;
    WatchTree tree; ///< of folders; of a file there is none
    FolderIdentity rootIdentity;
    bool isPresent = false;

    /// What is left to do before the watcher sleeps again.
    bool isConcerned = false; ///< in the watcher's list of those that have something to do
    bool isUnsettled = false; ///< where the item is has to be found out again
    bool isLost = false;      ///< reports are missing, or watches
    bool mustTellOverflow = false;
    /// Something could not be looked at or watched for want of descriptors, watches or memory. It
    /// is tried again after a while, twice as long each time, until it succeeds.
    bool isLimited = false;
    std::chrono::milliseconds retryAfter{0}; ///< 0 where all is as it should be
    std::chrono::steady_clock::time_point retryAt;
    void limit() noexcept;
    unsigned renewals = 0; ///< in a row
    /// Names, each with the watch of its folder, under which a folder may be that is not watched
    /// there: looked at again when the queue is empty.
    enum class Reported { No, Yes };
    std::map<std::pair<int, std::string>, Reported> missed;
    void miss(int watch, std::string_view name, Reported isReported);
    /// Something that was reported has come there.
    void found(int watch, std::string_view name) {
        if (!missed.empty()) {
            missed.erase({watch, std::string(name)});
        }
    }
    /// Whether what is there now, if anything, was not reported.
    bool isUnreported(int watch, std::string_view name) const {
        auto const at = missed.empty() ? missed.end() : missed.find({watch, std::string(name)});
        return at != missed.end() && at->second == Reported::No;
    }
    unsigned looks = 0;         ///< at these names, with no event between
    std::uint64_t lookedAt = 0; ///< the number of the last batch before the last look

  private:
    StorageIRI cached_;
    WatchNode const* cachedFor_ = nullptr;
    std::size_t cachedShape_ = 0;
};

} // namespace foundation::storage::provider::local::detail
