#include "local_fixture.hpp"

#include <sys/stat.h>

namespace foundation::storage::provider::local::test {
namespace {

class LocalNames : public LocalProviderTest, public ::testing::WithParamInterface<std::string> {};

TEST_P(LocalNames, EveryOperationReachesTheFileOfThatName) {
    std::string const& name = GetParam();
    StorageIRI const location = at(name);

    provider_->createFile(location);
    EXPECT_EQ(names(), std::vector<std::string>{name});
    EXPECT_TRUE(provider_->fileExists(StorageIRI(location.toString())));
    EXPECT_EQ(StorageIRI(at(""), location.getName()), location);

    auto const stream = provider_->openStream(location, {});
    writeAll(*stream, "bytes");
    stream->close();
    EXPECT_EQ(content(name), "bytes");
    EXPECT_EQ(provider_->getCanonicalLocation(location), location);

    copy(name, name + ".copy");
    provider_->removeFile(location);
    provider_->moveFile(at(name + ".copy"), location, ReplacementPolicy::FailIfExists);
    EXPECT_EQ(names(), std::vector<std::string>{name});
    provider_->removeFile(location);

    provider_->createFolderRecursive(StorageIRI(location, u"inner"));
    EXPECT_TRUE(isThere(name + "/inner"));
}

INSTANTIATE_TEST_SUITE_P(Names, LocalNames,
                         ::testing::Values("with space", "per%cent", "per%41cent", "what?", "ha#sh",
                                           "bang!", "two\nlines", "tab\t", "back\\slash",
                                           "\xf0\x9f\x98\x80", "caf\xc3\xa9", "caf\xe9",
                                           "\xff\xfe\x80", "a:b", "~", "...", "-rf", "\x01\x7f",
                                           "cut\xf0\x9f\x98", "\xed\xa0\x80"));

class LocalSeparators : public LocalProviderTest {};

TEST_F(LocalSeparators, AFolderWhoseNameEndsInABangIsAFolder) {
    StorageIRI const location = at("archive.zip!/inner");

    provider_->createFolderRecursive(location);

    EXPECT_TRUE(isThere("archive.zip!/inner"));
}

TEST_F(LocalSeparators, DotDotIsForTheKernelAndLeavesTheTargetOfALink) {
    makeFolder("a");
    makeFolder("a/b");
    makeFile("a/found", "kernel");
    makeLink("link", "a/b");

    EXPECT_EQ(
        readAll(*provider_->openReadOnlyStream(StorageIRI(at("").toString() + u"/link/../found"))),
        "kernel");
}

} // namespace
} // namespace foundation::storage::provider::local::test
