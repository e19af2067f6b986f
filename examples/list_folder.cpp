#include <foundation/storage/provider/standard/standard_storage_system.hpp>
#include <foundation/storage/vfs/vfs.hpp>
#include <iostream>
namespace vfs = foundation::storage::vfs;

int main(int, char** argv) try {
    auto const system = foundation::storage::provider::standard::makeStandardStorageSystem();
    vfs::StorageSystemReference const storage(system);
    auto const text = fl::i18n::storageNameToUstring(argv[1]);
    vfs::Folder const folder(vfs::toAbsoluteIRI(text, fl::filesystem::current_path()), storage);
    for (vfs::FileEntry const& file : folder.listFileEntries(u"*.cpp")) {
        std::cout << fl::i18n::toDisplayString(file.getName()) << ' '
                  << file.getAttributes().values().size.value_or(0) << '\n';
    }
} catch (foundation::core::except::IException const& failure) {
    std::cerr << fl::i18n::toDisplayString(failure.ToUstringImpl()) << '\n';
    return 1;
}
