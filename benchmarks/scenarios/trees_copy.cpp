#include "contest.hpp"
#include "program.hpp"
#include "trees.hpp"
#include "trees_files.hpp"
#include "trees_peers.hpp"

#include <foundation/storage/provider/copy_file_options.hpp>

#include <cstdio>
#include <utility>
#include <vector>

namespace bench {

namespace vfs = foundation::storage::vfs;

void holdTreeCopy(Workplace const& place) {
    std::string const from = (place.path / "tree").string();
    std::string const to = (place.path / "copy").string();
    vfs::Folder const source(place.folder, u"tree");
    vfs::Folder const destination(place.folder, u"copy");
    makeFileTree(from);

    // Whatever the last contender left is looked at, and goes.
    auto const prepare = [&] {
        if (std::filesystem::exists(to)) {
            requireFileTree(to);
            std::filesystem::remove_all(to);
        }
    };
    std::vector<Contender> contenders = {
        {"system calls", [&] { copyByCalls(from, to, Naming::First); }},
        {"the same, named when complete", [&] { copyByCalls(from, to, Naming::WhenDone); }},
        {"std::filesystem::copy",
         [&] { std::filesystem::copy(from, to, std::filesystem::copy_options::recursive); }},
        {"cp -r",
         [&] {
             runProgram({"cp", "-r", from, to});
         }},
        {"cp -a",
         [&] {
             runProgram({"cp", "-a", from, to});
         }},
    };
    if (isInstalled("rsync")) {
        contenders.push_back({"rsync -a", [&] { runProgram({"rsync", "-a", from + '/', to}); }});
    } else {
        std::printf("\nrsync is not installed, and not in the contest\n");
    }
    contenders.push_back({"vfs cp -r",
                          [&] {
                              runProgram({place.command.string(), "cp", "-r", from, to});
                          },
                          {{1, "cp -r", Time::Elapsed}}});
    contenders.push_back({"Folder::copyFolder",
                          [&] {
                              source.copyFolder(
                                  destination,
                                  foundation::storage::provider::ReplacementPolicy::FailIfExists);
                          },
                          {{1.35, "system calls"}, {1, "cp -r"}}});
    for (Contender& contender : contenders) {
        contender.prepare = prepare;
    }
    hold({"A tree of 20,000 files of 4 KiB copied", "us a file",
          1e-6 * static_cast<double>(treeFiles), 11, std::move(contenders)});
    prepare();
    std::filesystem::remove_all(from);
}

} // namespace bench
