#include <foundation/storage/vfs/errors/exception.hpp>

#include "copied_tree.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using namespace vfs_test;
using vfs::AbsoluteIRI;
using vfs::ErrorCode;

class FolderMove : public CopiedTree {
  protected:
    void move(ReplacementPolicy policy) const { source().moveFolder(at(u"mem:/d"), policy); }
    void moveFailsWith(std::uint32_t code) {
        mem->onMoveFolder = [code](StorageIRI const& from, StorageIRI const&, ReplacementPolicy) {
            fail(code, from);
        };
    }
    void begin() {
        folders = {StorageIRI(u"mem:/s"), StorageIRI(u"mem:/s/S")};
        files.clear();
    }
    bool sourceIsGone() const { return !folders.contains(StorageIRI(u"mem:/s")); }
};

TEST_F(FolderMove, WithinOneSchemeIsOneCallWithThePolicyAsGiven) {
    mem->onMoveFolder = [](StorageIRI const&, StorageIRI const&, ReplacementPolicy) {};
    for (ReplacementPolicy const policy : everyPolicy) {
        std::size_t const before = mem->log().size();
        move(policy);
        Log const log = mem->log();
        ASSERT_EQ(log.size(), before + 1);
        EXPECT_EQ(log.back(),
                  "moveFolder mem:/s mem:/d " + std::to_string(static_cast<std::uint32_t>(policy)));
    }
}

TEST_F(FolderMove, BetweenSchemesCopiesAndRemovesAndNeverAsksForAMove) {
    source().moveFolder(at(u"far:/d"), ReplacementPolicy::FailIfExists);
    EXPECT_EQ(files, (std::set<StorageIRI>{StorageIRI(u"far:/d/a"), StorageIRI(u"far:/d/S/b"),
                                           StorageIRI(u"far:/d/c")}));
    EXPECT_TRUE(sourceIsGone());
    Log const calls = mem->calls();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "moveFolder"), 0);
    Log const there = far->calls();
    EXPECT_EQ(std::count(there.begin(), there.end(), "moveFolder"), 0);
}

TEST_F(FolderMove, RefusalFallsBackToACopyWhereItMayHelp) {
    for (ReplacementPolicy const policy : everyPolicy) {
        for (std::uint32_t code = 0; code <= 12; ++code) {
            begin();
            moveFailsWith(code);
            bool const merges = policy == ReplacementPolicy::ReplaceReadOnly ||
                                policy == ReplacementPolicy::ReplaceAndDeferDenied ||
                                policy == ReplacementPolicy::KeepExisting;
            bool const fallsBack = code == 11 || (merges && (code == 0 || code == 2 || code == 3));
            std::string const row =
                std::to_string(static_cast<std::uint32_t>(policy)) + ' ' + std::to_string(code);
            if (fallsBack) {
                EXPECT_NO_THROW(move(policy)) << row;
                EXPECT_EQ(files.size(), 3U) << row;
                EXPECT_TRUE(sourceIsGone()) << row;
            } else {
                EXPECT_EQ(codeOf([&] { move(policy); }), translatedCode(code)) << row;
                EXPECT_TRUE(files.empty()) << row;
                EXPECT_FALSE(sourceIsGone()) << row;
            }
        }
    }
}

TEST_F(FolderMove, OtherExceptionsOfTheProvidersMoveGoThroughTheTranslator) {
    mem->onMoveFolder = [](StorageIRI const&, StorageIRI const&, ReplacementPolicy) {
        throw std::runtime_error("foreign");
    };
    EXPECT_THROW(move(ReplacementPolicy::KeepExisting), std::runtime_error);
    mem->onMoveFolder = [](StorageIRI const& from, StorageIRI const&, ReplacementPolicy) {
        throw provider::ChangeEventsNotSupportedException(from);
    };
    EXPECT_THROW(move(ReplacementPolicy::KeepExisting), vfs::ChangeEventsNotSupportedException);
    EXPECT_TRUE(files.empty());
}

