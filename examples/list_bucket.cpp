#include <cstdlib>
#include <foundation/storage/provider/standard/standard_storage_system.hpp>
#include <foundation/storage/vfs/vfs.hpp>
#include <iostream>
namespace vfs = foundation::storage::vfs;

int main(int, char** argv) try {
    foundation::storage::provider::standard::StandardOptions options;
    options.s3.endpoint = argv[1]; // as "https://store.example.org"; "" is the public store
    options.s3.region = argv[2];
    if (char const* const secret = std::getenv("STORE_SECRET_KEY")) { // nobody asks without one
        options.s3.credentials = {argv[3], secret, {}};
    }
    auto const system = foundation::storage::provider::standard::makeStandardStorageSystem(options);
    vfs::StorageSystemReference const storage(system);
    auto const text = fl::i18n::storageNameToUstring(argv[4]); // as "s3://bucket/folder"
    vfs::Folder const folder(vfs::toAbsoluteIRI(text, fl::filesystem::current_path()), storage);
    for (vfs::FileEntry const& file : folder.listFileEntries()) {
        std::cout << fl::i18n::toDisplayString(file.getName()) << ' '
                  << file.getAttributes().values().size.value_or(0) << '\n';
    }
} catch (foundation::core::except::IException const& failure) {
    std::cerr << fl::i18n::toDisplayString(failure.ToUstringImpl()) << '\n';
    return 1;
}
