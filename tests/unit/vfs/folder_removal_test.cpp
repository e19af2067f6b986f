#include <foundation/storage/vfs/errors/exception.hpp>

#include "copied_tree.hpp"

#include <gtest/gtest.h>

namespace {

using namespace vfs_test;
using vfs::AbsoluteIRI;
using vfs::ErrorCode;
using vfs::FolderRemovalPolicy;

class FolderRemoval : public CopiedTree {
  protected:
    void remove() const { source().removeFolder(FolderRemovalPolicy::Recursive); }
};

Log const wholeTree{"removeFile mem:/s/a", "removeFile mem:/s/S/b", "removeFolder mem:/s/S",
                    "removeFile mem:/s/c", "removeFolder mem:/s"};

TEST_F(FolderRemoval, TakesFilesAsTheyAreListedAndFoldersWhenTheyAreLeft) {
    remove();
    EXPECT_EQ(mem->log(),
              (Log{"hasFeature mem:/s 0", "listAll mem:/s <>", "removeFile mem:/s/a",
                   "listAll mem:/s/S <>", "removeFile mem:/s/S/b", "removeFolder mem:/s/S",
                   "removeFile mem:/s/c", "removeFolder mem:/s"}));
}

TEST_F(FolderRemoval, EveryPolicyButNonRecursiveIsRecursive) {
    source().removeFolder(static_cast<FolderRemovalPolicy>(2));
    EXPECT_EQ(changes(), wholeTree);
}

TEST_F(FolderRemoval, FailureOfTheProvidersOwnRemovalIsTranslatedAndNotTriedOtherwise) {
    mem->onHasFeature = [](provider::ExtendedFeature feature) {
        return feature == provider::ExtendedFeature::RecursiveFolderRemoval;
    };
    mem->onRemoveFolderRecursively = [](StorageIRI const& at) { fail(11, at); };
    EXPECT_EQ(codeOf([&] { remove(); }), ErrorCode::UnsupportedOperation);
    EXPECT_EQ(mem->calls(), (Log{"hasFeature", "removeFolderRecursively"}));
}

TEST_F(FolderRemoval, FailureOfTheQuestionForTheFeatureIsTranslated) {
    mem->onHasFeature = [](provider::ExtendedFeature) -> bool { fail(9, StorageIRI(u"mem:/s")); };
    EXPECT_EQ(codeOf([&] { remove(); }), ErrorCode::IOError);
}

TEST_F(FolderRemoval, MissingFolderIsReported) {
    auto const missing = [&] { at(u"mem:/none").removeFolder(FolderRemovalPolicy::Recursive); };
    failOn("removeFolder mem:/none", 4);
    EXPECT_EQ(codeOf(missing), ErrorCode::ResourceNotFound);
    EXPECT_EQ(locationNamedBy(missing), AbsoluteIRI(u"mem:/none"));
}

TEST_F(FolderRemoval, FolderThatIsGoneWhenItIsLeftIsReported) {
    failOn("removeFolder mem:/s", 4);
    EXPECT_EQ(codeOf([&] { remove(); }), ErrorCode::ResourceNotFound);
    EXPECT_EQ(changes(), wholeTree);
}

TEST_F(FolderRemoval, WhatVanishesBelowIsNoFailure) {
    failOn("removeFile mem:/s/a", 4);
    failOn("removeFolder mem:/s/S", 4);
    EXPECT_NO_THROW(remove());
    EXPECT_EQ(changes(), wholeTree) << "everything else is removed";
}

TEST_F(FolderRemoval, SubfolderThatVanishesBeforeItIsListedIsNoFailure) {
    tree.add(u"mem:/s", {folder(u"gone"), file(u"c")});
    failOn("removeFolder mem:/s/gone", 4);
    EXPECT_NO_THROW(remove());
    EXPECT_EQ(changes(),
              (Log{"removeFolder mem:/s/gone", "removeFile mem:/s/c", "removeFolder mem:/s"}));
}

TEST_F(FolderRemoval, FileThatIsDeniedEndsItAndLeavesTheRest) {
    failOn("removeFile mem:/s/S/b", 2);
    EXPECT_EQ(codeOf([&] { remove(); }), ErrorCode::PermissionDenied);
    EXPECT_EQ(changes(), (Log{"removeFile mem:/s/a", "removeFile mem:/s/S/b"}));
    EXPECT_EQ(locationNamedBy([&] { remove(); }), AbsoluteIRI(u"mem:/s/S/b"));
}

TEST_F(FolderRemoval, EveryOtherFailureOfAnItemEndsItToo) {
    for (std::uint32_t const code : {0U, 1U, 2U, 3U, 5U, 6U, 7U, 8U, 9U, 10U, 11U, 12U}) {
        codes.clear();
        failOn("removeFile mem:/s/S/b", code);
        EXPECT_EQ(codeOf([&] { remove(); }), translatedCode(code));
        codes.clear();
        failOn("removeFolder mem:/s/S", code);
        EXPECT_EQ(codeOf([&] { remove(); }), translatedCode(code));
        codes.clear();
        failOn("removeFolder mem:/s", code);
        EXPECT_EQ(codeOf([&] { remove(); }), translatedCode(code));
    }
}

TEST_F(FolderRemoval, FolderThatCannotBeListedEndsIt) {
    tree.add(u"mem:/s/S", {file(u"b")}).failOn(CursorCall::Advance, 0, 2);
    EXPECT_EQ(codeOf([&] { remove(); }), ErrorCode::PermissionDenied);
    EXPECT_EQ(changes(), (Log{"removeFile mem:/s/a"}));
}

} // namespace
