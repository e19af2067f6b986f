#include <foundation/storage/conformance/detail/case.hpp>
#include <foundation/storage/conformance/detail/foreign_storage.hpp>
#include <foundation/storage/conformance/detail/trial.hpp>

#include <memory>

namespace foundation::storage::conformance::detail {

namespace {

using enum Ability;

constexpr AbilitySet forCopies = FileCopies | Writing;
constexpr std::size_t sizes[] = {0, 1, 4096, 65'536, 65'537, 131'071, 131'072, 131'073, 1'048'577};

std::string withPolicy(ReplacementPolicy policy) {
    return ", policy " + textOf(static_cast<int>(policy)) + ",";
}

/// Refused under each of these policies.
void expectCopyRefused(Trial& t, std::string const& what, ustring const& from, ustring const& to,
                       bool whereItReplaces, bool whereItLeaves, ErrorCode code,
                       ustring const& named) {
    for (ReplacementPolicy const policy : allPolicies) {
        if (replaces(policy) ? whereItReplaces : whereItLeaves) {
            t.expectRefused(
                "copyFile " + what + withPolicy(policy), [&] { t.copy(from, to, policy); }, code,
                t.at(named));
        }
    }
}

CopyStatus copyWith(Trial& t, ustring const& from, ustring const& to, CopyProgress progress,
                    ReplacementPolicy policy = ReplacementPolicy::FailIfExists) {
    return t.provider().copyFile(t.at(from), t.item(to), {policy, 0, std::move(progress)});
}

constexpr Case cases[] = {
    {"ACopyHasTheBytesAndTheSourceStays",
     [](Trial& t) {
         for (ReplacementPolicy const policy : allPolicies) {
             ustring const to =
                 u"copy " + ustring(1, static_cast<char16_t>(u'0' + static_cast<int>(policy)));
             t.makeFile(u"file", "content");
             t.copy(u"file", to, policy);
             t.expectFile(to, "content");
             t.expectFile(u"file", "content");
         }
     },
     forCopies},
    {"FilesOfEverySizeAreCopied",
     [](Trial& t) {
         for (std::size_t const size : sizes) {
             std::string const bytes = pattern(size, static_cast<unsigned>(size));
             t.makeFile(u"file", bytes);
             t.copy(u"file", u"copy", ReplacementPolicy::ReplaceExisting);
             t.expectFile(u"copy", bytes);
         }
     },
     forCopies},
    {"ACopyGoesToAnotherFolder",
     [](Trial& t) {
         t.makeFolder(u"folder");
         t.makeFile(u"file", "content");
         t.copy(u"file", u"folder/file");
         t.expectFile(u"folder/file", "content");
         t.expectFile(u"file", "content");
     },
     forCopies | FolderCreation},
    {"ACopyAndItsSourceGoTheirOwnWays",
     [](Trial& t) {
         t.makeFile(u"file", pattern(200'000));
         t.copy(u"file", u"copy");
         t.makeFile(u"file", "changed");
         t.expectFile(u"copy", pattern(200'000));
         t.makeFile(u"copy", "changed too");
         t.expectFile(u"file", "changed");
     },
     forCopies},
    {"WhatIsThereIsReplacedWhereThePolicySaysSo",
     [](Trial& t) {
         for (ReplacementPolicy const policy : allPolicies) {
             if (replaces(policy)) {
                 t.makeFile(u"file", "new");
                 t.makeFile(u"copy", "old and longer");
                 t.copy(u"file", u"copy", policy);
                 t.expectFile(u"copy", "new");
             }
         }
     },
     forCopies},
    {"WhatIsThereIsLeftWhereThePolicySaysSo",
     [](Trial& t) {
         t.makeFile(u"file", "new");
         t.makeFile(u"copy", "old");
         t.makeFolder(u"folder");
         expectCopyRefused(t, "over a file", u"file", u"copy", false, true,
                           ErrorCode::ResourceAlreadyExists, u"copy");
         expectCopyRefused(t, "over a folder", u"file", u"folder", false, true,
                           ErrorCode::ResourceAlreadyExists, u"folder");
         t.expectFile(u"copy", "old");
         t.expectEqual("exists of the folder", t.exists(u"folder"), ExistsResult::Folder);
     },
     forCopies | FolderCreation},
    {"AFolderIsNotReplaced",
     [](Trial& t) {
         t.makeFile(u"file", "new");
         t.makeFolder(u"folder");
         expectCopyRefused(t, "over a folder", u"file", u"folder", true, false,
                           ErrorCode::InvalidLocation, u"folder");
         t.expectEqual("exists of the folder", t.exists(u"folder"), ExistsResult::Folder);
     },
     forCopies | FolderCreation},
    {"AReadOnlyFileIsNotReplaced",
     [](Trial& t) {
         t.makeFile(u"file", "new");
         t.makeFile(u"copy", "old");
         t.makeReadOnly(u"copy");
         expectCopyRefused(t, "over a read-only file", u"file", u"copy", true, false,
                           ErrorCode::PermissionDenied, u"copy");
         t.expectFile(u"copy", "old");
     },
     forCopies | ReadOnlyItems},
    {"AReadOnlyFileIsCopied",
     [](Trial& t) {
         t.makeFile(u"file", "content");
         t.makeReadOnly(u"file");
         t.copy(u"file", u"copy");
         t.expectFile(u"copy", "content");
     },
     forCopies | ReadOnlyItems},
    {"WhatIsMissingIsNotCopied",
     [](Trial& t) {
         t.makeFile(u"there", "stays");
         expectCopyRefused(t, "of what is missing", u"missing", u"copy", true, true,
                           ErrorCode::ResourceNotFound, u"missing");
         expectCopyRefused(t, "of what is missing over a file", u"missing", u"there", true, true,
                           ErrorCode::ResourceNotFound, u"missing");
         t.expectGone(u"copy");
         t.expectFile(u"there", "stays");
     },
     forCopies},
    {"AFolderIsNotCopiedAsAFile",
     [](Trial& t) {
         t.makeFolder(u"folder");
         expectCopyRefused(t, "of a folder", u"folder", u"copy", true, true,
                           ErrorCode::InvalidLocation, u"folder");
         t.expectGone(u"copy");
     },
     forCopies | FolderCreation},
    {"NoneIsMadeInAMissingFolder",
     [](Trial& t) {
         t.makeFile(u"file", "content");
         expectCopyRefused(t, "to a missing folder", u"file", u"missing/copy", true, true,
                           ErrorCode::ResourceNotFound, u"missing/copy");
         t.expectGone(u"missing");
     },
     forCopies},
    {"NoneIsMadeBelowAFile",
     [](Trial& t) {
         t.makeFile(u"file", "content");
         t.makeFile(u"other", "stays");
         expectCopyRefused(t, "below a file", u"file", u"other/copy", true, true,
                           ErrorCode::ResourceNotFound, u"other/copy");
         t.expectFile(u"other", "stays");
     },
     forCopies},
    {"AFileIsNotCopiedOntoItself",
     [](Trial& t) {
         t.makeFile(u"file", "stays");
         expectCopyRefused(t, "onto itself", u"file", u"file", true, true,
                           ErrorCode::InvalidLocation, u"file");
         t.expectFile(u"file", "stays");
     },
     forCopies},
    {"AFileIsNotCopiedOntoAnotherSpellingOfItself",
     [](Trial& t) {
         t.makeFolder(u"folder");
         t.makeFile(u"file", "stays");
         StorageIRI const spelled = t.spelled(u"folder/../fil%65");
         for (ReplacementPolicy const policy : allPolicies) {
             t.expectRefused(
                 "copyFile onto another spelling of itself" + withPolicy(policy),
                 [&] {
                     StorageItem const self(t.item(u"file").getProvider(), spelled);
                     t.provider().copyFile(t.at(u"file"), self, {policy, 0, {}});
                 },
                 ErrorCode::InvalidLocation, t.at(u"file"));
         }
         t.expectFile(u"file", "stays");
     },
     forCopies | FolderCreation},
    {"ProgressRisesToAllThereIs",
     [](Trial& t) {
         for (std::size_t const size : {std::size_t{1}, std::size_t{1'000'000}}) {
             t.makeFile(u"file", pattern(size));
             std::uint64_t last = 0;
             int calls = 0;
             copyWith(
                 t, u"file", u"copy",
                 [&](std::uint64_t done, std::optional<std::uint64_t> total) {
                     t.expect(done >= last, "progress went back");
                     t.expect(!total || *total == size, "progress told another size in all");
                     last = done;
                     ++calls;
                     return true;
                 },
                 ReplacementPolicy::ReplaceExisting);
             t.expect(calls > 0, "progress was not told");
             t.expectEqual("the bytes done in the end", last, std::uint64_t{size});
         }
     },
     forCopies},
    {"ACanceledCopyLeavesNothing",
     [](Trial& t) {
         t.makeFile(u"file", pattern(500'000));
         t.expectRefused(
             "a copy that is canceled",
             [&] {
                 copyWith(t, u"file", u"copy",
                          [](std::uint64_t, std::optional<std::uint64_t>) { return false; });
             },
             ErrorCode::IOError, t.at(u"copy"));
         t.expectGone(u"copy");
         t.expectFile(u"file", pattern(500'000));
     },
     forCopies},
    {"ACanceledCopyKeepsWhatWasThere",
     [](Trial& t) {
         t.makeFile(u"file", pattern(500'000));
         t.makeFile(u"copy", "old");
         t.expectRefused(
             "a copy over a file that is canceled",
             [&] {
                 copyWith(
                     t, u"file", u"copy",
                     [](std::uint64_t, std::optional<std::uint64_t>) { return false; },
                     ReplacementPolicy::ReplaceExisting);
             },
             ErrorCode::IOError, t.at(u"copy"));
         t.expectFile(u"copy", "old");
     },
     forCopies | Replacement},
    {"WhatProgressThrowsEndsTheCopy",
     [](Trial& t) {
         struct Thrown {};
         t.makeFile(u"file", pattern(500'000));
         try {
             copyWith(t, u"file", u"copy",
                      [](std::uint64_t, std::optional<std::uint64_t>) -> bool { throw Thrown(); });
             t.remark("what progress throws does not come out of copyFile");
         } catch (Thrown const&) {
         }
         t.expectGone(u"copy");
     },
     forCopies},
    {"ProgressMayUseTheStorage",
     [](Trial& t) {
         t.makeFile(u"file", "content");
         copyWith(t, u"file", u"copy", [&](std::uint64_t, std::optional<std::uint64_t>) {
             t.exists(u"file");
             t.makeFile(u"made meanwhile", "other");
             return true;
         });
         t.expectFile(u"copy", "content");
         t.expectFile(u"made meanwhile", "other");
     },
     forCopies},
    {"TheStatusIsRightAboutTheTimes",
     [](Trial& t) {
         t.makeFile(u"file", "content");
         t.provider().setLastModified(t.at(u"file"), toPtime({1'000'000'000, 0}));
         CopyStatus const status = t.copy(u"file", u"copy");
         auto const time = t.provider().getFileAttributes(t.at(u"copy")).values().lastModified;
         t.expectEqual("copyFile says that the times are copied",
                       status == CopyStatus::CopiedWithTimes,
                       time == t.provider().getFileAttributes(t.at(u"file")).values().lastModified);
     },
     forCopies | Times | Ability::FileAttributes},
    {"NothingElseIsLeftBehind",
     [](Trial& t) {
         t.makeFile(u"file", "new");
         t.makeFile(u"there", "old");
         t.copy(u"file", u"copy");
         t.copy(u"file", u"there", ReplacementPolicy::ReplaceExisting);
         t.expectEqual("the names that are left", t.names({}), {u"copy", u"file", u"there"});
     },
     forCopies | Ability::Listing},
    {"AFileIsCopiedToAnotherStorage",
     [](Trial& t) {
         auto const elsewhere = std::make_shared<ForeignStorage>();
         for (DeclaredItem const& item : std::vector(t.content())) {
             if (item.kind == DeclaredItem::Kind::File) {
                 t.provider().copyFile(t.at(item.path),
                                       StorageItem(elsewhere, ForeignStorage::at(u"copy")),
                                       {ReplacementPolicy::ReplaceExisting, 0, {}});
                 t.expectEqual("what another storage got of " + textOf(item.path),
                               elsewhere->get(u"copy"), item.bytes);
             }
         }
     },
     Reading},
    {"ACopyToAnotherStorageLeavesWhatIsThere",
     [](Trial& t) {
         auto const elsewhere = std::make_shared<ForeignStorage>();
         elsewhere->put(u"copy", "old");
         for (DeclaredItem const& item : std::vector(t.content())) {
             if (item.kind == DeclaredItem::Kind::File) {
                 StorageIRI const there = ForeignStorage::at(u"copy");
                 t.expectRefused(
                     "copyFile over a file of another storage",
                     [&] {
                         t.provider().copyFile(t.at(item.path), StorageItem(elsewhere, there),
                                               {ReplacementPolicy::FailIfExists, 0, {}});
                     },
                     ErrorCode::ResourceAlreadyExists, there);
             }
         }
         t.expectEqual("what another storage had", elsewhere->get(u"copy"), std::string("old"));
     },
     Reading},
    {"AFileIsCopiedFromAnotherStorage",
     [](Trial& t) {
         ForeignStorage elsewhere;
         for (std::size_t const size : sizes) {
             std::string const bytes = pattern(size);
             elsewhere.put(u"file", bytes);
             elsewhere.copyFile(ForeignStorage::at(u"file"), t.item(u"copy"),
                                {ReplacementPolicy::ReplaceExisting, 0, {}});
             t.expectFile(u"copy", bytes);
         }
     },
     Ability::Writing},
    {"WhatIsMissingIsNotCopiedFromAnotherStorage",
     [](Trial& t) {
         ForeignStorage elsewhere;
         t.makeFile(u"copy", "old");
         StorageIRI const missing = ForeignStorage::at(u"missing");
         t.expectRefused(
             "copyFile of what another storage has not",
             [&] {
                 elsewhere.copyFile(missing, t.item(u"copy"),
                                    {ReplacementPolicy::ReplaceExisting, 0, {}});
             },
             ErrorCode::ResourceNotFound, missing);
         t.expectFile(u"copy", "old");
     },
     Ability::Writing},
};

} // namespace

Family copyFamily() {
    return {"Copies", cases};
}

} // namespace foundation::storage::conformance::detail