TEST_F(FolderMove, SourceStaysWhereTheCopyFailed) {
    moveFailsWith(11);
    failOn("copyFile mem:/d/c", 9);
    EXPECT_EQ(codeOf([&] { move(ReplacementPolicy::FailIfExists); }), ErrorCode::IOError);
    EXPECT_FALSE(sourceIsGone());
    for (std::string const& call : mem->calls()) {
        EXPECT_NE(call.substr(0, 6), "remove");
    }
}

TEST_F(FolderMove, DeferredDenialLeavesTheSourceInPlace) {
    moveFailsWith(11);
    failOn("copyFile mem:/d/a", 2);
    EXPECT_EQ(codeOf([&] { move(ReplacementPolicy::ReplaceAndDeferDenied); }),
              ErrorCode::PermissionDenied);
    EXPECT_EQ(files.size(), 2U) << "the others are there";
    EXPECT_FALSE(sourceIsGone());
}

TEST_F(FolderMove, FileThatTheCopyLeftAloneIsRemovedWithTheSource) {
    moveFailsWith(11);
    for (ReplacementPolicy const policy :
         {ReplacementPolicy::FailIfExists, ReplacementPolicy::ReplaceExisting,
          ReplacementPolicy::KeepExisting}) {
        begin();
        files.insert(StorageIRI(u"mem:/d/a"));
        std::size_t const before = mem->log().size();
        move(policy);
        Log const log = mem->log();
        auto const asked = [&](std::string const& call) {
            return std::count(log.begin() + static_cast<std::ptrdiff_t>(before), log.end(), call);
        };
        EXPECT_EQ(asked("copyFile mem:/s/a mem:/d/a " +
                        std::to_string(static_cast<std::uint32_t>(policy))),
                  0);
        EXPECT_EQ(asked("removeFile mem:/s/a"), 1);
        EXPECT_TRUE(sourceIsGone());
    }
}

TEST_F(FolderMove, RemovalBehindTheCopyIsTheProvidersWhereItOffersIt) {
    moveFailsWith(11);
    mem->onHasFeature = [](provider::ExtendedFeature feature) {
        return feature == provider::ExtendedFeature::RecursiveFolderRemoval;
    };
    mem->onRemoveFolderRecursively = [](StorageIRI const&) {};
    move(ReplacementPolicy::FailIfExists);
    EXPECT_EQ(mem->log().back(), "removeFolderRecursively mem:/s");
}

TEST_F(FolderMove, ChecksOfTheCopyAreNotTranslated) {
    moveFailsWith(11);
    mem->onFolderExists = [](StorageIRI const& at) -> bool { fail(9, at); };
    EXPECT_EQ(rawCodeOf([&] { move(ReplacementPolicy::FailIfExists); }), 9U);
}

TEST_F(FolderMove, IntoItsOwnDescendantLosesNothing) {
    moveFailsWith(11);
    EXPECT_EQ(
        codeOf([&] { source().moveFolder(at(u"mem:/s/x"), ReplacementPolicy::KeepExisting); }),
        ErrorCode::InvalidLocation);
    EXPECT_FALSE(sourceIsGone());
}

TEST_F(FolderMove, OntoItselfByAnotherSpellingLosesNothing) {
    for (char16_t const* self : {u"mem:/s", u"mem:/s/", u"mem:/x/../s"}) {
        for (ReplacementPolicy const policy : everyPolicy) {
            EXPECT_EQ(codeOf([&] { source().moveFolder(at(self), policy); }),
                      ErrorCode::InvalidLocation);
        }
    }
    for (std::string const& call : mem->calls()) {
        EXPECT_EQ(call, "moveFolder");
    }
}

// A surprise of the copy that is kept: the source is removed as copied.
TEST_F(FolderMove, SourceFileThatVanishesTakesTheRestOfItsFolderWithIt) {
    moveFailsWith(11);
    failOn("copyFile mem:/d/a", 4);
    EXPECT_NO_THROW(move(ReplacementPolicy::FailIfExists));
    EXPECT_TRUE(files.empty());
    EXPECT_TRUE(sourceIsGone());
}

} // namespace
