#include "../scenario.hpp"

#include <foundation/storage/provider/extensions/i_small_file_copies.hpp>
#include <foundation/storage/provider/i_provider.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace fault_sweep {

namespace {

using provider::CopyFileOptions;
using provider::CopyStatus;
using provider::ReplacementPolicy;

constexpr std::size_t small = 3000;
constexpr std::size_t large = 600'000;

struct Policy {
    ReplacementPolicy policy;
    char const* name;
};
constexpr Policy replacing[] = {
    {ReplacementPolicy::ReplaceExisting, "ReplaceExisting"},
    {ReplacementPolicy::ReplaceReadOnly, "ReplaceReadOnly"},
    {ReplacementPolicy::ReplaceAndDeferDenied, "ReplaceAndDeferDenied"},
};
constexpr Policy refusing[] = {
    {ReplacementPolicy::FailIfExists, "FailIfExists"},
    {ReplacementPolicy::KeepExisting, "KeepExisting"},
};

Told toldBy(CopyStatus status) {
    return status == CopyStatus::CopiedWithTimes ? Told::DoneWithTimes : Told::Done;
}

auto copying(Policy policy, char const* to = "here/to", bool withProgress = false) {
    return [=](Place const& place) {
        CopyFileOptions options;
        options.policy = policy.policy;
        if (withProgress) {
            options.progress = [](auto, auto) { return true; };
        }
        return toldBy(place.file("here/from").copyFile(place.file(to), options));
    };
}

/// A copy that has to be refused, and is done where that is what came of it.
auto refused(Policy policy) {
    return [=](Place const& place) {
        try {
            copying(policy)(place);
        } catch (vfs::Exception const& e) {
            if (e.getErrorCode() == vfs::ErrorCode::ResourceAlreadyExists) {
                return Told::Done;
            }
            throw;
        }
        return Told::Failed;
    };
}

auto source(std::size_t size, bool withOld = false, mode_t oldMode = 0640) {
    return [=](Place const& place) {
        place.makeFile("here/from", contentOfSize(size, 1), 0754);
        if (withOld) {
            place.makeFile("here/to", contentOfSize(size / 2, 2), oldMode);
        }
    };
}

void sparseSource(Place const& place) {
    place.makeFile("here/from", contentOfSize(20'000, 1));
    int const file = ::open(place.path("here/from").c_str(), O_RDWR | O_CLOEXEC);
    bool const done = file >= 0 && ::ftruncate(file, 3'000'000) == 0 &&
                      ::pwrite(file, "middle", 6, 1'500'000) == 6;
    ::close(file);
    if (!done) {
        throw std::runtime_error("no sparse file");
    }
}

void linkSource(Place const& place) {
    place.makeLink("here/from", "some/where");
}

/// What the last run said of each file. One process runs one scenario.
std::array<provider::extensions::SmallFileCopy, 3> smallCopies;

Told copyManySmall(Place const& place) {
    static std::array<fl::i18n::ustring, 3> const names = {u"a", u"b", u"c"};
    for (std::size_t i = 0; i < names.size(); ++i) {
        smallCopies[i] = {&names[i]};
    }
    auto const from = place.item("here/from");
    dynamic_cast<provider::extensions::ISmallFileCopies&>(*from.getProvider())
        .copySmallFiles(from.getLocation(), place.location("here/to"), smallCopies);
    bool const all = std::all_of(smallCopies.begin(), smallCopies.end(),
                                 [](auto const& copy) { return copy.isCopied; });
    return all ? Told::DoneWithTimes : Told::Failed;
}

std::string whatSmallCopiesLieAbout(Place const& place) {
    for (auto const& copy : smallCopies) {
        std::string const name(1, static_cast<char>(copy.name->front()));
        bool const isThere = ::access(place.path("here/to/" + name).c_str(), F_OK) == 0;
        if (copy.isCopied != isThere) {
            return name + (isThere ? " is there, and was not told of" : " was told of, and is not");
        }
    }
    return {};
}

void manySmall(Place const& place) {
    place.makeFolder("here/from");
    place.makeFolder("here/to");
    unsigned seed = 0;
    for (char const* name : {"here/from/a", "here/from/b", "here/from/c"}) {
        place.makeFile(name, contentOfSize(small, ++seed));
    }
}

std::vector<Scenario> ontoNothing() {
    Policy const fails = refusing[0];
    return {
        {"copyFile, small", source(small), copying(fails)},
        {"copyFile, large", source(large), copying(fails)},
        {"copyFile, empty", source(0), copying(fails)},
        {"copyFile, sparse", sparseSource, copying(fails)},
        {"copyFile, large, with progress", source(large), copying(fails, "here/to", true)},
        {"copyFile, large, to another file system", source(large), copying(fails, "there/to")},
        {"copyFile, a link", linkSource, copying(fails)},
        {"copySmallFiles", manySmall, copyManySmall, {}, {}, {}, {}, whatSmallCopiesLieAbout},
    };
}

std::vector<Scenario> ontoAFile() {
    Policy const replaces = replacing[0];
    return {
        {"copyFile, small, onto a file", source(small, true), copying(replaces)},
        {"copyFile, large, onto a file", source(large, true), copying(replaces)},
        {"copyFile, a link, onto a file",
         [](Place const& place) {
             linkSource(place);
             place.makeFile("here/to", "old");
         },
         copying(replaces)},
    };
}

void addAll(std::vector<Scenario>& scenarios, std::vector<Scenario> const& more) {
    scenarios.insert(scenarios.end(), more.begin(), more.end());
}

} // namespace

void addCopyScenarios(std::vector<Scenario>& scenarios) {
    addAll(scenarios, ontoNothing());
    addAll(scenarios, ontoAFile());
    for (Policy const& policy : replacing) {
        std::string const behind = std::string(", ") + policy.name;
        scenarios.push_back({"copyFile onto nothing" + behind, source(small), copying(policy)});
        scenarios.push_back(
            {"copyFile onto a file" + behind, source(small, true), copying(policy)});
    }
    scenarios.push_back({"copyFile onto a read-only file, ReplaceReadOnly",
                         source(small, true, 0444), copying(replacing[1])});
    for (Policy const& policy : refusing) {
        std::string const behind = std::string(", ") + policy.name;
        scenarios.push_back({"copyFile refused" + behind, source(small, true), refused(policy)});
        scenarios.push_back(
            {"copyFile refused, large" + behind, source(large, true), refused(policy)});
    }

    std::vector<MissingCall> const unnamed = {{SYS_openat, 2, O_TMPFILE, EOPNOTSUPP}};
    std::vector<MissingCall> const linking = {{SYS_linkat, 4, AT_EMPTY_PATH, ENOENT}};
    std::vector<MissingCall> const kernelCopy = {{SYS_copy_file_range, 0, 0, EXDEV}};
    std::vector<MissingCall> const notReplacing = {{SYS_openat, 2, O_TMPFILE, EOPNOTSUPP},
                                                   {SYS_renameat2, 4, 1, EINVAL}};
    std::vector<Scenario> both = ontoNothing();
    addAll(both, ontoAFile());
    addAll(scenarios, without("unnamed files", unnamed, both));
    addAll(scenarios, without("links of descriptors", linking, both));
    addAll(scenarios, without("copies in the kernel", kernelCopy, both));
    addAll(scenarios, without("unnamed files and RENAME_NOREPLACE", notReplacing, both));
}

} // namespace fault_sweep
