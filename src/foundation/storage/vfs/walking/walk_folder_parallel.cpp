#include <foundation/storage/vfs/walking/walk_folder.hpp>

#include <foundation/storage/vfs/walking/detail/end_by_failure.hpp>
#include <foundation/storage/vfs/walking/detail/entry_feed.hpp>

#include <tbb/parallel_for_each.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

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

/// Stop outweighs Skip, and Skip everything else; in any order.
FolderVisitResult reduced(std::vector<FolderVisitResult> const& results) {
    for (FolderVisitResult const weighty : {FolderVisitResult::Stop, FolderVisitResult::Skip}) {
        if (std::find(results.begin(), results.end(), weighty) != results.end()) {
            return weighty;
        }
    }
    return FolderVisitResult::Continue;
}

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

    std::vector<FolderVisitResult> results;
    std::mutex resultsMutex;
    tbb::parallel_for_each(feed->begin(), feed->end(), [&](EntryFeed::Slot* slot) {
        FileOrFolderEntry const item = feed->take(slot);
        FolderVisitResult const result = visitItem(entry, item);
        std::lock_guard const lock(resultsMutex);
        results.push_back(result);
    });

    FolderVisitResult const inside = reduced(results);
    if (shouldStop_() || inside == FolderVisitResult::Stop) {
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
