// The files of a server that speaks WebDAV keep to the contract.

#include "server.hpp"

#include <foundation/storage/conformance/contract_gtest.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/http/http_factory.hpp>
#include <foundation/storage/provider/i_provider.hpp>

#include <fl/i18n/conversion.hpp>

#include <atomic>
#include <iostream>
#include <string>
#include <unistd.h>

namespace {

using namespace foundation::storage::conformance;
namespace provider = foundation::storage::provider;
namespace http = provider::http;
using provider::test::told;

/// A folder of the server that goes with the object.
class ServedFolder {
  public:
    ServedFolder(std::shared_ptr<provider::IProvider> provider, provider::StorageIRI location)
        : provider_(std::move(provider)),
          location_(std::move(location)) {
        provider_->createFolder(location_);
    }
    ServedFolder(ServedFolder const&) = delete;
    ServedFolder& operator=(ServedFolder const&) = delete;
    ~ServedFolder() {
        try {
            provider_->removeFolderRecursively(location_);
        } catch (provider::Exception const& e) {
            std::cerr << "left behind: " << location_ << ", " << e.getErrorCode() << '\n';
        }
    }

  private:
    std::shared_ptr<provider::IProvider> const provider_;
    provider::StorageIRI const location_;
};

Place servedFolder() {
    static std::atomic<unsigned> number = 0;
    http::HttpOptions options;
    options.web.proxy = "";
    options.user = told("VFS_TEST_DAV_USER");
    options.password = told("VFS_TEST_DAV_PASSWORD");
    provider::StorageIRI const root(fl::i18n::to_ustring(told("VFS_TEST_DAV_URL")));
    provider::StorageIRI const location(root, fl::i18n::to_ustring("contract-" +
                                                                   std::to_string(::getpid()) +
                                                                   '-' + std::to_string(++number)));
    auto const served = http::buildHttpProvider(location, options);
    return {served, location, {}, std::make_shared<ServedFolder>(served, location)};
}

// Apache's mod_dav is what these are of.
constexpr char const* tooLong = "the server says that a name is forbidden, and not why";
constexpr char const* wholeFiles =
    "the server takes files as a whole: of two writers the last wins";

int registerTests() {
    if (told("VFS_TEST_DAV_URL").empty()) {
        return 0;
    }
    using enum Ability;
    return registerContractTests({
        .name = "WebDav",
        .makePlace = servedFolder,
        .unsupported = Times | ReadOnlyItems | RecursiveListing | RecursiveWildcards |
                       ChangeEvents | RecursiveChangeEvents | Links | LinkCreation |
                       FolderAttributeChange | Flushing,
        .deviations =
            {
                {"Names.ANameOf256BytesIsUsableOrInvalid", tooLong},
                {"Names.ANameOf256BytesAndFewerCharactersIsUsableOrInvalid", tooLong},
                {"Names.ANameOf5000CharactersIsUsableOrInvalid", tooLong},
                {"Names.PathsMayBeLongerThan4096Bytes", tooLong},
                {"Streams.AppendsOfTwoStreamsAreBothKept", wholeFiles},
                {"Concurrency.EveryAppendIsKeptWhole", wholeFiles},
                {"Concurrency.ReadersSeeTheOldContentOrTheNew",
                 "a reader fails where the file is replaced before it has read all of it"},
            },
    });
}

int const davTests = registerTests();

TEST(WebDavContract, HasCasesOfWriting) {
    VFS_NEEDS_SERVER("VFS_TEST_DAV_URL");
    EXPECT_GT(davTests, 250);
}

} // namespace
