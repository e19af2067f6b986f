#include <foundation/storage/vfs/resources/file.hpp>

#include "fake_provider.hpp"
#include "fake_stream.hpp"

#include <foundation/storage/vfs/resources/folder.hpp>

#include <gtest/gtest.h>

#include <new>
#include <sstream>
#include <type_traits>

namespace {

using namespace vfs_test;
using vfs::AbsoluteIRI;
using vfs::CanonicalAbsoluteIRI;
using vfs::ErrorCode;
using vfs::File;
using vfs::Folder;

class FileTest : public testing::Test {
  protected:
    File file(char16_t const* text = u"mem:/a/b.txt") const {
        return File(AbsoluteIRI(text), storage.reference);
    }

    FakeStorage storage;
};

TEST_F(FileTest, IsAResourceWithoutOperationsOnTheProvider) {
    static_assert(std::is_base_of_v<vfs::Resource, File>);
    static_assert(std::is_nothrow_move_constructible_v<File>);
    File const made = file();
    vfs::Resource const& resource = made;
    EXPECT_EQ(resource.getLocation(), AbsoluteIRI(u"mem:/a/b.txt"));
    EXPECT_TRUE(storage.fake->calls().empty());
    EXPECT_EQ(storage.system->built, 1) << "the provider is resolved once, through the reference";
}

TEST_F(FileTest, ForwardsNamesAndParents) {
    EXPECT_EQ(file().getName(), u"b.txt");
    EXPECT_EQ(file().getParent().getLocation(), AbsoluteIRI(u"mem:/a"));
    EXPECT_TRUE(file().getStorageSystem() == storage.reference);
    EXPECT_EQ(storage.system->built, 3) << "a parent is derived without asking the system again";
}

struct ExtensionCase {
    char16_t const* name;
    char16_t const* extension;
};

TEST_F(FileTest, ExtensionStartsAtTheLastDot) {
    for (auto const& [name, extension] :
         {ExtensionCase{u"a.tar.gz", u".gz"}, ExtensionCase{u".profile", u".profile"},
          ExtensionCase{u"a.", u"."}, ExtensionCase{u"plain", u""}}) {
        AbsoluteIRI const iri(AbsoluteIRI(u"mem:/x.y"), name);
        EXPECT_EQ(File(iri, storage.reference).getExtension(), extension);
    }
}

TEST_F(FileTest, LocationWithoutAPathIsInvalid) {
    File const pathless(provider::StorageItem(storage.fake, StorageIRI(u"mem://h")),
                        storage.reference);
    EXPECT_THROW(pathless.getLocation(), vfs::InvalidIRIException);
}

TEST_F(FileTest, CanonicalHandleNeverAsksTheProvider) {
    File const canonical(CanonicalAbsoluteIRI(u"mem:/a"), storage.reference);
    EXPECT_EQ(canonical.getCanonicalLocation(), AbsoluteIRI(u"mem:/a"));
    EXPECT_TRUE(storage.fake->calls().empty());

    storage.fake->onGetCanonicalLocation = [](StorageIRI const&) { return StorageIRI(u"mem:/c"); };
    EXPECT_EQ(file().getCanonicalLocation(), AbsoluteIRI(u"mem:/c"));
}

TEST_F(FileTest, ChildOfACanonicalFolderIsNotCanonical) {
    Folder const folder(CanonicalAbsoluteIRI(u"mem:/a"), storage.reference);
    File const child(folder, u"b");
    EXPECT_EQ(child.getLocation(), AbsoluteIRI(u"mem:/a/b"));
    child.getCanonicalLocation();
    EXPECT_EQ(storage.fake->calls(), std::vector<std::string>{"getCanonicalLocation"});
    EXPECT_EQ(storage.system->built, 1) << "a child asks the system for nothing";
}

TEST_F(FileTest, ChildWithAnEmptyAbsoluteOrClimbingNameIsRefusedUntranslated) {
    Folder const folder(AbsoluteIRI(u"mem:/a"), storage.reference);
    for (char16_t const* name : {u"", u"/b", u"../b", u"."}) {
        try {
            File(folder, name);
            FAIL();
        } catch (provider::Exception const& e) {
            EXPECT_EQ(e.getErrorCode(), provider::ErrorCode::InvalidLocation);
            EXPECT_EQ(e.getStorageIRI(), StorageIRI(u"mem:/a"));
        }
    }
}

TEST_F(FileTest, EachOperationAsksTheProviderForItselfAndGivesItsAnswer) {
    boost::posix_time::ptime const time(boost::gregorian::date(1970, 1, 2));
    auto const nothing = [](StorageIRI const&) {};
    storage.fake->onCreateFile = nothing;
    storage.fake->onRemoveFile = nothing;
    storage.fake->onStopPublishing = nothing;
    storage.fake->onSetWritable = [](StorageIRI const&, bool) {};
    storage.fake->onSetLastModified = [](StorageIRI const&, auto const&) {};
    storage.fake->onGetFileAttributes = [&](StorageIRI const&) {
        provider::AttributeValues values;
        values.lastModified = provider::toTimestamp(time);
        values.writable = true;
        return provider::FileAttributes(values);
    };
    storage.fake->onGetExtendedAttributes = [](StorageIRI const&) {
        return provider::ExtendedAttributes{{"user.x", "y"}};
    };
    storage.fake->onFileExists = [](StorageIRI const&) { return true; };

    File const f = file();
    f.createFile();
    f.removeFile();
    f.setWritable(true);
    f.setWritable(false);
    f.setLastModified(time);
    f.stopPublishingEvents();
    EXPECT_EQ(f.getAttributes().getLastModified(), time);
    EXPECT_TRUE(f.getAttributes().isWritable());
    EXPECT_EQ(f.getExtendedAttributes().at("user.x"), "y");
    EXPECT_TRUE(f.fileExists());

    EXPECT_EQ(storage.fake->log(),
              (std::vector<std::string>{
                  "createFile mem:/a/b.txt", "removeFile mem:/a/b.txt",
                  "setWritable true mem:/a/b.txt", "setWritable false mem:/a/b.txt",
                  "setLastModified mem:/a/b.txt 86400", "stopPublishingFileEvents mem:/a/b.txt",
                  "getFileAttributes mem:/a/b.txt", "getFileAttributes mem:/a/b.txt",
                  "getExtendedAttributes mem:/a/b.txt", "fileExists mem:/a/b.txt"}));
}

TEST_F(FileTest, SystemsOwnExceptionPassesWithItsFirstLocation) {
    AbsoluteIRI const first(u"mem:/first");
    storage.fake->onRemoveFile = [&](StorageIRI const&) {
        throw vfs::Exception(ErrorCode::ResourceInUse, first);
    };
    try {
        file().removeFile();
        FAIL();
    } catch (vfs::Exception const& e) {
        EXPECT_EQ(e.getErrorCode(), ErrorCode::ResourceInUse);
        EXPECT_EQ(e.getLocation(), first);
    }
}

TEST_F(FileTest, ProviderWithoutChangeEventsRefusesToStopThemToo) {
    EXPECT_THROW(file().stopPublishingEvents(), vfs::ChangeEventsNotSupportedException);
}

TEST_F(FileTest, StreamThatTheProviderDoesNotGiveIsItsInternalError) {
    storage.fake->onOpenReadOnlyStream = [](StorageIRI const&) { return nullptr; };
    storage.fake->onOpenStream = [](auto const&, auto const&) { return nullptr; };
    EXPECT_EQ(codeOf([&] { file().openReadOnly(); }), ErrorCode::InternalError);
    EXPECT_EQ(codeOf([&] { file().open({}); }), ErrorCode::InternalError);
}

TEST_F(FileTest, ParentsAndChildrenBelongToTheSameSystem) {
    FakeStorage other;
    Folder const folder(AbsoluteIRI(u"mem:/a"), other.reference);
    EXPECT_TRUE(File(folder, u"b").getStorageSystem() == other.reference);
    EXPECT_TRUE(File(folder, u"b").getParent().getStorageSystem() == other.reference);
    EXPECT_TRUE(File(folder, u"b").getStorageSystem() != storage.reference);
}

TEST_F(FileTest, TranslatesWhatItsOperationsThrow) {
    StorageIRI const named(u"mem:/named/by/the/provider");
    auto const fails = [&] { fail(5, named); };
    storage.fake->onGetCanonicalLocation = [&](StorageIRI const&) -> StorageIRI { fail(5, named); };
    storage.fake->onGetFileAttributes = [&](StorageIRI const&) -> provider::FileAttributes {
        fail(5, named);
    };
    storage.fake->onCreateFile = [&](StorageIRI const&) { fails(); };
    storage.fake->onRemoveFile = [&](StorageIRI const&) { fails(); };
    storage.fake->onSetWritable = [&](StorageIRI const&, bool) { fails(); };
    storage.fake->onSetLastModified = [&](StorageIRI const&, auto const&) { fails(); };
    storage.fake->onOpenStream =
        [&](auto const&, auto const&) -> std::unique_ptr<provider::ByteStream> { fail(5, named); };
    storage.fake->onOpenReadOnlyStream = [&](auto const&) -> std::unique_ptr<provider::ByteStream> {
        fail(5, named);
    };
    storage.fake->onCopyFile = [&](auto const&, auto const&, auto const&) -> provider::CopyStatus {
        fail(5, named);
    };
    storage.fake->onMoveFile = [&](auto const&, auto const&, auto) { fails(); };

    File const f = file();
    boost::posix_time::ptime const time(boost::gregorian::date(2020, 1, 1));
    auto const policy = provider::ReplacementPolicy::ReplaceExisting;
    std::vector<std::function<void()>> const operations{
        [&] { f.getCanonicalLocation(); },
        [&] { f.getAttributes(); },
        [&] { f.createFile(); },
        [&] { f.removeFile(); },
        [&] { f.setWritable(true); },
        [&] { f.setLastModified(time); },
        [&] { f.open({}); },
        [&] { f.openReadOnly(); },
        [&] { f.copyFile(f, policy); },
        [&] { f.copyFile(f, provider::CopyFileOptions{}); },
        [&] { f.moveFile(f, policy); },
    };
    for (std::size_t i = 0; i < operations.size(); ++i) {
        try {
            operations[i]();
            ADD_FAILURE() << "operation " << i;
        } catch (vfs::Exception const& e) {
            EXPECT_EQ(e.getErrorCode(), ErrorCode::FileTooLarge) << i;
            EXPECT_EQ(e.getLocation().toStorageIRI(), named) << i;
        }
    }
    EXPECT_EQ(codeOf([&] { f.getExtendedAttributes(); }), ErrorCode::UnsupportedOperation);
}

TEST_F(FileTest, MissingFileIsAnAnswerAndEveryOtherFailureIsNot) {
    storage.fake->onFileExists = [](StorageIRI const& l) -> bool { fail(4, l); };
    EXPECT_FALSE(file().fileExists());
    storage.fake->onFileExists = [](StorageIRI const& l) -> bool { fail(2, l); };
    EXPECT_EQ(codeOf([&] { (void)file().fileExists(); }), ErrorCode::PermissionDenied);
    storage.fake->onFileExists = [](StorageIRI const& l) -> bool {
        throw provider::ChangeEventsNotSupportedException(l);
    };
    EXPECT_THROW((void)file().fileExists(), provider::ChangeEventsNotSupportedException)
        << "only provider::Exception is translated here";
    storage.fake->onFileExists = [](StorageIRI const&) { return true; };
    EXPECT_TRUE(file().fileExists());
}

TEST_F(FileTest, OpensThroughTheProviderWithTheOptionsGiven) {
    auto script = std::make_shared<StreamScript>();
    provider::ByteStreamOpenOptions seen;
    storage.fake->onOpenStream = [&](StorageIRI const&,
                                     provider::ByteStreamOpenOptions const& options) {
        seen = options;
        return std::make_unique<FakeStream>(script);
    };
    provider::ByteStreamOpenOptions options;
    options.access = provider::ByteStreamAccess::ReadWrite;
    options.creation = provider::ByteStreamCreation::OpenExisting;
    options.withoutTruncate = 1;
    options.withoutAppend = 0;
    {
        auto const device = file().open(options);
        EXPECT_EQ(device.write("abc", 3), 3);
        auto const copy = device;
        EXPECT_EQ(copy.seek(0, std::ios_base::cur), 3) << "copies share the stream";
        EXPECT_FALSE(script->destroyed);
    }
    EXPECT_TRUE(script->destroyed);
    EXPECT_EQ(seen.access, options.access);
    EXPECT_EQ(seen.creation, options.creation);
    EXPECT_EQ(seen.withoutTruncate, 1U);
    EXPECT_EQ(seen.withoutAppend, 0U);
}

TEST_F(FileTest, SwapExchangesItemsAndNothingElse) {
    FakeStorage other;
    File a(CanonicalAbsoluteIRI(u"mem:/a"), storage.reference);
    File b(AbsoluteIRI(u"mem:/b"), other.reference);
    File const copyOfA = a;

    a.swap(b);

    EXPECT_EQ(a.getLocation(), AbsoluteIRI(u"mem:/b"));
    EXPECT_EQ(b.getLocation(), AbsoluteIRI(u"mem:/a"));
    EXPECT_TRUE(a.getStorageSystem() == storage.reference);
    EXPECT_TRUE(b.getStorageSystem() == other.reference);
    EXPECT_EQ(copyOfA.getLocation(), AbsoluteIRI(u"mem:/a")) << "copies are values of their own";
    a.getCanonicalLocation();
    EXPECT_TRUE(other.fake->calls().empty()) << "a keeps its flag";
    b.getCanonicalLocation();
    EXPECT_EQ(storage.fake->calls().size(), 1U) << "b keeps its flag, and asks its new provider";
}

TEST_F(FileTest, AnAssignedHandleNamesTheOtherFile) {
    File const other = file(u"mem:/b");
    File a = file(u"mem:/a");
    a = other;
    EXPECT_EQ(a.getLocation(), AbsoluteIRI(u"mem:/b"));
    EXPECT_EQ(other.getLocation(), AbsoluteIRI(u"mem:/b"));
    a = file(u"mem:/c");
    EXPECT_EQ(a.getLocation(), AbsoluteIRI(u"mem:/c"));
    EXPECT_TRUE(a.getStorageSystem() == storage.reference);
}

TEST_F(FileTest, ComparesLocationsAlone) {
    FakeStorage other;
    File const a = file(u"mem:/a");
    File const spelled = file(u"mem:/%61");
    File const elsewhere(AbsoluteIRI(u"mem:/a"), other.reference);
    File const b = file(u"mem:/b");
    File const dotted = file(u"mem:/x/../a");
    EXPECT_TRUE(a == spelled);
    EXPECT_TRUE(a == elsewhere);
    EXPECT_FALSE(a != elsewhere);
    EXPECT_TRUE(a != b);
    EXPECT_TRUE(a < b);
    EXPECT_FALSE(b < a);
    EXPECT_TRUE(a != dotted) << "the canonical form takes no part";
}

TEST_F(FileTest, PrintsItsLocation) {
    std::ostringstream out;
    out << file();
    EXPECT_EQ(out.str(), "mem:/a/b.txt");

    struct Elsewhere : File {
        using File::File;
        AbsoluteIRI getLocation() const override { return AbsoluteIRI(u"mem:/elsewhere"); }
    };
    std::ostringstream overridden;
    overridden << Elsewhere(AbsoluteIRI(u"mem:/a"), storage.reference);
    EXPECT_EQ(overridden.str(), "mem:/elsewhere") << "the location is asked for virtually";
}

} // namespace
