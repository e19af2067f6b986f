#include "contest.hpp"
#include "listing_peers.hpp"
#include "listing_trees.hpp"
#include "trees.hpp"

#include <foundation/storage/vfs/listing/file_entry.hpp>
#include <foundation/storage/vfs/listing/folder_entry.hpp>
#include <foundation/storage/vfs/walking/folder_visitor.hpp>
#include <foundation/storage/vfs/walking/walk_folder.hpp>

#include <tbb/combinable.h>

#include <cstdint>
#include <functional>

namespace bench {

namespace vfs = foundation::storage::vfs;

namespace {

/// Looks at the time of every entry, on any number of threads.
class TimeReader final : public vfs::FolderVisitor {
  public:
    vfs::FolderVisitResult visitEntry(vfs::FileEntry const& file) override {
        look(file.getAttributes().values());
        return vfs::FolderVisitResult::Continue;
    }
    vfs::FolderVisitResult visitEntryBefore(vfs::FolderEntry const& folder) override {
        look(folder.getAttributes().values());
        return vfs::FolderVisitResult::Continue;
    }
    vfs::FolderVisitResult visitEntryAfter(vfs::FolderEntry const&) override {
        return vfs::FolderVisitResult::Continue;
    }

    /// The root not counted.
    std::size_t entries() { return seen_.combine(std::plus<>()).entries - 1; }

  private:
    struct Seen {
        std::size_t entries = 0;
        std::int64_t seconds = 0;

        friend Seen operator+(Seen const& a, Seen const& b) {
            return {a.entries + b.entries, a.seconds + b.seconds};
        }
    };

    void look(foundation::storage::provider::AttributeValues const& values) {
        Seen& seen = seen_.local();
        ++seen.entries;
        seen.seconds += values.lastModified.seconds & 1;
    }

    tbb::combinable<Seen> seen_;
};

} // namespace

void holdTreeWalk(Workplace const& place) {
    ListedTree const wide = makeWideTree(place.path / "wide");
    vfs::Folder const folder(place.folder, u"wide");
    auto const counted = [&](auto count) { return [&wide, count] { wide.require(count()); }; };
    auto const visiting = [&](auto walk) {
        return counted([folder, walk] {
            TimeReader reader;
            walk(folder, reader);
            return reader.entries();
        });
    };
    hold({"A walk with times over a tree of 200,000 files in 10,000 folders",
          "ns an entry",
          1e-9 * static_cast<double>(wide.entries()),
          21,
          {
              {"system calls",
               counted([&] { return countByCalls(wide.path(), Reach::Tree, Facts::Attributes); })},
              {"std::filesystem",
               counted([&] { return countByStd(wide.path(), Reach::Tree, Facts::Attributes); })},
              {"walkFolder",
               visiting([](auto const& root, auto& visitor) { vfs::walkFolder(root, visitor); }),
               {{1.20, "system calls"}}},
              {"walkFolderParallel",
               visiting(
                   [](auto const& root, auto& visitor) { vfs::walkFolderParallel(root, visitor); }),
               {{0.65, "walkFolder", Time::Elapsed}}},
          }});
}

} // namespace bench
