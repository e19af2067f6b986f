// The objects of a bucket keep to the contract as far as a store of objects goes. Run against a
// real store, where the environment names one: VFS_TEST_S3_ENDPOINT, VFS_TEST_S3_ACCESS_KEY,
// VFS_TEST_S3_SECRET_KEY and VFS_TEST_S3_BUCKET, a bucket that is there.

#include "remote/server.hpp"

#include <foundation/storage/conformance/contract_gtest.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/s3/s3_factory.hpp>

#include <fl/i18n/conversion.hpp>

#include <cstdlib>
#include <exception>
#include <map>
#include <random>
#include <string>

namespace {

using namespace foundation::storage::conformance;
using foundation::storage::provider::IProvider;
using foundation::storage::provider::StorageIRI;
namespace s3 = foundation::storage::provider::s3;

std::string variable(char const* name) {
    char const* const value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nobody sets it
    return value ? value : "";
}

bool isThereAStore() {
    return !variable("VFS_TEST_S3_ENDPOINT").empty() && !variable("VFS_TEST_S3_BUCKET").empty();
}

s3::S3Options storeOptions() {
    s3::S3Options options;
    options.web.proxy = "";
    options.endpoint = variable("VFS_TEST_S3_ENDPOINT");
    if (std::string const region = variable("VFS_TEST_S3_REGION"); !region.empty()) {
        options.region = region;
    }
    options.addressing = s3::AddressingStyle::Path;
    options.credentials.accessKey = variable("VFS_TEST_S3_ACCESS_KEY");
    options.credentials.secretKey = variable("VFS_TEST_S3_SECRET_KEY");
    return options;
}

/// A folder of the bucket, which goes with all that is in it.
class BucketFolder {
  public:
    BucketFolder()
        : location_(fl::i18n::to_ustring("s3://" + variable("VFS_TEST_S3_BUCKET") + "/contract-" +
                                         std::to_string(std::random_device{}()))),
          provider_(s3::buildS3Provider(location_, storeOptions())) {
        provider_->createFolder(location_);
    }
    BucketFolder(BucketFolder const&) = delete;
    BucketFolder& operator=(BucketFolder const&) = delete;
    ~BucketFolder() {
        try {
            provider_->removeFolderRecursively(location_);
        } catch (std::exception const& failure) {
            ADD_FAILURE() << "the place could not be removed: " << failure.what();
        }
    }
    StorageIRI const& location() const { return location_; }
    std::shared_ptr<IProvider> const& provider() const { return provider_; }

  private:
    StorageIRI const location_;
    std::shared_ptr<IProvider> const provider_;
};

Place bucketPlace() {
    auto const folder = std::make_shared<BucketFolder>();
    return {folder->provider(), folder->location(), {}, folder};
}

constexpr char onlyUtf8[] = "a key is UTF-8";

std::map<std::string, std::string, std::less<>> deviations() {
    return {
        {"Attributes.ChangesInAFolderMakeItsTimeThatOfNow", "a folder's marker stays as it is"},
        {"Concurrency.ReadersSeeTheOldContentOrTheNew",
         "an object that is replaced while it is read is a failing read"},
        {"Listings.AttributesAreThoseOfTheItem",
         "a listing tells when objects were written, and no times of folders"},
        {"Names.BytesThatAreNotUtf8AreKept", onlyUtf8},
        {"Names.EveryByteIsAName", onlyUtf8},
        {"Names.EveryByteIsTheNameOfAFolder", onlyUtf8},
        {"Names.EveryByteMayStandInAName", onlyUtf8},
        {"Names.ListedNamesLeadBackToTheirItems", onlyUtf8},
        {"Names.PathsMayBeLongerThan4096Bytes", "a key has 1,024 bytes at most"},
        {"Streams.AppendsOfTwoStreamsAreBothKept", "an append takes its place when it is closed"},
    };
}

int const s3Tests = isThereAStore()
                        ? registerContractTests({
                              .name = "S3",
                              .makePlace = bucketPlace,
                              .unsupported = Ability::ReadOnlyItems | Ability::ChangeEvents |
                                             Ability::RecursiveChangeEvents | Ability::Links |
                                             Ability::LinkCreation |
                                             Ability::FolderAttributeChange | Ability::Flushing,
                              .deviations = deviations(),
                          })
                        : 0;

TEST(S3Contract, IsKeptByABucketOfARealStore) {
    VFS_NEEDS_SERVER("VFS_TEST_S3_ENDPOINT");
    EXPECT_GT(s3Tests, 250);
}

} // namespace
