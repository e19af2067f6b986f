#include "contest.hpp"
#include "program.hpp"
#include "trees.hpp"
#include "trees_files.hpp"
#include "trees_peers.hpp"

#include <fl/filesystem/basic_path.hpp>
#include <fl/i18n/conversion.hpp>
#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/conformance/feature_hider.hpp>
#include <foundation/storage/provider/local/local_factory.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/vfs/iri/absolute_iri.hpp>
#include <foundation/storage/vfs/resources/folder_removal_policy.hpp>

#include <stdexcept>
#include <utility>
#include <vector>

namespace bench {

namespace conformance = foundation::storage::conformance;
namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;

namespace {

/// A folder of the local disk by way of a provider.
vfs::Folder folderBy(std::shared_ptr<provider::IProvider> by, std::string const& path) {
    vfs::AbsoluteIRI const location =
        vfs::toAbsoluteIRI(fl::i18n::to_ustring(path), fl::filesystem::path());
    return vfs::Folder(provider::StorageItem(std::move(by), location.toStorageIRI()),
                       vfs::StorageSystemReference(std::weak_ptr<vfs::StorageSystem>()));
}

} // namespace

void holdTreeRemoval(Workplace const& place) {
    std::string const path = (place.path / "tree").string();
    std::shared_ptr<provider::IProvider> const local = provider::local::buildLocalProvider();
    vfs::Folder const native = folderBy(local, path);
    vfs::Folder const plain =
        folderBy(conformance::decorate<conformance::FeatureHider>(local), path);

    auto const prepare = [&] {
        if (std::filesystem::exists(path)) {
            throw std::runtime_error("the last contender left " + path);
        }
        makeFileTree(path);
    };
    std::vector<Contender> contenders = {
        {"system calls", [&] { removeByCalls(path); }},
        {"std::filesystem::remove_all", [&] { std::filesystem::remove_all(path); }},
        {"rm -rf",
         [&] {
             runProgram({"rm", "-rf", path});
         }},
        {"vfs rm -r",
         [&] {
             runProgram({place.command.string(), "rm", "-r", path});
         },
         {{1, "rm -rf"}}},
        {"removeFolder, natively",
         [&] { native.removeFolder(vfs::FolderRemovalPolicy::Recursive); },
         {{1.10, "system calls"}, {1, "rm -rf"}}},
        {"removeFolder, by the visitor",
         [&] { plain.removeFolder(vfs::FolderRemovalPolicy::Recursive); },
         {{1.5, "system calls"}}},
    };
    for (Contender& contender : contenders) {
        contender.prepare = prepare;
    }
    hold({"A tree of 20,000 files of 4 KiB removed", "us a file",
          1e-6 * static_cast<double>(treeFiles), 11, std::move(contenders)});
}

} // namespace bench
