#include <foundation/storage/vfs/resources/folder.hpp>

#include <foundation/storage/vfs/resources/resource.hpp>

#include "fake_provider.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <type_traits>

namespace {

using namespace vfs_test;
using vfs::AbsoluteIRI;
using vfs::CanonicalAbsoluteIRI;
using vfs::ErrorCode;
using vfs::Folder;
using vfs::FolderRemovalPolicy;

class FolderTest : public testing::Test {
  protected:
    Folder folder(char16_t const* text = u"mem:/a/b") const {
        return Folder(AbsoluteIRI(text), storage.reference);
    }

    FakeStorage storage;
};

TEST_F(FolderTest, IsAPlainValueAndNoResource) {
    static_assert(!std::is_polymorphic_v<Folder>);
    static_assert(!std::is_base_of_v<vfs::Resource, Folder>);
    static_assert(std::is_nothrow_move_constructible_v<Folder>);
    EXPECT_EQ(folder().getLocation(), AbsoluteIRI(u"mem:/a/b"));
    EXPECT_TRUE(storage.fake->calls().empty());
}

TEST_F(FolderTest, ForwardsNamesAndParents) {
    EXPECT_EQ(folder().getName(), u"b");
    EXPECT_TRUE(folder().hasParent());
    EXPECT_EQ(folder().getParent().getLocation(), AbsoluteIRI(u"mem:/a"));
    EXPECT_EQ(Folder(folder(), u"c").getLocation(), AbsoluteIRI(u"mem:/a/b/c"));
    EXPECT_TRUE(folder().getStorageSystem() == storage.reference);
}

TEST_F(FolderTest, CanonicalHandleNeverAsksTheProvider) {
    Folder const canonical(CanonicalAbsoluteIRI(u"mem:/a"), storage.reference);
    EXPECT_EQ(canonical.getCanonicalLocation(), AbsoluteIRI(u"mem:/a"));
    EXPECT_TRUE(storage.fake->calls().empty());
    Folder(canonical, u"child").getCanonicalLocation();
    EXPECT_EQ(storage.fake->calls(), std::vector<std::string>{"getCanonicalLocation"});
}

TEST_F(FolderTest, TranslatesWhatItsOperationsThrow) {
    StorageIRI const named(u"mem:/named");
    storage.fake->onGetCanonicalLocation = [&](auto const&) -> StorageIRI { fail(6, named); };
    storage.fake->onGetFolderAttributes = [&](auto const&) -> provider::FolderAttributes {
        fail(6, named);
    };
    storage.fake->onCreateFolder = [&](auto const&) { fail(6, named); };
    storage.fake->onRemoveFolder = [&](auto const&) { fail(6, named); };
    storage.fake->onSetWritable = [&](auto const&, bool) { fail(6, named); };
    storage.fake->onSetLastModified = [&](auto const&, auto const&) { fail(6, named); };
    storage.fake->onGetPathComparator = [&]() -> provider::PathComparatorFunction {
        fail(6, named);
    };
    storage.fake->onGetFilenameSensitivity = [&]() -> provider::FilenameSensitivity {
        fail(6, named);
    };
    storage.fake->onGetExtendedAttributes = [&](auto const&) -> provider::ExtendedAttributes {
        fail(6, named);
    };
    storage.fake->onStopPublishing = [&](auto const&) { fail(6, named); };
    Folder const f = folder();
    boost::posix_time::ptime const time(boost::gregorian::date(2020, 1, 1));
    std::vector<std::function<void()>> const operations{
        [&] { f.getCanonicalLocation(); },
        [&] { f.getAttributes(); },
        [&] { f.createFolder(); },
        [&] { f.removeFolder(FolderRemovalPolicy::NonRecursive); },
        [&] { f.setWritable(true); },
        [&] { f.setLastModified(time); },
        [&] { f.getPathComparator(); },
        [&] { f.getFilenameSensitivity(); },
        [&] { f.createFolderRecursive(); },
        [&] { f.getExtendedAttributes(); },
        [&] { f.stopPublishingEvents(); },
    };
    for (std::size_t i = 0; i < operations.size(); ++i) {
        try {
            operations[i]();
            ADD_FAILURE() << "operation " << i;
        } catch (vfs::Exception const& e) {
            EXPECT_EQ(e.getErrorCode(), ErrorCode::ResourceInUse) << i;
            EXPECT_EQ(e.getLocation().toStorageIRI(), named) << i;
        }
    }
}

TEST_F(FolderTest, LocationWithoutAPathIsInvalidAndHasNoParent) {
    Folder const pathless(provider::StorageItem(storage.fake, StorageIRI(u"mem://h")),
                          storage.reference);
    EXPECT_THROW(pathless.getLocation(), vfs::InvalidIRIException);
    EXPECT_FALSE(pathless.hasParent());
    EXPECT_FALSE(folder(u"mem:/").hasParent());
}

TEST_F(FolderTest, EachOperationAsksTheProviderForItselfAndGivesItsAnswer) {
    boost::posix_time::ptime const time(boost::gregorian::date(1970, 1, 2));
    auto const nothing = [](StorageIRI const&) {};
    storage.fake->onCreateFolder = nothing;
    storage.fake->onStopPublishing = nothing;
    storage.fake->onSetWritable = [](StorageIRI const&, bool) {};
    storage.fake->onSetLastModified = [](StorageIRI const&, auto const&) {};
    storage.fake->onGetFolderAttributes = [&](StorageIRI const&) {
        provider::AttributeValues values;
        values.lastModified = provider::toTimestamp(time);
        return provider::FolderAttributes(values);
    };
    storage.fake->onGetExtendedAttributes = [](StorageIRI const&) {
        return provider::ExtendedAttributes{{"user.x", "y"}};
    };
    storage.fake->onGetFilenameSensitivity = [] {
        return provider::FilenameSensitivity::Preserving;
    };
    storage.fake->onGetPathComparator = [] {
        return [](auto const&, auto const&, provider::CaseModifier) { return true; };
    };

    Folder const f = folder();
    f.createFolder();
    f.createFolderRecursive();
    f.setWritable(true);
    f.setWritable(false);
    f.setLastModified(time);
    f.stopPublishingEvents();
    EXPECT_EQ(f.getAttributes().getLastModified(), time);
    EXPECT_FALSE(f.getAttributes().isWritable());
    EXPECT_EQ(f.getExtendedAttributes().at("user.x"), "y");
    EXPECT_EQ(f.getFilenameSensitivity(), provider::FilenameSensitivity::Preserving);
    EXPECT_TRUE(f.getPathComparator()(u"a", u"b", provider::CaseModifier::Sensitive));

    EXPECT_EQ(
        storage.fake->log(),
        (std::vector<std::string>{
            "createFolder mem:/a/b", "createFolderRecursive mem:/a/b", "setWritable true mem:/a/b",
            "setWritable false mem:/a/b", "setLastModified mem:/a/b 86400",
            "stopPublishingFolderEvents mem:/a/b", "getFolderAttributes mem:/a/b",
            "getFolderAttributes mem:/a/b", "getExtendedAttributes mem:/a/b",
            "getFilenameSensitivity mem:/a/b", "getPathComparator mem:/a/b"}));
}

TEST_F(FolderTest, ParentsAndChildrenBelongToTheSameSystem) {
    FakeStorage other;
    Folder const made(AbsoluteIRI(u"mem:/a/b"), other.reference);
    EXPECT_TRUE(Folder(made, u"c").getStorageSystem() == other.reference);
    EXPECT_TRUE(made.getParent().getStorageSystem() == other.reference);
    EXPECT_TRUE(made.getStorageSystem() != storage.reference);
}

TEST_F(FolderTest, MissingFolderIsAnAnswerAndEveryOtherFailureIsNot) {
    storage.fake->onFolderExists = [](StorageIRI const& l) -> bool { fail(4, l); };
    EXPECT_FALSE(folder().folderExists());
    storage.fake->onFolderExists = [](StorageIRI const& l) -> bool { fail(2, l); };
    EXPECT_EQ(codeOf([&] { (void)folder().folderExists(); }), ErrorCode::PermissionDenied);
    storage.fake->onFolderExists = [](StorageIRI const& l) -> bool {
        throw provider::ChangeEventsNotSupportedException(l);
    };
    EXPECT_THROW((void)folder().folderExists(), provider::ChangeEventsNotSupportedException)
        << "only provider::Exception is translated here";
    storage.fake->onFolderExists = [](StorageIRI const&) { return true; };
    EXPECT_TRUE(folder().folderExists());
}

TEST_F(FolderTest, RemovalWithoutContentIsOneCall) {
    storage.fake->onRemoveFolder = [](StorageIRI const&) {};
    folder().removeFolder(FolderRemovalPolicy::NonRecursive);
    EXPECT_EQ(storage.fake->calls(), std::vector<std::string>{"removeFolder"});
}

TEST_F(FolderTest, RemovalOfATreeIsTheProvidersWhereItOffersIt) {
    storage.fake->onHasFeature = [](provider::ExtendedFeature feature) {
        return feature == provider::ExtendedFeature::RecursiveFolderRemoval;
    };
    storage.fake->onRemoveFolderRecursively = [](StorageIRI const&) {};
    folder().removeFolder(FolderRemovalPolicy::Recursive);
    EXPECT_EQ(storage.fake->calls(),
              (std::vector<std::string>{"hasFeature", "removeFolderRecursively"}));
}

TEST_F(FolderTest, WildcardSupportIsTheProvidersAnswerUntranslated) {
    storage.fake->onHasFeature = [](provider::ExtendedFeature feature) {
        return feature == provider::ExtendedFeature::FlatWildcardListing;
    };
    EXPECT_TRUE(folder().providerSupportsFlatWildcardListing());
    storage.fake->onHasFeature = [](provider::ExtendedFeature) -> bool {
        fail(9, StorageIRI(u"mem:/a"));
    };
    EXPECT_THROW((void)folder().providerSupportsFlatWildcardListing(), provider::Exception);
}

/// Keeps changes back, and counts how often they were asked for.
class FlushableProvider : public FakeProvider, public provider::extensions::IFlushableFilesystem {
  public:
    void flushFilesystem() override {
        if (++flushed > 1) {
            fail(8, StorageIRI(u"mem:/"));
        }
    }
    int flushed = 0;
};

TEST_F(FolderTest, FlushesAProviderThatKeepsChangesBack) {
    folder().flushFilesystem();

    auto const flushable = std::make_shared<FlushableProvider>();
    Folder f(provider::StorageItem(flushable, StorageIRI(u"mem:/a")), storage.reference);
    f.flushFilesystem();
    EXPECT_EQ(flushable->flushed, 1);
    EXPECT_EQ(codeOf([&] { f.flushFilesystem(); }), ErrorCode::NoSpaceLeft);
}

TEST_F(FolderTest, SwapExchangesItemsAndNothingElse) {
    FakeStorage other;
    Folder a(CanonicalAbsoluteIRI(u"mem:/a"), storage.reference);
    Folder b(AbsoluteIRI(u"mem:/b"), other.reference);
    a.swap(b);
    EXPECT_EQ(a.getLocation(), AbsoluteIRI(u"mem:/b"));
    EXPECT_EQ(b.getLocation(), AbsoluteIRI(u"mem:/a"));
    EXPECT_TRUE(a.getStorageSystem() == storage.reference);
    EXPECT_TRUE(b.getStorageSystem() == other.reference);
    a.getCanonicalLocation();
    EXPECT_TRUE(other.fake->calls().empty());
}

TEST_F(FolderTest, ComparesLocationsAloneAndPrintsThem) {
    FakeStorage other;
    Folder const a = folder(u"mem:/a");
    EXPECT_TRUE(a == Folder(AbsoluteIRI(u"mem:/%61/"), other.reference));
    EXPECT_TRUE(a != folder(u"mem:/b"));
    EXPECT_TRUE(a < folder(u"mem:/b"));
    EXPECT_FALSE(folder(u"mem:/b") < a);
    EXPECT_FALSE(a != folder(u"mem:/a"));
    EXPECT_FALSE(a == folder(u"mem:/b"));
    std::ostringstream out;
    out << a;
    EXPECT_EQ(out.str(), "mem:/a");
}

TEST_F(FolderTest, SensitivityIsTheProviders) {
    EXPECT_EQ(folder().getFilenameSensitivity(), provider::FilenameSensitivity::Sensitive);
}

TEST(PathComparator, AnswersAsTheStorageAndTranslatesItsFailures) {
    using provider::CaseModifier;
    vfs::PathComparator const compare(
        [](vfs::ustring const& a, vfs::ustring const& b, CaseModifier modifier) {
            return modifier == CaseModifier::Insensitive || a == b;
        });
    EXPECT_TRUE(compare(u"a", u"A", CaseModifier::Insensitive));
    EXPECT_FALSE(compare(u"a", u"A", CaseModifier::Sensitive));

    vfs::PathComparator const failing(
        [](auto const&, auto const&, CaseModifier) -> bool { fail(9, StorageIRI(u"mem:/a")); });
    EXPECT_EQ(codeOf([&] { failing(u"a", u"b", CaseModifier::AsStorage); }), ErrorCode::IOError);
}

TEST(PathComparator, OfAnEmptyFunctionThrowsBadFunctionCall) {
    vfs::PathComparator const empty{provider::PathComparatorFunction()};
    EXPECT_THROW(empty(u"a", u"b", provider::CaseModifier::AsStorage), std::bad_function_call);
}

TEST(FolderRemovalPolicy, PrintsItsMembersAndNothingElse) {
    std::ostringstream out;
    out << FolderRemovalPolicy::NonRecursive << ' ' << FolderRemovalPolicy::Recursive << ' '
        << static_cast<FolderRemovalPolicy>(2);
    EXPECT_EQ(out.str(), "FolderRemovalPolicy::NonRecursive FolderRemovalPolicy::Recursive ");
}

} // namespace
