#include "child_process.hpp"
#include "local_fixture.hpp"

#include <foundation/storage/provider/local/local_factory.hpp>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <cerrno>
#include <cstdio>
#include <string_view>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace foundation::storage::provider::local::test {
namespace {

using boost::gregorian::date;
using boost::posix_time::ptime;

class LocalExistence : public LocalProviderTest {
  protected:
    LocalExistence() {
        makeFile("file", "12345");
        makeFolder("folder");
        makeFile("folder/inner", "inside");
        makeLink("link to file", "file");
        makeLink("link to folder", "folder");
        makeLink("link to nothing", "missing");
        makeLink("circle", "circle");
        makeFifo("fifo");
    }
};

struct Expected {
    char const* name;
    ExistsResult result;
    ExtendedExistsResult extended;
    bool folder;
};

constexpr Expected expectations[] = {
    {"file", ExistsResult::File, ExtendedExistsResult::File, false},
    {"folder", ExistsResult::Folder, ExtendedExistsResult::Folder, true},
    {"link to file", ExistsResult::File, ExtendedExistsResult::LinkToFile, false},
    {"link to folder", ExistsResult::File, ExtendedExistsResult::LinkToFolder, true},
    {"link to nothing", ExistsResult::File, ExtendedExistsResult::DanglingLink, false},
    {"circle", ExistsResult::File, ExtendedExistsResult::DanglingLink, false},
    {"fifo", ExistsResult::File, ExtendedExistsResult::Other, false},
    {"missing", ExistsResult::Nothing, ExtendedExistsResult::Nothing, false},
    {"missing/child", ExistsResult::Nothing, ExtendedExistsResult::Nothing, false},
    {"file/child", ExistsResult::Nothing, ExtendedExistsResult::Nothing, false},
    {"link to folder/inner", ExistsResult::File, ExtendedExistsResult::File, false},
    {"folder/..", ExistsResult::Folder, ExtendedExistsResult::Folder, true},
};

TEST_F(LocalExistence, TellsEveryKindOfItemApart) {
    for (Expected const& expected : expectations) {
        StorageIRI const location = at(expected.name);
        EXPECT_EQ(provider_->exists(location), expected.result) << expected.name;
        EXPECT_EQ(provider_->existsExtended(location), expected.extended) << expected.name;
        EXPECT_EQ(provider_->fileExists(location), expected.result == ExistsResult::File)
            << expected.name;
        EXPECT_EQ(provider_->folderExists(location), expected.folder) << expected.name;
    }
}

TEST_F(LocalExistence, CallsASocketAndADeviceOther) {
    int const socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path("socket").size(), sizeof address.sun_path);
    path("socket").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(socket, reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);
    ::close(socket);

    EXPECT_EQ(provider_->existsExtended(at("socket")), ExtendedExistsResult::Other);
    EXPECT_EQ(provider_->existsExtended(StorageIRI(u"file:///dev/null")),
              ExtendedExistsResult::Other);
}

TEST_F(LocalExistence, ATrailingSlashDoesNotFollowALink) {
    StorageIRI const location(at("link to folder").toString() + u"/");

    EXPECT_EQ(provider_->exists(location), ExistsResult::File);
}

TEST_F(LocalExistence, ANameThatIsTooLongIsInvalid) {
    StorageIRI const location = at(std::string(256, 'n'));

    EXPECT_TRUE(
        isRefused([&] { provider_->exists(location); }, ErrorCode::InvalidLocation, location));
}

TEST_F(LocalExistence, ALoopOnTheWayIsInvalid) {
    StorageIRI const location = at("circle/child");

    EXPECT_TRUE(
        isRefused([&] { provider_->exists(location); }, ErrorCode::InvalidLocation, location));
}

TEST_F(LocalExistence, AnotherHostIsInvalid) {
    StorageIRI const location(u"file://elsewhere/file");

    EXPECT_TRUE(
        isRefused([&] { provider_->exists(location); }, ErrorCode::InvalidLocation, location));
}

TEST_F(LocalExistence, DeclaresTheFeaturesThatItHas) {
    struct {
        ExtendedFeature feature;
        bool declared;
    } const expected[] = {
        {ExtendedFeature::RecursiveFolderRemoval, true},
        {ExtendedFeature::RecursiveListing, true},
        {ExtendedFeature::FlatWildcardListing, true},
        {ExtendedFeature::RecursiveChangeEvents, true},
        {ExtendedFeature::RecursiveWildcardListing, true},
    };
    for (auto const& [feature, declared] : expected) {
        EXPECT_EQ(provider_->hasFeature(at("folder"), feature), declared)
            << static_cast<int>(feature);
    }
}

