#include <foundation/storage/provider/standard/standard_storage_system.hpp>

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using namespace foundation::storage::provider;
using foundation::storage::vfs::UnsupportedIRISchemeException;
using standard::makeStandardStorageSystem;
using standard::standardProviders;

StorageItem itemOf(foundation::storage::vfs::PluggableStorageSystem const& system,
                   char16_t const* text) {
    StorageIRI const location{ustring(text)};
    return StorageItem(system.buildProvider(location), location);
}

TEST(StandardStorageSystem, ServesTheLocalDisk) {
    auto const system = makeStandardStorageSystem();
    EXPECT_TRUE(itemOf(*system, u"file:///").folderExists());
    EXPECT_EQ(itemOf(*system, u"file:///").folderExists(), std::filesystem::is_directory("/"));
    std::string folder = std::filesystem::temp_directory_path() / "vfs-standard-XXXXXX";
    ASSERT_NE(::mkdtemp(folder.data()), nullptr);
    std::u16string const location = u"file://" + std::u16string(folder.begin(), folder.end());
    itemOf(*system, (location + u"/made").c_str()).createFile();
    EXPECT_TRUE(std::filesystem::exists(folder + "/made"));
    std::filesystem::remove_all(folder);
}

TEST(StandardStorageSystem, ServesItsOwnMemory) {
    auto const system = makeStandardStorageSystem();
    itemOf(*system, u"mem:/a").createFile();
    EXPECT_TRUE(itemOf(*system, u"mem:/a").fileExists());
    EXPECT_FALSE(itemOf(*makeStandardStorageSystem(), u"mem:/a").fileExists());
}

TEST(StandardStorageSystem, HandsTheOptionsOn) {
    standard::StandardOptions options;
    options.memory.maximumEntries = 1;
    auto const system = makeStandardStorageSystem(options);
    itemOf(*system, u"mem:/a").createFile();
    try {
        itemOf(*system, u"mem:/b").createFile();
        FAIL() << "the limit was not heard of";
    } catch (Exception const& e) {
        EXPECT_EQ(e.getErrorCode(), ErrorCode::NoSpaceLeft);
    }
}

TEST(StandardStorageSystem, CopiesFromOneStorageToTheOther) {
    auto const system = makeStandardStorageSystem();
    itemOf(*system, u"mem:/folder").createFolder();
    itemOf(*system, u"file:///proc/self/status")
        .copyFile(itemOf(*system, u"mem:/folder/status"), {});
    auto const stream = itemOf(*system, u"mem:/folder/status").openReadOnlyStream();
    char start[5];
    EXPECT_EQ(stream->read(start, sizeof start), 5);
    EXPECT_EQ(std::string(start, sizeof start), "Name:");
}

TEST(StandardStorageSystem, RefusesASchemeThatNobodyRegistered) {
    EXPECT_THROW(itemOf(*makeStandardStorageSystem(), u"unheard-of:/a"),
                 UnsupportedIRISchemeException);
}

TEST(StandardStorageSystem, SaysWhichSchemesItServes) {
    std::vector<std::string> schemes;
    auto const system = makeStandardStorageSystem();
    itemOf(*system, u"mem:/item").createFile();
    for (auto const& provider : standardProviders()) {
        schemes.emplace_back(provider.scheme);
        EXPECT_FALSE(provider.description.empty());
        EXPECT_EQ(provider.description.find('\n'), std::string::npos);
        std::u16string const root = std::u16string(provider.scheme.begin(), provider.scheme.end()) +
                                    (provider.isContainer    ? u":mem:/item!/"
                                     : provider.namesServers ? u"://localhost/"
                                                             : u":/");
        EXPECT_NE(system->buildProvider(StorageIRI(root)), nullptr);
    }
    EXPECT_THAT(schemes,
                testing::IsSupersetOf({"file", "http", "https", "mem", "s3", "tar", "zip"}));
    EXPECT_TRUE(std::is_sorted(schemes.begin(), schemes.end()));
}

} // namespace
