// Trees of an object store, and what no location of it names.

#include "unit/providers/s3/bucket_fixture.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/standard/standard_storage_system.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>
#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>

#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <optional>

namespace {

namespace provider = foundation::storage::provider;
namespace s3 = provider::s3;
namespace standard = provider::standard;
namespace vfs = foundation::storage::vfs;
using provider::ReplacementPolicy;
using ::testing::ElementsAreArray;

class TreesOfAStore : public s3::detail::LyingStore {
  protected:
    void SetUp() override {
        standard::StandardOptions all;
        all.s3 = options();
        system_ = standard::makeStandardStorageSystem(all);
        bucket_.emplace("good", options());
        for (std::string const& key : keysAtFirst_) {
            bucket_->put(key, key, {}, bucket_->deadline());
        }
    }
    void TearDown() override { std::filesystem::remove_all(disk_); }

    vfs::AbsoluteIRI at(std::string const& location) const {
        return vfs::AbsoluteIRI(fl::i18n::to_ustring(location));
    }
    vfs::Folder folder(std::string const& location) const { return {at(location), reference()}; }
    bool isFile(std::string const& location) const {
        return vfs::File(at(location), reference()).fileExists();
    }
    std::vector<std::string> keys() const {
        std::vector<std::string> keys;
        for (auto const& object : bucket_->list({}, bucket_->deadline()).objects) {
            keys.push_back(object.key);
        }
        return keys;
    }

    std::vector<std::string> const keysAtFirst_{"d//hidden", "d/logs", "d/logs/2024", "d/x"};
    std::filesystem::path const disk_ =
        std::filesystem::temp_directory_path() / ("store_trees_test_" + std::to_string(getpid()));
    std::optional<s3::detail::Bucket> bucket_;

  private:
    vfs::StorageSystemReference reference() const {
        return vfs::StorageSystemReference(std::weak_ptr<vfs::StorageSystem>(system_));
    }

    std::shared_ptr<vfs::StorageSystem> system_;
};

TEST_F(TreesOfAStore, AMoveToAnotherStorageRemovesNothingWhereSomethingCannotBeNamed) {
    for (std::string const& target : {std::string("mem:/moved"), "file://" + disk_.string()}) {
        for (ReplacementPolicy const policy :
             {ReplacementPolicy::FailIfExists, ReplacementPolicy::ReplaceReadOnly}) {
            try {
                folder("s3://good/d").moveFolder(folder(target), policy);
                FAIL() << target;
            } catch (vfs::Exception const& failure) {
                if (policy == ReplacementPolicy::FailIfExists) {
                    EXPECT_EQ(failure.getErrorCode(), vfs::ErrorCode::IOError);
                    EXPECT_EQ(failure.getLocation(), at("s3://good/d"));
                    EXPECT_EQ(failure.getReason(),
                              "2 keys or prefixes of keys cannot be listed as files and folders, "
                              "the first: d//");
                }
            }
            EXPECT_THAT(keys(), ElementsAreArray(keysAtFirst_));
            EXPECT_TRUE(isFile(target + "/x"));
            EXPECT_TRUE(isFile(target + "/logs"));
        }
    }
}

TEST_F(TreesOfAStore, ARemovalTakesWhatCannotBeNamed) {
    folder("s3://good/d").removeFolder(vfs::FolderRemovalPolicy::Recursive);
    EXPECT_THAT(keys(), ElementsAreArray(std::vector<std::string>()));
}

} // namespace
