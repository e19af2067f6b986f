// Files of a server keep to the contract as far as the web goes: there are no folders in it.

#include "unit/providers/http/lying_server.hpp"

#include <foundation/storage/conformance/contract_gtest.hpp>
#include <foundation/storage/provider/http/http_factory.hpp>

#include <fl/i18n/conversion.hpp>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace {

using namespace foundation::storage::conformance;
namespace http = foundation::storage::provider::http;

/// Two files of the disk, and a server that gives them.
class ServedFiles {
  public:
    ServedFiles() {
        if (!::mkdtemp(path_.data())) {
            throw std::system_error(errno, std::generic_category(), path_);
        }
        for (DeclaredItem const& item : content()) {
            std::ofstream(path_ + '/' + fl::i18n::to_string(item.path), std::ios::binary)
                << item.bytes;
        }
    }
    ServedFiles(ServedFiles const&) = delete;
    ServedFiles& operator=(ServedFiles const&) = delete;
    ~ServedFiles() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    static std::vector<DeclaredItem> content() {
        return {{u"small", DeclaredItem::Kind::File, "some bytes"},
                {u"large", DeclaredItem::Kind::File, http::test::content(300'000)}};
    }
    foundation::storage::provider::StorageIRI location() const {
        return foundation::storage::provider::StorageIRI(
            fl::i18n::to_ustring("http://" + server_.authority() + "/disk" + path_));
    }

  private:
    std::string path_ = "/tmp/served-files-XXXXXX";
    http::test::LyingServer server_;
};

Place servedPlace() {
    auto const files = std::make_shared<ServedFiles>();
    http::HttpOptions options;
    options.web.proxy = "";
    return {http::buildHttpProvider(files->location(), options), files->location(),
            ServedFiles::content(), files};
}

constexpr char const* notAsked = "whether a server can be written is not known before it is asked";

int const httpTests = registerContractTests({
    .name = "Http",
    .makePlace = servedPlace,
    .unsupported =
        allAbilities - (Ability::FileAttributes | Ability::ExtendedAttributes | Ability::Reading),
    .deviations =
        {
            {"Attributes.ExtendedOnesAreOfFilesAndFolders", "the web knows no folders"},
            {"Attributes.OfAFolderAreNotThoseOfAFile", "the web knows no folders"},
            {"Declarations.TheExtensionsAreThoseDeclared", notAsked},
            {"Declarations.TheFeaturesAreThoseDeclared", notAsked},
            {"Existence.ThePlaceIsAFolder", "the web knows no folders"},
            {"Opening.AFolderIsNotRead", "the web knows no folders"},
            {"Existence.TheCanonicalLocationInAMissingFolderIsNotFound",
             "nor whether one is there"},
        },
});

TEST(HttpContract, HasCasesOfReading) {
    EXPECT_GT(httpTests, 60);
}

} // namespace
