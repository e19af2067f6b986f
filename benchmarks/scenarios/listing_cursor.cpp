#include "contest.hpp"
#include "listing.hpp"
#include "listing_trees.hpp"

#include <foundation/storage/vfs/listing/folder_listing.hpp>
#include <foundation/storage/vfs/listing/list_entry.hpp>

namespace bench {

namespace {

namespace vfs = foundation::storage::vfs;
using Listing = vfs::FolderListing<vfs::ListEntry>;

constexpr int repetitions = 100'000;
bool volatile seen;

template<class Action>
std::function<void()> repeated(Action action) {
    return [action] {
        for (int i = 0; i < repetitions; ++i) {
            action();
        }
    };
}

} // namespace

void holdCursor(Workplace const& place) {
    ListedTree const small = makeFlatTree(place.path / "small", 10);
    ListedTree const large = makeFlatTree(place.path / "large", 100'000);
    Listing const few = vfs::Folder(place.folder, u"small").listAll();
    Listing const many = vfs::Folder(place.folder, u"large").listAll();
    auto middle = many.begin();
    for (int i = 0; i < 50'000; ++i) {
        ++middle;
    }
    hold({"Taking iterators (goal of end(): at most 50 ns)",
          "ns a call",
          1e-9 * repetitions,
          21,
          {
              {"end()", repeated([&] { many.end(); })},
              {"begin(), 10 entries", repeated([&] { few.begin(); })},
              {"begin(), 100,000 entries", repeated([&] { many.begin(); })},
              {"copy in the middle of 100,000", repeated([&] { auto const copy = middle; })},
              {"empty()", repeated([&] { seen = many.empty(); })},
          }});
}

} // namespace bench