TEST_F(LocalExistence, NamesThatDifferInCaseAreTwoNames) {
    EXPECT_EQ(provider_->getFilenameSensitivity(at("")), FilenameSensitivity::Sensitive);
    PathComparatorFunction const same = provider_->getPathComparator(at(""));
    EXPECT_TRUE(same(u"name", u"name", CaseModifier::AsStorage));
    EXPECT_FALSE(same(u"name", u"Name", CaseModifier::AsStorage));
}

TEST_F(LocalExistence, TheCanonicalLocationHasNoLinks) {
    EXPECT_EQ(provider_->getCanonicalLocation(at("link to folder/../link to file")), at("file"));
    EXPECT_EQ(provider_->getCanonicalLocation(at("folder/new")), at("folder/new"));
    EXPECT_TRUE(isRefused([&] { provider_->getCanonicalLocation(at("missing/new")); },
                          ErrorCode::ResourceNotFound, at("missing/new")));
}

TEST_F(LocalExistence, FileAttributesAreThoseOfTheFile) {
    setTimes("file", {1'000'000'000, 111'222'333}, {1'234'567'890, 123'456'789});

    AttributeValues const values = provider_->getFileAttributes(at("file")).values();

    EXPECT_EQ(values.lastModified, (Timestamp{1'234'567'890, 123'456'789}));
    EXPECT_EQ(values.lastAccessed, (Timestamp{1'000'000'000, 111'222'333}));
    EXPECT_EQ(values.size, 5U);
    EXPECT_EQ(values.mode, 0644U);
    EXPECT_TRUE(values.writable);
}

TEST_F(LocalExistence, AttributesBeforeTheEpochKeepTheirNanoseconds) {
    setTimes("file", {-5, 1}, {-86'400, 999'999'999});

    EXPECT_EQ(provider_->getFileAttributes(at("file")).values().lastModified,
              (Timestamp{-86'400, 999'999'999}));
}

TEST_F(LocalExistence, AttributesFollowALink) {
    ASSERT_EQ(::chmod(path("file").c_str(), 0400), 0);

    AttributeValues const values = provider_->getFileAttributes(at("link to file")).values();

    EXPECT_EQ(values.size, 5U);
    EXPECT_FALSE(values.writable);
    EXPECT_EQ(provider_->getFolderAttributes(at("link to folder")).values().mode, 0755U);
    EXPECT_EQ(provider_->getFileAttributes(at("link to folder")).values().mode, 0755U);
}

TEST_F(LocalExistence, ALinkThatLeadsNowhereHasItsOwnAttributes) {
    setTimes("link to nothing", {1, 0}, {77, 5});

    EXPECT_EQ(provider_->getFileAttributes(at("link to nothing")).values().lastModified,
              (Timestamp{77, 5}));
    EXPECT_EQ(provider_->getFileAttributes(at("circle")).values().size, 6U);
}

TEST_F(LocalExistence, AttributesOfTheWrongKindOrNothingAreRefused) {
    EXPECT_TRUE(isRefused([&] { provider_->getFileAttributes(at("folder")); },
                          ErrorCode::InvalidLocation, at("folder")));
    EXPECT_TRUE(isRefused([&] { provider_->getFolderAttributes(at("file")); },
                          ErrorCode::ResourceNotFound, at("file")));
    EXPECT_TRUE(isRefused([&] { provider_->getFileAttributes(at("missing")); },
                          ErrorCode::ResourceNotFound, at("missing")));
    EXPECT_TRUE(isRefused([&] { provider_->getFolderAttributes(at("file/child")); },
                          ErrorCode::ResourceNotFound, at("file/child")));
    EXPECT_TRUE(isRefused([&] { provider_->getExtendedAttributes(at("missing")); },
                          ErrorCode::ResourceNotFound, at("missing")));
}

TEST_F(LocalExistence, ExtendedAttributesNameWhatTheKernelKnows) {
    ASSERT_EQ(::link(path("file").c_str(), path("second name").c_str()), 0);
    struct stat const item = status("file");

    ExtendedAttributes const attributes = provider_->getExtendedAttributes(at("link to file"));

    EXPECT_EQ(attributes.at("posix.mode"), "0644");
    EXPECT_EQ(attributes.at("posix.uid"), std::to_string(item.st_uid));
    EXPECT_EQ(attributes.at("posix.gid"), std::to_string(item.st_gid));
    EXPECT_EQ(attributes.at("posix.inode"), std::to_string(item.st_ino));
    EXPECT_EQ(attributes.at("posix.device"),
              std::to_string(major(item.st_dev)) + ':' + std::to_string(minor(item.st_dev)));
    EXPECT_EQ(attributes.at("posix.links"), "2");
}

TEST_F(LocalExistence, ExtendedAttributesHoldTheUsersOwn) {
    std::string const value("with a \0 inside", 15);
    if (::setxattr(path("file").c_str(), "user.comment", value.data(), value.size(), 0) != 0) {
        GTEST_SKIP() << "reason: the file system of the temporary folder has no user attributes";
    }
    ASSERT_EQ(::setxattr(path("file").c_str(), "user.empty", "", 0, 0), 0);

    ExtendedAttributes const attributes = provider_->getExtendedAttributes(at("file"));

    EXPECT_EQ(attributes.at("user.comment"), value);
    EXPECT_EQ(attributes.at("user.empty"), "");
    EXPECT_EQ(attributes.size(), 8U);
}

TEST_F(LocalExistence, ExtendedAttributesOfALinkThatLeadsNowhereAreItsOwn) {
    EXPECT_EQ(provider_->getExtendedAttributes(at("link to nothing")).at("posix.inode"),
              std::to_string(status("link to nothing").st_ino));
}

TEST_F(LocalExistence, ExtendedAttributesThatAreCutOffOrUnreadableAreLeftOut) {
    std::string const outcome = inChild([&] {
        injectFaults({{SYS_getxattr, 0, 0, EACCES}});
        interceptCalls(SYS_listxattr, 0, 0, [](auto const* arguments) -> std::optional<long> {
            static constexpr std::string_view list("user.whole\0user.cut", 19);
            if (arguments[2] >= list.size()) {
                list.copy(reinterpret_cast<char*>(arguments[1]), list.size());
            }
            return static_cast<long>(list.size());
        });
        return std::to_string(provider_->getExtendedAttributes(at("file")).size());
    });

    EXPECT_EQ(outcome, "6");
}

TEST_F(LocalExistence, SettingTheTimeKeepsTheTimeOfAccess) {
    setTimes("file", {42, 7}, {1, 0});
    ptime const time(date(2001, 2, 3), boost::posix_time::microseconds(4'000'005));

    provider_->setLastModified(at("file"), time);

    EXPECT_EQ(provider_->getFileAttributes(at("file")).getLastModified(), time);
    EXPECT_EQ(status("file").st_atim.tv_sec, 42);
    EXPECT_EQ(status("file").st_atim.tv_nsec, 7);
}

TEST_F(LocalExistence, TheTimeOfAFolderAndBehindALinkCanBeSet) {
    ptime const time(date(1999, 12, 31));

    provider_->setLastModified(at("link to folder"), time);

    EXPECT_EQ(provider_->getFolderAttributes(at("folder")).getLastModified(), time);
}

TEST_F(LocalExistence, TheTimeOfALinkThatLeadsNowhereIsItsOwn) {
    provider_->setLastModified(at("link to nothing"), ptime(date(1999, 12, 31)));

    EXPECT_EQ(status("link to nothing").st_mtim.tv_sec, 946'598'400);
    EXPECT_FALSE(isThere("missing"));
}

TEST_F(LocalExistence, TheTimeOfNothingCannotBeSet) {
    EXPECT_TRUE(
        isRefused([&] { provider_->setLastModified(at("missing"), ptime(date(1999, 12, 31))); },
                  ErrorCode::ResourceNotFound, at("missing")));
    EXPECT_THROW(provider_->setLastModified(at("file"), ptime()), std::invalid_argument);
}

TEST_F(LocalExistence, WritableIsTheOwnersWriteBit) {
    ASSERT_EQ(::chmod(path("file").c_str(), 0466), 0);
    EXPECT_FALSE(provider_->getFileAttributes(at("file")).isWritable());

    provider_->setWritable(at("file"), true);

    EXPECT_TRUE(provider_->getFileAttributes(at("file")).isWritable());
    EXPECT_EQ(status("file").st_mode & 07777, 0666U);
}

TEST_F(LocalExistence, ReadOnlyTakesEveryWriteBitAway) {
    ASSERT_EQ(::chmod(path("file").c_str(), 04776), 0);

    provider_->setWritable(at("link to file"), false);

    EXPECT_EQ(status("file").st_mode & 07777, 04554U);
    provider_->setWritable(at("link to file"), true);
    EXPECT_EQ(status("file").st_mode & 07777, 04754U);
}

TEST_F(LocalExistence, AFolderCanBeReadOnly) {
    provider_->setWritable(at("folder"), false);

    EXPECT_FALSE(provider_->getFolderAttributes(at("folder")).isWritable());
    EXPECT_EQ(status("folder").st_mode & 07777, 0555U);
}

TEST_F(LocalExistence, ALinkThatIsTurnedMeanwhileLetsNoOtherFileBeChanged) {
    for (bool const withDescriptorPaths : {true, false}) {
        if (!withDescriptorPaths && !mayMount()) {
            GTEST_SKIP() << "reason: hiding /proc needs the right to mount";
        }
        std::string const outcome = inChild([&] {
            ::chmod(path("file").c_str(), 0755);
            ::unlink(path("link to file").c_str());
            makeLink("link to file", "file");
            makeFile("secret", "secret", 0600);
            if (!withDescriptorPaths && !mountMemory("/proc", "1m")) {
                return std::string("not mounted");
            }
            interceptCalls(SYS_fchmodat, 0, 0, [&](auto const*) -> std::optional<long> {
                ::unlink(path("link to file").c_str());
                makeLink("link to file", "secret");
                return std::nullopt;
            });
            auto const refusal =
                refusalOf([&] { provider_->setWritable(at("link to file"), false); });
            char text[64];
            std::snprintf(text, sizeof text, "%d %o %o", refusal ? 1 : 0,
                          status("file").st_mode & 07777U, status("secret").st_mode & 07777U);
            return std::string(text);
        });
        EXPECT_EQ(outcome, withDescriptorPaths ? "0 555 600" : "1 755 600");
    }
}

TEST_F(LocalExistence, WritabilityIsSetWithoutDescriptorPathsToo) {
    if (!mayMount()) {
        GTEST_SKIP() << "reason: hiding /proc needs the right to mount";
    }
    std::string const outcome = inChild([&] {
        if (!mountMemory("/proc", "1m")) {
            return std::string("not mounted");
        }
        provider_->setWritable(at("link to file"), false);
        return std::string((status("file").st_mode & 0222) == 0 ? "read-only" : "writable");
    });

    EXPECT_EQ(outcome, "read-only");
}

TEST_F(LocalExistence, WhatIsNotThereCannotBeMadeWritable) {
    EXPECT_TRUE(isRefused([&] { provider_->setWritable(at("missing"), true); },
                          ErrorCode::ResourceNotFound, at("missing")));
    EXPECT_TRUE(isRefused([&] { provider_->setWritable(at("link to nothing"), false); },
                          ErrorCode::UnsupportedOperation, at("link to nothing")));
}

TEST_F(LocalExistence, TheFactoryGivesOneProviderForEveryLocation) {
    LocalProviderFactory const factory;

    std::shared_ptr<IProvider> const provider = factory.buildProvider(at("file"));
    factory.shutdownProvider();

    EXPECT_EQ(factory.buildProvider(at("folder")), provider);
    EXPECT_TRUE(provider->fileExists(at("file")));
}

class LocalFollowingLinks : public LocalProviderTest {
  protected:
    LocalFollowingLinks() : LocalProviderTest({.followLinks = true}) {
        makeFile("file", "content");
        makeFolder("folder");
        makeFile("folder/inner");
        makeLink("link to file", "file");
        makeLink("link to folder", "folder");
        makeLink("link to nothing", "missing");
    }
};

TEST_F(LocalFollowingLinks, ALinkIsWhatItLeadsTo) {
    EXPECT_EQ(provider_->exists(at("link to folder")), ExistsResult::Folder);
    EXPECT_EQ(provider_->existsExtended(at("link to folder")), ExtendedExistsResult::Folder);
    EXPECT_EQ(provider_->existsExtended(at("link to file")), ExtendedExistsResult::File);
    EXPECT_EQ(provider_->exists(at("link to nothing")), ExistsResult::File);
    EXPECT_EQ(provider_->existsExtended(at("link to nothing")), ExtendedExistsResult::DanglingLink);
    EXPECT_TRUE(isRefused([&] { provider_->getFileAttributes(at("link to folder")); },
                          ErrorCode::InvalidLocation, at("link to folder")));
}

TEST_F(LocalFollowingLinks, ACopyOfALinkIsACopyOfTheFile) {
    copy("link to file", "copy");

    EXPECT_TRUE(S_ISREG(status("copy").st_mode));
    EXPECT_EQ(content("copy"), "content");
}

TEST_F(LocalFollowingLinks, ACopyOntoALinkReplacesWhatItLeadsTo) {
    makeFile("new", "new content");

    copy("new", "link to file", ReplacementPolicy::ReplaceExisting);

    EXPECT_EQ(target("link to file"), "file");
    EXPECT_EQ(content("file"), "new content");
}

TEST_F(LocalFollowingLinks, ACopyBetweenTwoLinksToOneFileIsRefused) {
    makeLink("second link", "file");

    EXPECT_TRUE(
        isRefused([&] { copy("link to file", "second link", ReplacementPolicy::ReplaceExisting); },
                  ErrorCode::InvalidLocation, at("link to file")));
    EXPECT_EQ(content("file"), "content");
}

TEST_F(LocalFollowingLinks, RemovalTakesTheLinkAndNotItsTarget) {
    provider_->removeFile(at("link to file"));
    provider_->removeFolder(at("link to folder"));

    EXPECT_FALSE(isThere("link to file"));
    EXPECT_FALSE(isThere("link to folder"));
    EXPECT_TRUE(isThere("file"));
    EXPECT_TRUE(isThere("folder/inner"));
}

} // namespace
} // namespace foundation::storage::provider::local::test
