#include "program.hpp"
#include "remote.hpp"
#include "remote_store.hpp"

#include <foundation/storage/vfs/listing/folder_listing.hpp>
#include <foundation/storage/vfs/listing/list_entry.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace bench {

namespace vfs = foundation::storage::vfs;

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

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

void holdRemoteUpload(Workplace const& place) {
    std::filesystem::path const source = makeFiles(place.path);
    tellPrograms();
    std::string const bucket = bucketName();
    // What was sent is removed before the next one sends: both meet a bucket of one size.
    auto const timed = [&](std::string const& target, std::vector<std::string> const& words) {
        auto const begun = std::chrono::steady_clock::now();
        runProgram(words);
        double const seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
        requireFiles(target);
        auto const system = makeStoreSystem(Way::Direct);
        storeFolder(system, target).removeFolder(vfs::FolderRemovalPolicy::Recursive);
        return seconds;
    };
    // One round, since it takes minutes, unless more are wanted; then in alternating order.
    char const* const wanted = std::getenv("BENCH_UPLOAD_ROUNDS");
    int const rounds = wanted != nullptr ? std::max(1, std::atoi(wanted)) : 1;
    std::vector<double> own;
    std::vector<double> other;
    std::vector<double> ratios;
    for (int round = 0; round < rounds; ++round) {
        auto const sendOwn = [&] {
            own.push_back(timed(
                "upload-1", {place.command, "cp", "-r", source, "s3://" + bucket + "/upload-1"}));
        };
        auto const sendOther = [&] {
            other.push_back(
                timed("upload-2", {"rclone", "copy", source, "store:" + bucket + "/upload-2"}));
        };
        if (round % 2 == 0) {
            sendOwn();
            sendOther();
        } else {
            sendOther();
            sendOwn();
        }
        ratios.push_back(own.back() / other.back());
    }
    double const ratio = median(ratios);
    std::printf("\n10,000 files of 4 KiB sent, 10 ms away (%d %s, vfs first in the first, s)\n"
                "%-32s %8.1f\n%-32s %8.1f   %.2f of rclone copy, at most 1.00: %s\n",
                rounds, rounds == 1 ? "round" : "rounds", "rclone copy", median(other), "vfs cp -r",
                median(own), ratio, ratio <= 1 ? "met" : "missed");
    std::fflush(stdout);
    std::filesystem::remove_all(source);
}

} // namespace bench
