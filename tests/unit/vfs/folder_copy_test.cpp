#include <foundation/storage/vfs/errors/exception.hpp>

#include "copied_tree.hpp"

#include <gtest/gtest.h>

#include <typeinfo>

namespace {

using namespace vfs_test;
using vfs::AbsoluteIRI;
using vfs::ErrorCode;
using vfs::Exception;
using vfs::Folder;

constexpr auto outOfRange = static_cast<ReplacementPolicy>(5);

class FolderCopy : public CopiedTree {
  protected:
    void copy(ReplacementPolicy policy = ReplacementPolicy::FailIfExists) const {
        source().copyFolder(at(u"mem:/d"), policy);
    }
};

TEST_F(FolderCopy, MakesTheTreeAppearItemByItem) {
    copy();
    EXPECT_EQ(mem->log(),
              (Log{"folderExists mem:/s", "folderExists mem:/d", "createFolder mem:/d",
                   "listAll mem:/s <>", "fileExists mem:/d/a", "copyFile mem:/s/a mem:/d/a 0",
                   "folderExists mem:/d/S", "createFolder mem:/d/S", "listAll mem:/s/S <>",
                   "fileExists mem:/d/S/b", "copyFile mem:/s/S/b mem:/d/S/b 0",
                   "getFolderAttributes mem:/s/S", "setLastModified mem:/d/S 200",
                   "fileExists mem:/d/c", "copyFile mem:/s/c mem:/d/c 0",
                   "getFolderAttributes mem:/s", "setLastModified mem:/d 100"}));
}

TEST_F(FolderCopy, LeavesWritabilityAlone) {
    copy();
    for (std::string const& call : mem->calls()) {
        EXPECT_NE(call.substr(0, 11), "setWritable");
    }
}

TEST_F(FolderCopy, IntoNamesTheNewFolderAfterTheSource) {
    source().copyFolderInto(at(u"mem:/d"), ReplacementPolicy::FailIfExists);
    EXPECT_TRUE(folders.contains(StorageIRI(u"mem:/d/s")));
    EXPECT_TRUE(files.contains(StorageIRI(u"mem:/d/s/S/b")));
    EXPECT_FALSE(folders.contains(StorageIRI(u"mem:/d")));
}

TEST_F(FolderCopy, MissingSourceIsNamedAndNothingIsMade) {
    folders.clear();
    EXPECT_EQ(codeOf([&] { copy(); }), ErrorCode::ResourceNotFound);
    EXPECT_EQ(locationNamedBy([&] { copy(); }), AbsoluteIRI(u"mem:/s"));
    EXPECT_EQ(mem->calls(), (Log{"folderExists", "folderExists"}));
}

TEST_F(FolderCopy, FailureOfTheFirstCheckIsNotTranslated) {
    mem->onFolderExists = [](StorageIRI const& at) -> bool { fail(4, at); };
    EXPECT_EQ(rawCodeOf([&] { copy(); }), 4U);
}

TEST_F(FolderCopy, IntoItsOwnDescendantIsRefusedBeforeAnythingIsMade) {
    for (ReplacementPolicy const policy : everyPolicy) {
        for (char16_t const* inside : {u"mem:/s/x", u"mem:/s/S", u"mem:/s/S/x/y"}) {
            auto const into = [&] { source().copyFolder(at(inside), policy); };
            EXPECT_EQ(codeOf(into), ErrorCode::InvalidLocation);
            EXPECT_EQ(locationNamedBy(into), AbsoluteIRI(inside));
        }
        EXPECT_EQ(codeOf([&] { source().copyFolderInto(source(), policy); }),
                  ErrorCode::InvalidLocation);
    }
    EXPECT_TRUE(changes().empty());
}

TEST_F(FolderCopy, OntoItsParentsSiblingOfALongerNameIsNoDescendant) {
    source().copyFolder(at(u"mem:/s2"), ReplacementPolicy::FailIfExists);
    EXPECT_TRUE(files.contains(StorageIRI(u"mem:/s2/a")));
}

TEST_F(FolderCopy, FailIfExistsRefusesAnExistingFolderInTheRootsFirstCall) {
    folders.insert(StorageIRI(u"mem:/d"));
    EXPECT_EQ(codeOf([&] { copy(); }), ErrorCode::ResourceAlreadyExists);
    EXPECT_EQ(locationNamedBy([&] { copy(); }), AbsoluteIRI(u"mem:/d"));
    for (std::string const& call : mem->calls()) {
        EXPECT_EQ(call, "folderExists") << "nothing is listed or made";
    }
}

TEST_F(FolderCopy, FailIfExistsRefusesAnExistingFolderBelowToo) {
    folders.insert(StorageIRI(u"mem:/d/S"));
    EXPECT_EQ(locationNamedBy([&] { copy(); }), AbsoluteIRI(u"mem:/d/S"));
    EXPECT_EQ(changes(), (Log{"createFolder mem:/d", "copyFile mem:/s/a mem:/d/a 0"}));
}

TEST_F(FolderCopy, ReplaceExistingMakesAnEmptyFolderAnew) {
    folders.insert(StorageIRI(u"mem:/d"));
    copy(ReplacementPolicy::ReplaceExisting);
    Log const made = changes();
    ASSERT_GE(made.size(), 3U);
    EXPECT_EQ(made[0], "removeFolder mem:/d");
    EXPECT_EQ(made[1], "createFolder mem:/d");
    EXPECT_EQ(made[2], "copyFile mem:/s/a mem:/d/a 1");
}

TEST_F(FolderCopy, ReplaceExistingEndsAtAFolderWithContent) {
    folders.insert(StorageIRI(u"mem:/d"));
    failOn("removeFolder mem:/d", 0);
    EXPECT_EQ(codeOf([&] { copy(ReplacementPolicy::ReplaceExisting); }), ErrorCode::FolderNotEmpty);
    EXPECT_EQ(mem->log(),
              (Log{"folderExists mem:/s", "folderExists mem:/d", "removeFolder mem:/d"}))
        << "no question of how to remove more than an empty folder";
}

TEST_F(FolderCopy, OtherPoliciesMergeIntoAnExistingFolder) {
    folders.insert(StorageIRI(u"mem:/d"));
    folders.insert(StorageIRI(u"mem:/d/S"));
    for (ReplacementPolicy const policy :
         {ReplacementPolicy::ReplaceReadOnly, ReplacementPolicy::ReplaceAndDeferDenied,
          ReplacementPolicy::KeepExisting, outOfRange}) {
        files.clear();
        copy(policy);
        EXPECT_EQ(files.size(), 3U);
    }
    for (std::string const& call : mem->calls()) {
        EXPECT_NE(call, "createFolder");
        EXPECT_NE(call, "removeFolder");
    }
}

TEST_F(FolderCopy, ExistingFileReachesCopyFileUnderTwoPoliciesAlone) {
    for (ReplacementPolicy const policy : everyPolicy) {
        bool const replaces = policy == ReplacementPolicy::ReplaceReadOnly ||
                              policy == ReplacementPolicy::ReplaceAndDeferDenied;
        folders = {StorageIRI(u"mem:/s")};
        files = {StorageIRI(u"mem:/d/S/b")};
        auto const before = static_cast<std::ptrdiff_t>(mem->log().size());
        copy(policy);
        Log const log = mem->log();
        auto const copies =
            std::count_if(log.begin() + before, log.end(), [](std::string const& call) {
                return call.starts_with("copyFile mem:/s/S/b");
            });
        EXPECT_EQ(copies, replaces ? 1 : 0) << static_cast<std::uint32_t>(policy);
        EXPECT_TRUE(files.contains(StorageIRI(u"mem:/d/c"))) << "the copy goes on";
    }
}

TEST_F(FolderCopy, AsksForAnExistingFileUnderPoliciesThatReplaceItToo) {
    tree.add(u"mem:/s", {file(u"a")});
    copy(ReplacementPolicy::ReplaceReadOnly);
    EXPECT_EQ(mem->log(),
              (Log{"folderExists mem:/s", "folderExists mem:/d", "createFolder mem:/d",
                   "listAll mem:/s <>", "fileExists mem:/d/a", "copyFile mem:/s/a mem:/d/a 2",
                   "getFolderAttributes mem:/s", "setLastModified mem:/d 100"}));
}

TEST_F(FolderCopy, DeferredPolicyReachesTheProviderAsReplaceExisting) {
    copy(ReplacementPolicy::ReplaceAndDeferDenied);
    EXPECT_EQ(changes()[1], "copyFile mem:/s/a mem:/d/a 1");
}

TEST_F(FolderCopy, DeferredDenialsLetTheRestBeCopiedAndTheLatestIsThrown) {
    failOn("copyFile mem:/d/a", 2);
    failOn("copyFile mem:/d/S/b", 2);
    auto const deferred = [&] { copy(ReplacementPolicy::ReplaceAndDeferDenied); };
    try {
        deferred();
        FAIL() << "nothing was thrown";
    } catch (Exception const& e) {
        EXPECT_EQ(typeid(e), typeid(Exception));
        EXPECT_EQ(e.getErrorCode(), ErrorCode::PermissionDenied);
        EXPECT_EQ(e.getLocation(), AbsoluteIRI(u"mem:/d/S/b"));
    }
    EXPECT_EQ(files, (std::set<StorageIRI>{StorageIRI(u"mem:/d/c")}));
    EXPECT_EQ(changes().back(), "setLastModified mem:/d 100") << "when the walk has ended";
}

TEST_F(FolderCopy, DenialEndsTheCopyUnderEveryOtherPolicy) {
    for (ReplacementPolicy const policy : everyPolicy) {
        if (policy == ReplacementPolicy::ReplaceAndDeferDenied) {
            continue;
        }
        folders = {StorageIRI(u"mem:/s")};
        files.clear();
        failOn("copyFile mem:/d/a", 2);
        EXPECT_EQ(codeOf([&] { copy(policy); }), ErrorCode::PermissionDenied);
        EXPECT_TRUE(files.empty());
    }
}

TEST_F(FolderCopy, OtherFailuresEndTheCopyUnderEveryPolicyAndLeaveWhatWasDone) {
    for (ReplacementPolicy const policy : everyPolicy) {
        for (std::uint32_t const code : {0U, 1U, 3U, 5U, 6U, 7U, 8U, 9U, 10U, 11U, 12U}) {
            folders = {StorageIRI(u"mem:/s")};
            files.clear();
            failOn("copyFile mem:/d/S/b", code);
            EXPECT_EQ(codeOf([&] { copy(policy); }), translatedCode(code));
            EXPECT_EQ(files, (std::set<StorageIRI>{StorageIRI(u"mem:/d/a")}));
            EXPECT_TRUE(folders.contains(StorageIRI(u"mem:/d/S")));
        }
    }
}

TEST_F(FolderCopy, FailureArrivesAsAPlainExceptionThatNamesWhatFailed) {
    failOn("copyFile mem:/d/S/b", 9);
    try {
        copy();
        FAIL() << "nothing was thrown";
    } catch (Exception const& e) {
        EXPECT_EQ(typeid(e), typeid(Exception));
        EXPECT_EQ(e.getLocation(), AbsoluteIRI(u"mem:/d/S/b"));
    }
}

TEST_F(FolderCopy, SourceFileThatVanishesDropsTheRestOfItsFolderSilently) {
    failOn("copyFile mem:/d/a", 4);
    EXPECT_NO_THROW(copy());
    EXPECT_TRUE(files.empty());
    EXPECT_EQ(changes().back(), "setLastModified mem:/d 100");
}

TEST_F(FolderCopy, SourceFolderThatVanishesLeavesAnEmptyOne) {
    tree.add(u"mem:/s", {file(u"a"), folder(u"gone"), file(u"c")});
    EXPECT_NO_THROW(copy());
    EXPECT_TRUE(folders.contains(StorageIRI(u"mem:/d/gone")));
    EXPECT_TRUE(files.contains(StorageIRI(u"mem:/d/c")));
}

TEST_F(FolderCopy, FolderThatCannotBeListedEndsTheCopy) {
    tree.add(u"mem:/s/S", {file(u"b")}).failOn(CursorCall::Advance, 0, 2);
    EXPECT_EQ(codeOf([&] { copy(); }), ErrorCode::PermissionDenied);
    EXPECT_FALSE(files.contains(StorageIRI(u"mem:/d/c")));
}

TEST_F(FolderCopy, NameThatCannotBeComposedIsTranslated) {
    tree.add(u"mem:/s", {folder(u"a/..")});
    EXPECT_EQ(codeOf([&] { copy(); }), ErrorCode::InvalidLocation);
}

// A storage that has no folders of their own.

TEST_F(FolderCopy, RefusalToMakeAFolderIsForgivenByAFileInIt) {
    failOn("createFolder mem:/d", 11);
    failOn("createFolder mem:/d/S", 11);
    EXPECT_NO_THROW(copy());
    EXPECT_EQ(files.size(), 3U);
}

TEST_F(FolderCopy, RefusalToMakeAFolderIsForgivenByAFileFurtherDown) {
    tree.add(u"mem:/s", {folder(u"S")});
    failOn("createFolder mem:/d", 11);
    failOn("createFolder mem:/d/S", 11);
    EXPECT_NO_THROW(copy());
    EXPECT_EQ(files, (std::set<StorageIRI>{StorageIRI(u"mem:/d/S/b")}));
}

TEST_F(FolderCopy, RefusalIsForgivenBeforeTheFileIsCopied) {
    files.insert(StorageIRI(u"mem:/d/S/b"));
    tree.add(u"mem:/s", {folder(u"S")});
    failOn("createFolder mem:/d", 11);
    EXPECT_NO_THROW(copy(ReplacementPolicy::KeepExisting)) << "also by one that is left alone";
}

TEST_F(FolderCopy, RefusalToMakeAnEmptyFolderIsThrownWhenItIsLeft) {
    tree.add(u"mem:/s", {file(u"a"), folder(u"F"), file(u"c")});
    tree.add(u"mem:/s/F", {folder(u"G")});
    tree.add(u"mem:/s/F/G", {});
    failOn("createFolder mem:/d/F", 11);
    failOn("createFolder mem:/d/F/G", 11);
    EXPECT_EQ(codeOf([&] { copy(); }), ErrorCode::UnsupportedOperation);
    EXPECT_EQ(locationNamedBy([&] { copy(ReplacementPolicy::KeepExisting); }),
              AbsoluteIRI(u"mem:/d/F/G"));
    EXPECT_FALSE(files.contains(StorageIRI(u"mem:/d/c")));
}

TEST_F(FolderCopy, RefusalToMakeAnEmptyRootIsThrown) {
    tree.add(u"mem:/s", {});
    failOn("createFolder mem:/d", 11);
    EXPECT_EQ(locationNamedBy([&] { copy(); }), AbsoluteIRI(u"mem:/d"));
}

TEST_F(FolderCopy, AnyOtherFailureToMakeAFolderEndsTheCopy) {
    for (std::uint32_t const code : {0U, 1U, 2U, 3U, 5U, 6U, 7U, 8U, 9U, 10U, 12U}) {
        failOn("createFolder mem:/d", code);
        EXPECT_EQ(codeOf([&] { copy(); }), translatedCode(code));
    }
    EXPECT_TRUE(files.empty());
}

// The time of the last change.

TEST_F(FolderCopy, TimesAreNotCarriedBetweenSchemes) {
    source().copyFolder(at(u"far:/d"), ReplacementPolicy::FailIfExists);
    EXPECT_TRUE(folders.contains(StorageIRI(u"far:/d/S")));
    for (std::string const& call : far->calls()) {
        EXPECT_NE(call, "setLastModified");
    }
    for (std::string const& call : mem->calls()) {
        EXPECT_NE(call, "getFolderAttributes");
    }
}

TEST_F(FolderCopy, FailuresToCarryATimeOverAreSwallowedWhateverTheyAre) {
    mem->onSetLastModified = [](StorageIRI const& at, auto const&) { fail(9, at); };
    EXPECT_NO_THROW(copy());
    mem->onSetLastModified = [](StorageIRI const&, auto const&) { throw 42; };
    EXPECT_NO_THROW(copy(ReplacementPolicy::KeepExisting));
    mem->onGetFolderAttributes = [](StorageIRI const& at) -> provider::FolderAttributes {
        fail(2, at);
    };
    EXPECT_NO_THROW(copy(ReplacementPolicy::KeepExisting));
}

TEST_F(FolderCopy, SiblingsOfAFolderGoWhereItsParentWent) {
    tree.add(u"mem:/s", {folder(u"S"), folder(u"T"), file(u"z")});
    tree.add(u"mem:/s/T", {folder(u"U")});
    tree.add(u"mem:/s/T/U", {file(u"u")});
    copy();
    EXPECT_EQ(files, (std::set<StorageIRI>{StorageIRI(u"mem:/d/S/b"), StorageIRI(u"mem:/d/T/U/u"),
                                           StorageIRI(u"mem:/d/z")}));
}

} // namespace
