#include <foundation/storage/provider/standard/standard_storage_system.hpp>

#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>

#ifdef VFS_HAS_PROVIDER_HTTP
#include <foundation/storage/provider/http/http_factory.hpp>
#endif
#ifdef VFS_HAS_PROVIDER_LOCAL
#include <foundation/storage/provider/local/local_factory.hpp>
#endif
#ifdef VFS_HAS_PROVIDER_MEMORY
#include <foundation/storage/provider/memory/memory_factory.hpp>
#endif
#ifdef VFS_HAS_PROVIDER_S3
#include <foundation/storage/provider/s3/s3_factory.hpp>
#endif
#ifdef VFS_HAS_PROVIDER_TAR
#include <foundation/storage/provider/tar/tar_factory.hpp>
#endif
#ifdef VFS_HAS_PROVIDER_ZIP
#include <foundation/storage/provider/zip/zip_factory.hpp>
#endif

#include <array>
#include <cstddef>
#include <iterator>
#include <string>

namespace foundation::storage::provider::standard {

namespace {

struct Registration {
    StandardProvider provider;
    void (*enter)(vfs::PluggableStorageSystem&, StandardProvider const&, StandardOptions const&);
};

template<auto build, auto options>
void enterPhysical(vfs::PluggableStorageSystem& system, StandardProvider const& provider,
                   StandardOptions const& all) {
    system.registerPhysicalProvider(std::string(provider.scheme),
                                    [own = all.*options] { return build(own); });
}

template<auto build, auto options>
void enterContainer(vfs::PluggableStorageSystem& system, StandardProvider const& provider,
                    StandardOptions const& all) {
    system.registerContainerProvider(
        std::string(provider.scheme),
        [own = all.*options](StorageItem const& item) { return build(item, own); });
}

template<auto build, auto options>
void enterAlias(vfs::PluggableStorageSystem& system, StandardProvider const& provider,
                StandardOptions const& all) {
    system.registerAliasProvider(
        std::string(provider.scheme),
        [own = all.*options](StorageIRI const& location) { return build(location, own); });
}

constexpr Registration registrations[] = {
#ifdef VFS_HAS_PROVIDER_LOCAL
    {{"file", "files and folders of the local disk"},
     &enterPhysical<&local::buildLocalProvider, &StandardOptions::local>},
#endif
#ifdef VFS_HAS_PROVIDER_HTTP
    {{"http", "files of the web", false, true},
     &enterAlias<&http::buildHttpProvider, &StandardOptions::http>},
    {{"https", "files of the web, over TLS", false, true},
     &enterAlias<&http::buildHttpProvider, &StandardOptions::http>},
#endif
#ifdef VFS_HAS_PROVIDER_MEMORY
    {{"mem", "files and folders in the memory of the process"},
     &enterPhysical<&memory::buildMemoryProvider, &StandardOptions::memory>},
#endif
#ifdef VFS_HAS_PROVIDER_S3
    {{"s3", "objects of a store that speaks the S3 protocol", false, true},
     &enterAlias<&s3::buildS3Provider, &StandardOptions::s3>},
#endif
#ifdef VFS_HAS_PROVIDER_TAR
    {{"tar", "the inside of tar archives, of cpio, ar and ISO 9660 ones", true},
     &enterContainer<&tar::buildTarProvider, &StandardOptions::tar>},
#endif
#ifdef VFS_HAS_PROVIDER_ZIP
    {{"zip", "the inside of zip archives", true},
     &enterContainer<&zip::buildZipProvider, &StandardOptions::zip>},
#endif
};

} // namespace

std::span<StandardProvider const> standardProviders() noexcept {
    static auto const providers = [] {
        std::array<StandardProvider, std::size(registrations)> result;
        for (std::size_t i = 0; i < result.size(); ++i) {
            result[i] = registrations[i].provider;
        }
        return result;
    }();
    return providers;
}

std::shared_ptr<vfs::PluggableStorageSystem>
makeStandardStorageSystem(StandardOptions const& options) {
    auto system = std::make_shared<vfs::PluggableStorageSystem>(options.eventMgr);
    for (Registration const& registration : registrations) {
        registration.enter(*system, registration.provider, options);
    }
    return system;
}

} // namespace foundation::storage::provider::standard
