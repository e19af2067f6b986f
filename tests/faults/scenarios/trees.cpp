#include "../scenario.hpp"

#include <foundation/storage/provider/i_provider.hpp>

#include <cerrno>
#include <fcntl.h>
#include <sys/syscall.h>

namespace fault_sweep {

namespace {

using provider::ReplacementPolicy;

void tree(Place const& place) {
    place.makeFolder("here/from");
    place.makeFolder("here/from/inner");
    place.makeFolder("here/from/inner/deep");
    place.makeFolder("here/from/empty");
    place.makeFile("here/from/one", contentOfSize(100, 1));
    place.makeFile("here/from/inner/two", contentOfSize(20'000, 2));
    place.makeFile("here/from/inner/deep/three", "");
    place.makeLink("here/from/inner/link", "../one");
}

void treeAndOther(Place const& place) {
    tree(place);
    place.makeFolder("here/to");
    place.makeFolder("here/to/inner");
    place.makeFile("here/to/inner/two", "old");
    place.makeFile("here/to/other", "other");
}

/// Deeper than the window of descriptors that a walk keeps open.
void deepTree(Place const& place) {
    std::string path = "here/from";
    place.makeFolder(path);
    for (int i = 0; i < 20; ++i) {
        path += "/down";
        place.makeFolder(path);
        place.makeFile(path + "-beside", "x");
    }
}

auto copying(ReplacementPolicy policy) {
    return [=](Place const& place) {
        place.folder("here/from").copyFolder(place.folder("here/to"), policy);
        return Told::Done;
    };
}

Told copyInto(Place const& place) {
    place.folder("here/from")
        .copyFolderInto(place.folder("here/to"), ReplacementPolicy::FailIfExists);
    return Told::Done;
}

Told removeTree(Place const& place) {
    place.folder("here/from").removeFolder(vfs::FolderRemovalPolicy::Recursive);
    return Told::Done;
}

Told removeNatively(Place const& place) {
    place.item("here/from").removeFolderRecursively();
    return Told::Done;
}

} // namespace

void addTreeScenarios(std::vector<Scenario>& scenarios) {
    std::vector<Scenario> own = {
        {"copyFolder", tree, copying(ReplacementPolicy::FailIfExists)},
        {"copyFolder onto an empty one, ReplaceExisting",
         [](Place const& place) {
             tree(place);
             place.makeFolder("here/to");
         },
         copying(ReplacementPolicy::ReplaceExisting),
         {},
         {},
         {},
         {"here/to"}},
        {"copyFolder, merged, ReplaceReadOnly", treeAndOther,
         copying(ReplacementPolicy::ReplaceReadOnly)},
        {"copyFolder, merged, ReplaceAndDeferDenied", treeAndOther,
         copying(ReplacementPolicy::ReplaceAndDeferDenied)},
        {"copyFolder, merged, KeepExisting", treeAndOther,
         copying(ReplacementPolicy::KeepExisting)},
        {"copyFolderInto",
         [](Place const& place) {
             tree(place);
             place.makeFolder("here/to");
         },
         copyInto},
        {"removeFolder, Recursive", tree, removeTree},
        {"removeFolder, Recursive, deep", deepTree, removeTree},
        {"removeFolderRecursively", tree, removeNatively},
    };
    scenarios.insert(scenarios.end(), own.begin(), own.end());
    for (Scenario const& scenario :
         without("openat2", {{SYS_openat2, 0, 0, ENOSYS}}, {own.end() - 3, own.end()})) {
        scenarios.push_back(scenario);
    }
}

} // namespace fault_sweep
