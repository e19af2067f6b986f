#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/property_tree/ptree.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>

using namespace foundation::storage::provider;
using fl::i18n::ustring;

namespace {

/// The least that a provider may be.
class SmallestProvider final : public IProvider {
  public:
    ExistsResult exists(StorageIRI const& location) const override {
        if (location.getName() == u"thrown") {
            throw Exception(ErrorCode::ResourceNotFound, location);
        }
        if (location.getName() == u"denied") {
            throw Exception(ErrorCode::PermissionDenied, location);
        }
        return location.getName() == u"file"     ? ExistsResult::File
               : location.getName() == u"folder" ? ExistsResult::Folder
                                                 : ExistsResult::Nothing;
    }
};

StorageIRI const file(u"small:/file");
StorageIRI const folder(u"small:/folder");
StorageIRI const nothing(u"small:/nothing");
StorageIRI const thrown(u"small:/thrown");
StorageIRI const denied(u"small:/denied");

} // namespace

TEST(ProviderDefaults, ExistenceIsDerivedFromTheOneQuestion) {
    SmallestProvider const provider;

    EXPECT_EQ(provider.existsExtended(file), ExtendedExistsResult::File);
    EXPECT_EQ(provider.existsExtended(folder), ExtendedExistsResult::Folder);
    EXPECT_EQ(provider.existsExtended(nothing), ExtendedExistsResult::Nothing);
    EXPECT_TRUE(provider.fileExists(file));
    EXPECT_FALSE(provider.fileExists(folder));
    EXPECT_FALSE(provider.fileExists(nothing));
    EXPECT_FALSE(provider.folderExists(file));
    EXPECT_TRUE(provider.folderExists(folder));
    EXPECT_FALSE(provider.folderExists(nothing));
}

TEST(ProviderDefaults, AMissingItemIsFalseWhereTheProviderThrowsForIt) {
    SmallestProvider const provider;

    EXPECT_FALSE(provider.fileExists(thrown));
    EXPECT_FALSE(provider.folderExists(thrown));
    EXPECT_THROW(provider.fileExists(denied), Exception);
    EXPECT_THROW(provider.folderExists(denied), Exception);
}

TEST(ProviderDefaults, NothingIsOffered) {
    SmallestProvider const provider;

    for (unsigned feature = 0; feature <= 4; ++feature) {
        EXPECT_FALSE(provider.hasFeature(folder, static_cast<ExtendedFeature>(feature)));
    }
    EXPECT_EQ(provider.getFilenameSensitivity(folder), FilenameSensitivity::Sensitive);
}

TEST(ProviderDefaults, TheCanonicalLocationIsTheResolvedOne) {
    SmallestProvider const provider;

    EXPECT_EQ(provider.getCanonicalLocation(StorageIRI(u"small://h/a/../b//c?q")).toString(),
              u"small://h/b/c?q");
    EXPECT_EQ(provider.getCanonicalLocation(StorageIRI(u"small://h")).toString(), u"small://h");
}

TEST(ProviderDefaults, NamesCompareByCodeUnitUnlessAskedOtherwise) {
    PathComparatorFunction const same = SmallestProvider().getPathComparator(folder);

    EXPECT_TRUE(same(u"a/b", u"a/b", CaseModifier::AsStorage));
    EXPECT_FALSE(same(u"a", u"A", CaseModifier::AsStorage));
    EXPECT_FALSE(same(u"a", u"A", CaseModifier::Sensitive));
    EXPECT_TRUE(same(u"aZ[", u"Az[", CaseModifier::Insensitive));
    EXPECT_FALSE(same(u"é", u"É", CaseModifier::Insensitive)) << "ASCII letters only";
    EXPECT_FALSE(same(u"a", u"ab", CaseModifier::Insensitive));
    EXPECT_FALSE(same(u"@", u"`", CaseModifier::Insensitive));
}

