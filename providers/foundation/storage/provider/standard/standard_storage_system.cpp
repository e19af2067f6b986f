#include <foundation/storage/provider/standard/standard_storage_system.hpp>

#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>

#ifdef VFS_HAS_PROVIDER_LOCAL
#include <foundation/storage/provider/local/local_factory.hpp>
#endif
#ifdef VFS_HAS_PROVIDER_MEMORY
#include <foundation/storage/provider/memory/memory_factory.hpp>
#endif

#include <array>
#include <cstddef>
#include <iterator>
#include <string>

namespace foundation::storage::provider::standard {

namespace {

struct Registration {
    StandardProvider provider;
    std::shared_ptr<IProvider> (*build)(StandardOptions const&);
};

constexpr Registration registrations[] = {
#ifdef VFS_HAS_PROVIDER_LOCAL
    {{"file", "files and folders of the local disk"},
     [](StandardOptions const& options) { return local::buildLocalProvider(options.local); }},
#endif
#ifdef VFS_HAS_PROVIDER_MEMORY
    {{"mem", "files and folders in the memory of the process"},
     [](StandardOptions const& options) { return memory::buildMemoryProvider(options.memory); }},
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
        system->registerPhysicalProvider(
            std::string(registration.provider.scheme),
            [build = registration.build, options] { return build(options); });
    }
    return system;
}

} // namespace foundation::storage::provider::standard
