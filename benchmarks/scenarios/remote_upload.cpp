#include "contest.hpp"
#include "program.hpp"
#include "remote.hpp"
#include "remote_store.hpp"

#include <foundation/storage/vfs/listing/folder_listing.hpp>
#include <foundation/storage/vfs/listing/list_entry.hpp>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace bench {

namespace {

constexpr std::size_t files = 10'000;
constexpr std::size_t filesInEach = 100; ///< of a folder
constexpr std::size_t fileSize = 4096;

std::filesystem::path makeFiles(std::filesystem::path const& parent) {
    std::filesystem::path const root = parent / "upload";
    for (std::size_t i = 0; i < files; ++i) {
        std::filesystem::path const folder = root / std::to_string(i / filesInEach);
        std::filesystem::create_directories(folder);
        std::ofstream file(folder / (std::to_string(i) + ".txt"), std::ios::binary);
        file << std::string(fileSize, static_cast<char>('a' + i % 26));
    }
    return root;
}

void requireFiles(std::string const& folder) {
    auto const system = makeStoreSystem(Way::Direct);
    std::size_t counted = 0;
    auto const listing = storeFolder(system, folder).listAllRecursive();
    auto const end = listing.end();
    for (auto at = listing.begin(); at != end; ++at) {
        ++counted;
    }
    if (counted != files + files / filesInEach) {
        throw std::runtime_error(folder + " has " + std::to_string(counted) + " entries");
    }
}

} // namespace

void holdRemoteUpload(Workplace const& place) {
    std::filesystem::path const source = makeFiles(place.path);
    tellPrograms();
    std::string const bucket = bucketName();
    int round = 0;
    std::string target; // new for each, since what is there already is not sent again
    auto const prepare = [&] { target = "upload-" + std::to_string(++round); };
    auto const finish = [&] { requireFiles(target); };
    hold({"10,000 files of 4 KiB sent, 10 ms away",
          "s",
          1,
          1,
          {
              {"rclone copy",
               [&] {
                   runProgram({"rclone", "copy", source, "store:" + bucket + '/' + target});
               },
               {},
               prepare,
               finish},
              {"vfs cp -r",
               [&] {
                   runProgram({place.command, "cp", "-r", source, "s3://" + bucket + '/' + target});
               },
               {{1.0, "rclone copy", Time::Elapsed}},
               prepare,
               finish},
          },
          Time::Elapsed});
    std::filesystem::remove_all(source);
}

} // namespace bench
