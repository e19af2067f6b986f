#include "storage_run.hpp"

#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>

#include <fl/i18n/conversion.hpp>

#include <gtest/gtest.h>

namespace cli_test {

namespace provider = foundation::storage::provider;

Outcome runOver(std::shared_ptr<provider::IProvider> const& storage, cli::Words const& words,
                std::shared_ptr<provider::IProvider> const& other) {
    auto const system = std::make_shared<foundation::storage::vfs::PluggableStorageSystem>(nullptr);
    system->registerPhysicalProvider("odd", [&] { return storage; });
    system->registerPhysicalProvider("file", [&] { return storage; });
    if (other != nullptr) {
        system->registerPhysicalProvider("other", [&] { return other; });
    }
    cli::Host host(system);
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    Outcome outcome;
    outcome.code = cli::runCommandLine(host, words);
    outcome.out = ::testing::internal::GetCapturedStdout();
    outcome.err = ::testing::internal::GetCapturedStderr();
    return outcome;
}

provider::StorageIRI oddLocation(std::string const& path) {
    return provider::StorageIRI(fl::i18n::to_ustring("odd:/" + path));
}

} // namespace cli_test
