// What a listing keeps in memory while it goes through much.

#include "listing.hpp"

#include "unit/providers/local/child_process.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <functional>
#include <string>
#include <unistd.h>

namespace {

using namespace memory_test;

// A sanitizer keeps freed memory back, so that the process grows with whatever is allocated.
#if defined __SANITIZE_ADDRESS__ || defined __SANITIZE_THREAD__
constexpr bool isMeasurable = false;
constexpr std::size_t folders = 20;
#else
constexpr bool isMeasurable = true;
constexpr std::size_t folders = 1000;
#endif
constexpr std::size_t filesInEach = 1000;
constexpr std::size_t allowedGrowth = 8 * 1024 * 1024;

std::size_t residentBytes() {
    std::ifstream statm("/proc/self/statm");
    std::size_t total = 0;
    std::size_t resident = 0;
    statm >> total >> resident;
    return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

/// Goes through a listing as the system does, with a master that stays at the first entry, and
/// tells what was wrong with that.
std::string footprint(Store const& store, Listing list, std::size_t expected) {
    std::size_t const before = residentBytes();
    std::size_t peak = 0;
    std::size_t count = 1;
    auto const master = listed(store, list, at(u"/r"), u"");
    master->advance();
    for (auto const cursor = clone(master); cursor->hasNext(); ++count) {
        cursor->advance();
        cursor->currentEntry();
        if (count % 5000 == 0) {
            peak = std::max(peak, residentBytes());
        }
    }
    std::size_t const growth = peak - std::min(before, peak);
    if (count != expected) {
        return "listed " + std::to_string(count) + " entries";
    }
    if (isMeasurable && growth > allowedGrowth) {
        return "grew by " + std::to_string(growth) + " bytes";
    }
    return {};
}

TEST(MemoryListingFootprint, AMillionEntriesOfATreeTakeAFewChunks) {
    auto const work = [] {
        Store const store;
        for (std::size_t i = 0; i < folders; ++i) {
            ustring const folder = numbered(u"/r/folder with a long name ", i);
            store->createFolderRecursive(at(folder));
            createFiles(store, folder, filesInEach);
        }
        std::size_t const all = folders * (filesInEach + 1);
        return footprint(store, &IProvider::listAllRecursive, all) +
               footprint(store, &IProvider::listAllRecursiveNamesOnly, all);
    };
    EXPECT_EQ(local::test::inChild(work), "");
}

TEST(MemoryListingFootprint, AHundredThousandEntriesOfAFolderTakeAFewChunks) {
    auto const work = [] {
        Store const store;
        store->createFolder(at(u"/r"));
        createFiles(store, u"/r", 100'000);
        return footprint(store, &IProvider::listAll, 100'000) +
               footprint(store, &IProvider::listAllNamesOnly, 100'000);
    };
    EXPECT_EQ(local::test::inChild(work), "");
}

} // namespace
