#include <atomic>
#include <foundation/storage/provider/standard/standard_storage_system.hpp>
#include <foundation/storage/vfs/vfs.hpp>
#include <iostream>
namespace vfs = foundation::storage::vfs;

struct Sizes : vfs::FolderVisitor {
    vfs::FolderVisitResult visitEntry(vfs::FileEntry const& file) override {
        bytes += file.getAttributes().values().size.value_or(0);
        return vfs::FolderVisitResult::Continue;
    }
    vfs::FolderVisitResult visitFolderFailed(vfs::Folder const&, vfs::Exception const&) override {
        ++failures;
        return vfs::FolderVisitResult::Continue;
    }
    std::atomic<std::uint64_t> bytes = 0;
    std::atomic<int> failures = 0;
};

int main(int argc, char** argv) try {
    if (argc != 2) {
        std::cerr << "usage: tree_size FOLDER\n";
        return 2;
    }
    auto const system = foundation::storage::provider::standard::makeStandardStorageSystem();
    vfs::StorageSystemReference const storage(system);
    auto const text = fl::i18n::storageNameToUstring(argv[1]);
    vfs::Folder const folder(vfs::toAbsoluteIRI(text, fl::filesystem::current_path()), storage);
    if (!folder.folderExists()) {
        std::cerr << "no such folder\n";
        return 1;
    }
    Sizes sizes;
    vfs::walkFolderParallel(folder, sizes);
    std::cout << sizes.bytes << " bytes, " << sizes.failures << " failures\n";
} catch (foundation::core::except::IException const& failure) {
    std::cerr << fl::i18n::toDisplayString(failure.ToUstringImpl()) << '\n';
    return 1;
}
