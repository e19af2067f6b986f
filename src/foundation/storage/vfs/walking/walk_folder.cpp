#include <foundation/storage/vfs/walking/walk_folder.hpp>

#include <foundation/storage/vfs/listing/file_or_folder_entry.hpp>
#include <foundation/storage/vfs/listing/folder_listing.hpp>
#include <foundation/storage/vfs/walking/detail/end_by_failure.hpp>

#include <optional>

namespace foundation::storage::vfs {
namespace {

class FolderWalker {
  public:
    explicit FolderWalker(FolderVisitor& visitor) : visitor_(visitor) {}

    FolderVisitResult walk(FolderEntry const& entry);

  private:
    FolderVisitResult visitItem(FileOrFolderEntry const& item);

    FolderVisitor& visitor_;
};

/// A listing and the way through it.
struct Traversal {
    explicit Traversal(Folder const& folder)
        : listing(folder.listAllEntries()),
          position(listing.begin()) {}

    FolderListing<FileOrFolderEntry> const listing;
    FolderListingIterator<FileOrFolderEntry> position;
};

FolderVisitResult FolderWalker::visitItem(FileOrFolderEntry const& item) {
    if (auto const* file = boost::get<FileEntry>(&item)) {
        return visitor_.visitEntry(*file);
    }
    return walk(boost::get<FolderEntry>(item));
}

FolderVisitResult FolderWalker::walk(FolderEntry const& entry) {
    FolderVisitResult const before = visitor_.visitEntryBefore(entry);
    if (before != FolderVisitResult::Continue) {
        return before;
    }

    std::optional<Traversal> traversal;
    try {
        traversal.emplace(entry.getFolder());
    } catch (Exception const& e) {
        return detail::endByFailure(visitor_, entry, e);
    }

    auto& position = traversal->position;
    FolderListingIterator<FileOrFolderEntry> const end = traversal->listing.end();
    while (position != end) {
        try {
            if (visitItem(*position) == FolderVisitResult::Stop) {
                return FolderVisitResult::Stop;
            }
            ++position;
        } catch (Exception const& e) {
            return detail::endByFailure(visitor_, entry, e);
        }
    }
    return visitor_.visitEntryAfter(entry);
}

} // namespace

FolderVisitResult walkFolder(Folder const& folder, FolderVisitor& visitor) {
    return FolderWalker(visitor).walk(FolderEntry(folder));
}

} // namespace foundation::storage::vfs