TEST(ProviderDefaults, EverythingElseIsRefusedNamingTheItem) {
    SmallestProvider provider;
    StorageIRI const other(u"small:/other");
    struct {
        char const* what;
        std::function<void()> call;
    } const cases[] = {
        {"getFileAttributes", [&] { provider.getFileAttributes(file); }},
        {"getFolderAttributes", [&] { provider.getFolderAttributes(file); }},
        {"getExtendedAttributes", [&] { provider.getExtendedAttributes(file); }},
        {"setLastModified", [&] { provider.setLastModified(file, {}); }},
        {"setWritable", [&] { provider.setWritable(file, true); }},
        {"createFile", [&] { provider.createFile(file); }},
        {"createFolder", [&] { provider.createFolder(file); }},
        {"createFolderRecursive", [&] { provider.createFolderRecursive(file); }},
        {"removeFile", [&] { provider.removeFile(file); }},
        {"removeFolder", [&] { provider.removeFolder(file); }},
        {"removeFolderRecursively", [&] { provider.removeFolderRecursively(file); }},
        {"moveFile", [&] { provider.moveFile(file, other, ReplacementPolicy::FailIfExists); }},
        {"moveFolder", [&] { provider.moveFolder(file, other, ReplacementPolicy::FailIfExists); }},
        {"openStream", [&] { provider.openStream(file, {}); }},
        {"openReadOnlyStream", [&] { provider.openReadOnlyStream(file); }},
        {"listAll", [&] { provider.listAll(file, u""); }},
        {"listFiles", [&] { provider.listFiles(file, u""); }},
        {"listFolders", [&] { provider.listFolders(file, u""); }},
        {"listAllNamesOnly", [&] { provider.listAllNamesOnly(file, u""); }},
        {"listFilesNamesOnly", [&] { provider.listFilesNamesOnly(file, u""); }},
        {"listFoldersNamesOnly", [&] { provider.listFoldersNamesOnly(file, u""); }},
        {"listAllRecursive", [&] { provider.listAllRecursive(file, u""); }},
        {"listAllRecursiveNamesOnly", [&] { provider.listAllRecursiveNamesOnly(file, u""); }},
    };
    for (auto const& c : cases) {
        try {
            c.call();
            ADD_FAILURE() << c.what << " was not refused";
        } catch (Exception const& e) {
            EXPECT_EQ(e.getErrorCode(), ErrorCode::UnsupportedOperation) << c.what;
            EXPECT_EQ(e.getStorageIRI(), file) << c.what;
        }
    }
}

TEST(ProviderDefaults, MovingAFolderOntoOrIntoItselfIsInvalid) {
    SmallestProvider provider;
    StorageIRI const source(u"small:/a/b");
    for (char16_t const* inside : {u"small:/a/b", u"small:/a/b/", u"small:/a/c/../b",
                                   u"small:/a/b/c", u"small:/a/x/../b/c/d"}) {
        try {
            provider.moveFolder(source, StorageIRI(inside), ReplacementPolicy::KeepExisting);
            ADD_FAILURE() << "not refused";
        } catch (Exception const& e) {
            EXPECT_EQ(e.getErrorCode(), ErrorCode::InvalidLocation);
            EXPECT_EQ(e.getStorageIRI(), StorageIRI(inside));
        }
    }
    for (char16_t const* outside :
         {u"small:/a", u"small:/a/bc", u"small:/a/child", u"other:/a/b", u"small://h/a/b"}) {
        try {
            provider.moveFolder(source, StorageIRI(outside), ReplacementPolicy::KeepExisting);
            ADD_FAILURE() << "not refused";
        } catch (Exception const& e) {
            EXPECT_EQ(e.getErrorCode(), ErrorCode::UnsupportedOperation);
        }
    }
}

TEST(ProviderDefaults, ThereAreNoChangeEvents) {
    SmallestProvider provider;
    std::function<void()> const calls[] = {
        [&] { provider.publishFileEvents(file, {}, {}); },
        [&] { provider.publishFolderEvents(file, {}, {}, RecursiveFileWatching::Recursive); },
        [&] { provider.stopPublishingFileEvents(file); },
        [&] { provider.stopPublishingFolderEvents(file); },
    };
    for (auto const& call : calls) {
        try {
            call();
            ADD_FAILURE() << "not refused";
        } catch (ChangeEventsNotSupportedException const& e) {
            EXPECT_EQ(e.getStorageIRI(), file);
        }
    }
}
