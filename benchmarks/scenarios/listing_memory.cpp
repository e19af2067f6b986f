#include "contest.hpp"
#include "listing.hpp"
#include "listing_trees.hpp"
#include "resident_memory.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/memory/memory_provider.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/vfs/listing/file_or_folder_entry.hpp>
#include <foundation/storage/vfs/listing/folder_listing.hpp>
#include <foundation/storage/vfs/listing/list_entry.hpp>

#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>

namespace bench {

namespace {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;

constexpr double goal = 8;

template<class Listing>
std::size_t countIn(Listing const& listing) {
    std::size_t entries = 0;
    auto const end = listing.end();
    for (auto at = listing.begin(); at != end; ++at) {
        ++entries;
    }
    return entries;
}

void show(std::string const& title, std::size_t expected,
          std::function<std::size_t()> const& walk) {
    std::size_t counted = 0;
    double const growth = growthDuring([&] { counted = walk(); });
    if (counted != expected) {
        throw std::runtime_error(title + " counted " + std::to_string(counted));
    }
    std::printf("%-64s %6.2f MiB, at most %.0f: %s\n", title.c_str(), growth, goal,
                growth <= goal ? "met" : "missed");
    std::fflush(stdout);
}

vfs::Folder makeMemoryTree(std::size_t folders, std::size_t files) {
    auto const store = std::make_shared<provider::memory::MemoryProvider>();
    provider::StorageIRI const root(u"mem:/");
    for (std::size_t i = 0; i < folders; ++i) {
        provider::StorageIRI const folder(root,
                                          fl::i18n::to_ustring("folder-" + std::to_string(i)));
        store->createFolder(folder);
        for (std::size_t j = 0; j < files; ++j) {
            store->createFile(
                provider::StorageIRI(folder, fl::i18n::to_ustring("file-" + std::to_string(j))));
        }
    }
    return vfs::Folder(provider::StorageItem(store, root),
                       vfs::StorageSystemReference(std::weak_ptr<vfs::StorageSystem>()));
}

} // namespace

void showMemoryOfListing(Workplace const& place) {
    std::printf("\nGrowth of resident memory while a listing is walked\n");
    {
        ListedTree const flat = makeFlatTree(place.path / "million", 1'000'000);
        vfs::Folder const folder(place.folder, u"million");
        show("local, 1,000,000 files in one folder, listAll", flat.entries(),
             [&] { return countIn(folder.listAll()); });
        show("local, 1,000,000 files in one folder, listAllEntries", flat.entries(),
             [&] { return countIn(folder.listAllEntries()); });
        show("local, 1,000,000 files in one folder, listAllRecursive", flat.entries(),
             [&] { return countIn(folder.listAllRecursive()); });
    }
    constexpr std::size_t folders = 10'000;
    constexpr std::size_t files = 1'000;
    vfs::Folder const tree = makeMemoryTree(folders, files);
    std::size_t const entries = folders + folders * files;
    show("memory, 10,000,000 files in 10,000 folders, listAllRecursive", entries,
         [&] { return countIn(tree.listAllRecursive()); });
    show("memory, 10,000,000 files in 10,000 folders, with attributes", entries,
         [&] { return countIn(tree.listAllEntriesRecursive()); });
}

} // namespace bench
