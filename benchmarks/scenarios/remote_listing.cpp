#include "contest.hpp"
#include "program.hpp"
#include "remote.hpp"
#include "remote_store.hpp"

#include <foundation/storage/vfs/listing/folder_listing.hpp>
#include <foundation/storage/vfs/listing/list_entry.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/walking/folder_visitor.hpp>
#include <foundation/storage/vfs/walking/walk_folder.hpp>

#include <tbb/global_control.h>
#include <tbb/task_arena.h>

#include <atomic>
#include <cstdio>
#include <stdexcept>
#include <string>

namespace bench {

namespace vfs = foundation::storage::vfs;

namespace {

constexpr std::size_t keys = 50'000;
constexpr std::size_t requestsAtMost = 51;
constexpr std::size_t manyKeys = 1'000'000; ///< a thousand in each folder, made up by a program
constexpr double mebibytesAtMost = 32;

constexpr std::size_t foldersAcross = 20; ///< and as many in each
constexpr std::size_t filesInEach = 2;
constexpr std::size_t walkers = 32;

std::string digits(std::size_t number) {
    return std::to_string(100'000 + number).substr(1);
}

std::size_t countIn(vfs::Folder const& folder) {
    std::size_t entries = 0;
    auto const listing = folder.listAllRecursive();
    auto const end = listing.end();
    for (auto at = listing.begin(); at != end; ++at) {
        ++entries;
    }
    return entries;
}

void require(std::size_t counted, std::size_t expected) {
    if (counted != expected) {
        throw std::runtime_error("counted " + std::to_string(counted) + " instead of " +
                                 std::to_string(expected));
    }
}

class Counter final : public vfs::FolderVisitor {
  public:
    vfs::FolderVisitResult visit(vfs::File const&) override {
        ++files_;
        return vfs::FolderVisitResult::Continue;
    }
    void require() const { bench::require(files_, foldersAcross * foldersAcross * filesInEach); }

  private:
    std::atomic<std::size_t> files_{0};
};

} // namespace

void showMemoryOfKeys(Workplace const& place) {
    tellPrograms();
    ::setenv("AWS_ENDPOINT_URL", told("VFS_TEST_S3_MANY_ENDPOINT").c_str(), 1);
    std::printf("\nA million keys, listed by a command, resident memory at most (MiB)\n");
    auto const [lines, peak] = runCounted({place.command, "find", "s3://many-keys/"});
    require(lines, manyKeys + manyKeys / 1'000); // and the folders
    std::printf("%-32s %8.1f   at most %.0f: %s\n", "vfs find", peak, mebibytesAtMost,
                peak <= mebibytesAtMost ? "met" : "missed");
    std::fflush(stdout);
}

void holdRemoteListing(Workplace const& place) {
    putObjects(keys, [](std::size_t i) {
        return std::pair{"keys/" + digits(i / 100) + '/' + digits(i), std::string()};
    });
    {
        auto const system = makeStoreSystem(Way::Counted);
        takeRequestCount();
        std::size_t const entries = countIn(storeFolder(system, "keys"));
        std::size_t const requests = takeRequestCount();
        require(entries, keys + keys / 100);
        std::printf("\nRecursive listing of 50,000 keys in 500 folders\n%-32s %8zu   at most %zu: "
                    "%s\n",
                    "requests", requests, requestsAtMost,
                    requests <= requestsAtMost ? "met" : "missed");
    }
    tellPrograms();
    auto const system = makeStoreSystem(Way::Delayed);
    std::string const bucket = bucketName();
    hold({"Recursive listing of 50,000 keys, 10 ms away",
          "ms",
          1e-3,
          place.runs,
          {
              {"rclone lsf -R --fast-list",
               [&] {
                   runProgram({"rclone", "lsf", "-R", "--fast-list", "store:" + bucket + "/keys"});
               }},
              {"listAllRecursive",
               [&] { require(countIn(storeFolder(system, "keys")), keys + keys / 100); },
               {{1.0, "rclone lsf -R --fast-list", Time::Elapsed}}},
              {"vfs find",
               [&] {
                   runProgram({place.command, "find", "s3://" + bucket + "/keys"});
               },
               {{1.0, "rclone lsf -R --fast-list", Time::Elapsed}}},
          },
          Time::Elapsed});
}

void holdRemoteWalk(Workplace const& place) {
    putObjects(foldersAcross * foldersAcross * filesInEach, [](std::size_t i) {
        std::size_t const folder = i / filesInEach;
        return std::pair{"tree/" + digits(folder / foldersAcross) + '/' + digits(folder) + '/' +
                             digits(i),
                         std::string()};
    });
    auto const system = makeStoreSystem(Way::Delayed);
    vfs::Folder const root = storeFolder(system, "tree");
    // The scheduler of oneTBB has as many threads as there are processors unless it is told two
    // things: that there may be more at all, and that there may be more here.
    tbb::global_control const allowed(tbb::global_control::max_allowed_parallelism, walkers);
    tbb::task_arena arena(static_cast<int>(walkers));
    hold({"A tree of 420 folders walked, 10 ms away",
          "ms",
          1e-3,
          place.runs,
          {
              {"walkFolder",
               [&] {
                   Counter counter;
                   vfs::walkFolder(root, counter);
                   counter.require();
               }},
              {"walkFolderParallel, 32 threads",
               [&] {
                   Counter counter;
                   arena.execute([&] { vfs::walkFolderParallel(root, counter); });
                   counter.require();
               },
               {{1.0 / 8, "walkFolder", Time::Elapsed}}},
          },
          Time::Elapsed});
}

} // namespace bench
