#include "../scenario.hpp"

#include <cerrno>
#include <fcntl.h>
#include <stdexcept>
#include <sys/syscall.h>
#include <unistd.h>

namespace fault_sweep {

namespace {

using provider::ReplacementPolicy;

constexpr std::size_t large = 600'000;

auto movingFile(ReplacementPolicy policy, char const* to = "here/to") {
    return [=](Place const& place) {
        place.file("here/from").moveFile(place.file(to), policy);
        return Told::Done;
    };
}

auto movingFolder(ReplacementPolicy policy, char const* to = "here/to") {
    return [=](Place const& place) {
        place.folder("here/from").moveFolder(place.folder(to), policy);
        return Told::Done;
    };
}

void sourceFile(Place const& place) {
    place.makeFile("here/from", contentOfSize(large, 1));
}

auto sourceAndOld(mode_t oldMode = 0644, char const* to = "here/to") {
    return [=](Place const& place) {
        sourceFile(place);
        place.makeFile(to, contentOfSize(1000, 2), oldMode);
    };
}

void hardLinks(Place const& place) {
    sourceFile(place);
    if (::link(place.path("here/from").c_str(), place.path("here/to").c_str()) != 0) {
        throw std::runtime_error("no second name");
    }
}

void sourceTree(Place const& place) {
    place.makeFolder("here/from");
    place.makeFolder("here/from/inner");
    place.makeFile("here/from/one", contentOfSize(100, 1));
    place.makeFile("here/from/inner/two", contentOfSize(20'000, 2));
    place.makeLink("here/from/link", "inner");
}

void sourceTreeAndOther(Place const& place) {
    sourceTree(place);
    place.makeFolder("here/to");
    place.makeFolder("here/to/inner");
    place.makeFile("here/to/inner/two", "old");
    place.makeFile("here/to/other", "other");
}

std::vector<Scenario> fileMoves() {
    std::vector<std::pair<std::string, std::string>> const moved = {{"here/from", "here/to"}};
    return {
        {"moveFile", sourceFile, movingFile(ReplacementPolicy::FailIfExists), {}, moved},
        {"moveFile onto a file",
         sourceAndOld(),
         movingFile(ReplacementPolicy::ReplaceExisting),
         {},
         moved},
        {"moveFile onto a read-only file, ReplaceReadOnly",
         sourceAndOld(0444),
         movingFile(ReplacementPolicy::ReplaceReadOnly),
         {},
         moved},
        {"moveFile onto its second name",
         hardLinks,
         movingFile(ReplacementPolicy::ReplaceExisting),
         {},
         moved},
    };
}

std::vector<Scenario> folderMoves() {
    std::vector<std::pair<std::string, std::string>> const moved = {{"here/from", "here/to"}};
    return {
        {"moveFolder", sourceTree, movingFolder(ReplacementPolicy::FailIfExists), {}, moved},
        {"moveFolder onto an empty one",
         [](Place const& place) {
             sourceTree(place);
             place.makeFolder("here/to");
         },
         movingFolder(ReplacementPolicy::ReplaceExisting),
         {},
         moved},
        {"moveFolder, merged",
         sourceTreeAndOther,
         movingFolder(ReplacementPolicy::ReplaceReadOnly),
         {},
         moved},
    };
}

} // namespace

void addMoveScenarios(std::vector<Scenario>& scenarios) {
    std::vector<Scenario> own = fileMoves();
    for (Scenario const& scenario : folderMoves()) {
        own.push_back(scenario);
    }
    scenarios.insert(scenarios.end(), own.begin(), own.end());
    std::vector<MissingCall> const noReplace = {{SYS_renameat2, 4, 1, EINVAL}};
    for (Scenario const& scenario : without("RENAME_NOREPLACE", noReplace, own)) {
        scenarios.push_back(scenario);
    }
    std::vector<MissingCall> const noLinks = {{SYS_renameat2, 4, 1, EINVAL},
                                              {SYS_linkat, 0, 0, EPERM},
                                              {SYS_openat, 2, O_TMPFILE, EOPNOTSUPP}};
    for (Scenario const& scenario : without("RENAME_NOREPLACE and links", noLinks, own)) {
        // Without links there is no second name.
        if (scenario.name.find("second name") == std::string::npos) {
            scenarios.push_back(scenario);
        }
    }
    std::vector<std::pair<std::string, std::string>> const away = {{"here/from", "there/to"}};
    scenarios.push_back({"moveFile to another file system",
                         sourceFile,
                         movingFile(ReplacementPolicy::FailIfExists, "there/to"),
                         {},
                         away});
    scenarios.push_back({"moveFile to another file system, onto a file",
                         sourceAndOld(0644, "there/to"),
                         movingFile(ReplacementPolicy::ReplaceExisting, "there/to"),
                         {},
                         away});
    scenarios.push_back({"moveFolder to another file system",
                         sourceTree,
                         movingFolder(ReplacementPolicy::FailIfExists, "there/to"),
                         {},
                         away});
}

} // namespace fault_sweep
