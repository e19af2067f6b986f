#include "host.hpp"

#include "failure.hpp"
#include "s3_environment.hpp"

#include <foundation/msg_svc/eventmgr/event_mgr.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/standard/standard_storage_system.hpp>
#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>

#include <boost/make_shared.hpp>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

namespace cli {

using foundation::storage::vfs::StorageSystem;

namespace {

/// Who a server is to be told is asking: the file that NETRC names, else the usual one.
std::string netrcFile() {
    if (char const* const named = std::getenv("NETRC")) {
        return named;
    }
    char const* const home = std::getenv("HOME");
    return home ? std::string(home) + "/.netrc" : "";
}

using Provider = std::shared_ptr<foundation::storage::provider::IProvider>;

std::shared_ptr<StorageSystem> systemThatTellsOfChanges() {
    namespace standard = foundation::storage::provider::standard;
    standard::StandardOptions options;
    options.eventMgr = boost::make_shared<foundation::msg_svc::eventmgr::EventMgr>();
    options.http.netrcFile = netrcFile();
    options.http.web.certificateFile = certificateFile(S3Environment::ofProcess());
    std::optional<Refusal> noStore; // which is told to those who ask for one
    try {
        options.s3 = s3Options(S3Environment::ofProcess());
    } catch (Refusal const& refusal) {
        noStore = refusal;
    }
    auto system = standard::makeStandardStorageSystem(options);
    auto const schemes = standard::standardProviders();
    bool const hasStores = std::any_of(schemes.begin(), schemes.end(), [](auto const& provider) {
        return provider.scheme == "s3";
    });
    if (noStore && hasStores) {
        system->registerAliasProvider(
            "s3", [refusal = *noStore](auto const&) -> Provider { throw Refusal(refusal); });
    }
    return system;
}

} // namespace

Host::Host() : Host(systemThatTellsOfChanges()) {}

Host::Host(std::shared_ptr<StorageSystem> system)
    : system_(std::move(system)),
      reference_(std::weak_ptr<StorageSystem>(system_)) {}

} // namespace cli
