// Archives by way of this system.

#include "archives.hpp"

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/local/local_factory.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/provider/tar/tar_factory.hpp>
#include <foundation/storage/provider/zip/zip_factory.hpp>
#include <foundation/storage/vfs/listing/entries.hpp>
#include <foundation/storage/vfs/listing/folder_listing.hpp>
#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>

#include <vector>

namespace bench {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;

using provider::StorageIRI;
using provider::StorageItem;

Amount listWithSystem(StorageIRI const& root) {
    auto const system = std::make_shared<vfs::PluggableStorageSystem>(nullptr);
    system->registerPhysicalProvider("file", [] { return provider::local::buildLocalProvider(); });
    system->registerContainerProvider(
        "zip", [](StorageItem const& item) { return provider::zip::buildZipProvider(item); });
    system->registerContainerProvider(
        "tar", [](StorageItem const& item) { return provider::tar::buildTarProvider(item); });
    vfs::Folder const folder(vfs::AbsoluteIRI(root, true), vfs::StorageSystemReference(system));
    Amount amount;
    for (vfs::FileOrFolderEntry const& entry : folder.listAllEntriesRecursive()) {
        if (auto const* const file = boost::get<vfs::FileEntry>(&entry)) {
            ++amount.members;
            amount.bytes += file->getAttributes().values().size.value_or(0);
        }
    }
    return amount;
}

Amount readMembers(provider::IProvider const& archive, StorageIRI const& root,
                   std::span<std::string const> names) {
    Amount amount;
    std::vector<char> buffer(64 * 1024);
    for (std::string const& name : names) {
        auto const stream =
            archive.openReadOnlyStream(StorageIRI(root, std::u16string(name.begin(), name.end())));
        long got = 0;
        while ((got = stream->read(buffer.data(), static_cast<long>(buffer.size()))) > 0) {
            amount.bytes += static_cast<std::uint64_t>(got);
        }
        ++amount.members;
    }
    return amount;
}

} // namespace bench
