#include <foundation/storage/vfs/walking/walk_folder.hpp>

#include <foundation/storage/vfs/walking/detail/end_by_failure.hpp>
#include <foundation/storage/vfs/walking/detail/entry_feed.hpp>

#include <tbb/parallel_for_each.h>
#include <tbb/task_arena.h>

#include <mutex>
#include <optional>
#include <utility>

namespace foundation::storage::vfs {

using detail::EntryFeed;

namespace {

class ParallelFolderWalker {
  public:
    explicit ParallelFolderWalker(
        FolderVisitor& visitor, std::function<bool()> shouldStop = [] { return false; })
        : visitor_(visitor),
          shouldStop_(std::move(shouldStop)) {}

    FolderVisitResult walk(Folder const& folder) { return walk(FolderEntry(folder)); }

  private:
    FolderVisitResult walk(FolderEntry const& entry);
    FolderVisitResult visitItem(FolderEntry const& parent, FileOrFolderEntry const& item);

    FolderVisitor& visitor_;
    std::function<bool()> shouldStop_;
    /// Never entered: the walk runs where its caller does, and takes the threads it finds there.
    tbb::task_arena arena_;
};

/// What the items of a folder answered, of which Stop alone decides anything. Safe on any thread.
class ItemResults {
  public:
    void add(FolderVisitResult result) {
        std::lock_guard const lock(mutex_);
        anyStop_ = anyStop_ || result == FolderVisitResult::Stop;
    }
    bool anyStop() const {
        std::lock_guard const lock(mutex_);
        return anyStop_;
    }

  private:
    mutable std::mutex mutex_;
    bool anyStop_ = false; // guarded by mutex_
};

FolderVisitResult ParallelFolderWalker::walk(FolderEntry const& entry) {
    if (shouldStop_()) {
        return FolderVisitResult::Stop;
    }
    FolderVisitResult const before = visitor_.visitEntryBefore(entry);
    if (before == FolderVisitResult::Skip || before == FolderVisitResult::Stop) {
        return before;
    }

    std::optional<EntryFeed> feed;
    try {
        feed.emplace(entry.getFolder().listAllEntries());
    } catch (Exception const& e) {
        return detail::endByFailure(visitor_, entry, e);
    }

    ItemResults results;
    tbb::parallel_for_each(feed->begin(), feed->end(), [&](EntryFeed::Slot* slot) {
        FileOrFolderEntry const item = feed->take(slot);
        results.add(visitItem(entry, item));
    });

    if (shouldStop_() || results.anyStop()) {
        return FolderVisitResult::Stop;
    }
    return visitor_.visitEntryAfter(entry);
}

FolderVisitResult ParallelFolderWalker::visitItem(FolderEntry const& parent,
                                                  FileOrFolderEntry const& item) {
    try {
        if (shouldStop_()) {
            return FolderVisitResult::Stop;
        }
        if (auto const* folder = boost::get<FolderEntry>(&item)) {
            return walk(*folder);
        }
        return visitor_.visitEntry(boost::get<FileEntry>(item));
    } catch (Exception const& e) {
        return detail::endByFailure(visitor_, parent, e);
    }
}

} // namespace

FolderVisitResult walkFolderParallel(Folder const& folder, FolderVisitor& visitor) {
    return ParallelFolderWalker(visitor).walk(folder);
}

FolderVisitResult walkFolderParallel(Folder const& folder, FolderVisitor& visitor,
                                     std::function<bool()> const& shouldStop) {
    return ParallelFolderWalker(visitor, shouldStop).walk(folder);
}

} // namespace foundation::storage::vfs
