#include "child_process.hpp"
#include "listing_fixture.hpp"

#include <sys/mount.h>
#include <utility>

namespace foundation::storage::provider::local::test {
namespace {

class LocalFolderMoves : public LocalProviderTest {
  protected:
    LocalFolderMoves() {
        makeFile("file", "content");
        makeFolder("folder");
        makeFile("folder/inner", "inside");
        makeFolder("empty");
        makeLink("link to nothing", "missing");
    }

    void moveFolder(std::string_view from, std::string_view to,
                    ReplacementPolicy policy = ReplacementPolicy::FailIfExists) const {
        provider_->moveFolder(at(from), at(to), policy);
    }
};

constexpr bool replacesFolders(ReplacementPolicy policy) {
    return policy != ReplacementPolicy::FailIfExists && policy != ReplacementPolicy::KeepExisting;
}

TEST_F(LocalFolderMoves, WhatAFolderMeetsIsAnsweredUnderEveryPolicy) {
    makeFolder("full");
    makeFile("full/kept", "kept");
    makeLink("link to folder", "full");
    makeFolder("locked", 0555);
    for (ReplacementPolicy const policy : allPolicies) {
        bool const replaced = replacesFolders(policy);
        for (auto const& [name, code] : {std::pair("file", ErrorCode::InvalidLocation),
                                         {"link to folder", ErrorCode::InvalidLocation},
                                         {"link to nothing", ErrorCode::InvalidLocation},
                                         {"full", ErrorCode::FolderNotEmpty},
                                         {"locked", ErrorCode::PermissionDenied}}) {
            EXPECT_TRUE(isRefused([&] { moveFolder("folder", name, policy); },
                                  replaced ? code : ErrorCode::ResourceAlreadyExists, at(name)))
                << name;
        }
        EXPECT_TRUE(replaced || isRefused([&] { moveFolder("folder", "empty", policy); },
                                          ErrorCode::ResourceAlreadyExists, at("empty")));
        moveFolder("folder", replaced ? "empty" : "new", policy);
        EXPECT_EQ(content(replaced ? "empty/inner" : "new/inner"), "inside");
        moveFolder(replaced ? "empty" : "new", "folder");
        EXPECT_TRUE(!replaced || !isThere("empty"));
        if (replaced) {
            makeFolder("empty");
        }
    }
    EXPECT_EQ(content("folder/inner"), "inside");
    EXPECT_EQ(content("full/kept"), "kept");
    EXPECT_EQ(content("file"), "content");
}

// After such a refusal a caller that copies and removes would lose files, or fill the disk.
TEST_F(LocalFolderMoves, WhereACopyWouldGoIntoItsOwnSourceTheMoveIsInvalidWhateverElseThereIs) {
    makeFolder("folder/below");
    makeFile("folder/below/file");
    makeFolder("folder/locked", 0555);
    makeFolder("folder/empty");
    makeFolder("folder/folder");
    makeFile("folder/folder/again");
    makeLink("way in", "folder/below");
    makeLink("folder/way around", "../folder/empty");
    makeLink("folder/way to nothing", "/nothing at all");
    makeLink("here", ".");
    Names const whole = treeOnDisk(path(""));
    for (ReplacementPolicy const policy : allPolicies) {
        for (char const* const name :
             {"folder/below", "folder/locked", "folder/empty", "folder/new", "way in", "way in/new",
              "folder/way around", "folder/way to nothing", "here/folder/below",
              "here/here/folder/new", ""}) {
            EXPECT_TRUE(isRefused([&] { moveFolder("folder", name, policy); },
                                  ErrorCode::InvalidLocation, at(name)))
                << name << " under " << static_cast<int>(policy);
        }
        EXPECT_TRUE(isRefused([&] { moveFolder("here/folder", "here", policy); },
                              ErrorCode::InvalidLocation, at("here")));
    }
    EXPECT_EQ(treeOnDisk(path("")), whole);
}

TEST_F(LocalFolderMoves, OntoAFolderAboveItIsJustNotEmptyWhereACopyWouldDoNoHarm) {
    makeFolder("folder/below");
    makeFolder("folder/below/way");
    for (ReplacementPolicy const policy : allPolicies) {
        ErrorCode const code =
            replacesFolders(policy) ? ErrorCode::FolderNotEmpty : ErrorCode::ResourceAlreadyExists;
        EXPECT_TRUE(
            isRefused([&] { moveFolder("folder/below", "folder", policy); }, code, at("folder")));
        EXPECT_TRUE(isRefused([&] { moveFolder("folder/below/way", "folder", policy); }, code,
                              at("folder")));
    }
    makeFolder("folder/below/way/below");
    makeFolder("folder/below/way/below/way");
    for (ReplacementPolicy const policy : allPolicies) {
        EXPECT_TRUE(isRefused([&] { moveFolder("folder/below/way", "folder", policy); },
                              ErrorCode::InvalidLocation, at("folder")));
    }
}

TEST_F(LocalFolderMoves, AcrossMountsAFolderIsNotMovedIntoItselfEither) {
    if (!mayMount()) {
        GTEST_SKIP() << "reason: needs the right to mount";
    }
    makeFolder("folder/below");
    std::string const outcome = inChild([&] {
        if (!mountMemory(path("empty"), "1m")) {
            return std::string("not mounted");
        }
        makeFolder("empty/view");
        if (::mount(path("").c_str(), path("empty/view").c_str(), nullptr, MS_BIND, nullptr) != 0) {
            return std::string("not mounted");
        }
        std::string codes;
        for (ReplacementPolicy const policy : allPolicies) {
            for (auto const& [from, to] : {std::pair("folder", "empty/view/folder"),
                                           {"folder", "empty/view/folder/below"},
                                           {"folder", "empty/view/folder/new"},
                                           {"folder", "empty/view/new"}}) {
                auto const refusal = refusalOf([&] { moveFolder(from, to, policy); });
                codes += refusal ? std::to_string(static_cast<int>(refusal->code)) + ' ' : "moved ";
            }
        }
        return codes;
    });

    EXPECT_EQ(outcome, "1 1 1 11 1 1 1 11 1 1 1 11 1 1 1 11 1 1 1 11 ");
    EXPECT_EQ(content("folder/inner"), "inside");
}

TEST_F(LocalFolderMoves, AFolderDoesNotMoveIntoItself) {
    for (ReplacementPolicy const policy : allPolicies) {
        EXPECT_TRUE(isRefused([&] { moveFolder("folder", "folder/below", policy); },
                              ErrorCode::InvalidLocation, at("folder/below")));
    }
    EXPECT_TRUE(isThere("folder/inner"));
}

TEST_F(LocalFolderMoves, AnEmptyFolderIsReplacedAndAFullOneIsNot) {
    makeFolder("full");
    makeFile("full/kept", "kept");
    for (ReplacementPolicy const policy : allPolicies) {
        EXPECT_TRUE(isRefused([&] { moveFolder("folder", "full", policy); },
                              replacesFolders(policy) ? ErrorCode::FolderNotEmpty
                                                      : ErrorCode::ResourceAlreadyExists,
                              at("full")));
    }
    EXPECT_TRUE(isRefused([&] { moveFolder("folder", "empty"); }, ErrorCode::ResourceAlreadyExists,
                          at("empty")));

    moveFolder("folder", "empty", ReplacementPolicy::ReplaceExisting);

    EXPECT_EQ(content("empty/inner"), "inside");
    EXPECT_EQ(content("full/kept"), "kept");
    EXPECT_FALSE(isThere("folder"));
}

} // namespace
} // namespace foundation::storage::provider::local::test
