#include <foundation/storage/vfs/resources/file_or_folder.hpp>

#include "fake_provider.hpp"

#include <foundation/storage/vfs/iri/invalid_iri_exception.hpp>

#include <gtest/gtest.h>

#include <functional>

namespace {

using namespace vfs_test;
using vfs::AbsoluteIRI;
using vfs::CanonicalAbsoluteIRI;
using vfs::ErrorCode;
using vfs::File;
using vfs::FileOrFolder;
using vfs::Folder;
using Log = std::vector<std::string>;

class FileOrFolderTest : public testing::Test {
  protected:
    FileOrFolder file(char16_t const* text = u"mem:/a/f") const {
        return File(AbsoluteIRI(text), storage.reference);
    }
    FileOrFolder folder(char16_t const* text = u"mem:/a/d") const {
        return Folder(AbsoluteIRI(text), storage.reference);
    }

    FakeStorage storage;
};

TEST_F(FileOrFolderTest, HoldsAFileFirst) {
    EXPECT_EQ(file().which(), 0);
    EXPECT_EQ(folder().which(), 1);
}

TEST_F(FileOrFolderTest, NamesAndPlacesAreThoseOfTheHandleWithoutTheProvider) {
    EXPECT_EQ(getLocation(file()), AbsoluteIRI(u"mem:/a/f"));
    EXPECT_EQ(getLocation(folder()), AbsoluteIRI(u"mem:/a/d"));
    EXPECT_EQ(getName(file()), u"f");
    EXPECT_EQ(getName(folder(u"mem:/a/%64%20e/")), u"d e");
    EXPECT_EQ(getParent(file()).getLocation(), AbsoluteIRI(u"mem:/a"));
    EXPECT_EQ(getParent(folder()).getLocation(), AbsoluteIRI(u"mem:/a"));
    EXPECT_TRUE(getStorageSystem(file()) == storage.reference);
    EXPECT_TRUE(getStorageSystem(folder()) == storage.reference);
    FakeStorage other;
    EXPECT_TRUE(getStorageSystem(file()) != other.reference);
    EXPECT_TRUE(storage.fake->calls().empty());
}

TEST_F(FileOrFolderTest, EveryFileHasAParentAndNobodyIsAsked) {
    EXPECT_TRUE(hasParent(file(u"mem:/")));
    EXPECT_TRUE(hasParent(FileOrFolder(
        File(provider::StorageItem(storage.fake, StorageIRI(u"mem://h")), storage.reference))));
    EXPECT_TRUE(storage.fake->calls().empty());
}

TEST_F(FileOrFolderTest, ParentOfAFileAtTheRootIsThatOfItsItem) {
    // It has no path, and so no location as others have it.
    EXPECT_THROW(getParent(file(u"mem:/")).getLocation(), vfs::InvalidIRIException);
    EXPECT_TRUE(storage.fake->calls().empty());
}

TEST_F(FileOrFolderTest, FolderHasTheParentThatItsItemHas) {
    EXPECT_TRUE(hasParent(folder()));
    EXPECT_FALSE(hasParent(folder(u"mem:/")));
}

TEST_F(FileOrFolderTest, CanonicalLocationIsTheProviders) {
    storage.fake->onGetCanonicalLocation = [](StorageIRI const& l) {
        return StorageIRI(l, u"canonical");
    };
    EXPECT_EQ(getCanonicalLocation(file()), AbsoluteIRI(u"mem:/a/f/canonical"));
    EXPECT_EQ(getCanonicalLocation(folder()), AbsoluteIRI(u"mem:/a/d/canonical"));
    FileOrFolder const canonical = File(CanonicalAbsoluteIRI(u"mem:/c"), storage.reference);
    EXPECT_EQ(getCanonicalLocation(canonical), AbsoluteIRI(u"mem:/c"));
    EXPECT_EQ(storage.fake->calls().size(), 2U);
}

TEST_F(FileOrFolderTest, ExistenceIsAskedOfTheKindItIs) {
    storage.fake->onFileExists = [](StorageIRI const&) { return true; };
    storage.fake->onFolderExists = [](StorageIRI const&) { return false; };
    EXPECT_TRUE(exists(file()));
    EXPECT_FALSE(exists(folder()));
    EXPECT_EQ(storage.fake->log(), (Log{"fileExists mem:/a/f", "folderExists mem:/a/d"}));
}

TEST_F(FileOrFolderTest, AbsenceIsAnAnswerAndEveryOtherFailureIsNot) {
    auto const answer = [this](std::uint32_t code) {
        storage.fake->onFileExists = [code](StorageIRI const& l) -> bool { fail(code, l); };
        storage.fake->onFolderExists = [code](StorageIRI const& l) -> bool { fail(code, l); };
    };
    answer(4);
    EXPECT_FALSE(exists(file()));
    EXPECT_FALSE(exists(folder()));
    answer(2);
    EXPECT_EQ(codeOf([&] { (void)exists(file()); }), ErrorCode::PermissionDenied);
    EXPECT_EQ(codeOf([&] { (void)exists(folder()); }), ErrorCode::PermissionDenied);
}

TEST_F(FileOrFolderTest, AttributesAreFetchedEachTime) {
    provider::AttributeValues known;
    known.lastModified = {86'400, 0};
    known.writable = true;
    storage.fake->onGetFileAttributes = [&](StorageIRI const&) {
        return provider::FileAttributes(known);
    };
    storage.fake->onGetFolderAttributes = [&](StorageIRI const&) {
        return provider::FolderAttributes(known);
    };
    boost::posix_time::ptime const time(boost::gregorian::date(1970, 1, 2));
    FileOrFolder const f = file();
    EXPECT_EQ(getLastModified(f), time);
    EXPECT_EQ(getLastModified(folder()), time);
    EXPECT_TRUE(isWritable(f));
    EXPECT_TRUE(isWritable(folder()));
    known.writable = false;
    EXPECT_FALSE(isWritable(f));
    EXPECT_FALSE(isWritable(folder()));
    EXPECT_EQ(storage.fake->calls(),
              (Log{"getFileAttributes", "getFolderAttributes", "getFileAttributes",
                   "getFolderAttributes", "getFileAttributes", "getFolderAttributes"}));
}

TEST_F(FileOrFolderTest, FailuresAreTranslatedAsThoseOfTheHandle) {
    storage.fake->onGetFileAttributes = [](StorageIRI const& l) -> provider::FileAttributes {
        fail(4, l);
    };
    storage.fake->onGetFolderAttributes = [](StorageIRI const& l) -> provider::FolderAttributes {
        fail(4, l);
    };
    storage.fake->onGetCanonicalLocation = [](StorageIRI const& l) -> StorageIRI { fail(4, l); };
    for (FileOrFolder const& item : {file(), folder()}) {
        EXPECT_EQ(codeOf([&] { getLastModified(item); }), ErrorCode::ResourceNotFound);
        EXPECT_EQ(codeOf([&] { (void)isWritable(item); }), ErrorCode::ResourceNotFound);
        EXPECT_EQ(codeOf([&] { getCanonicalLocation(item); }), ErrorCode::ResourceNotFound);
    }
    FileOrFolder const pathless =
        Folder(provider::StorageItem(storage.fake, StorageIRI(u"mem://h")), storage.reference);
    EXPECT_THROW(getLocation(pathless), vfs::InvalidIRIException);
}

} // namespace
