#include <foundation/storage/provider/streaming_copy.hpp>

#include "scripted_provider.hpp"

#include <foundation/storage/provider/memory/memory_factory.hpp>

#include <gmock/gmock.h>

namespace {

using namespace scripted;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto readOnly = false;

std::string pattern(std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>(i * 31 + i / 4096);
    }
    return bytes;
}

template<class Source, class Destination>
struct Pair {
    std::shared_ptr<Source> source = std::make_shared<Source>();
    std::shared_ptr<Destination> destination = std::make_shared<Destination>();

    CopyStatus copy(CopyFileOptions const& options = {}, char16_t const* from = u"/from",
                    char16_t const* to = u"/to") {
        return copyFileByStreams(*source, at(from), StorageItem(destination, at(to)), options);
    }
    std::string const& copied() { return destination->state.items.at(u"/to").bytes; }
    int openStreams() { return source->state.openStreams + destination->state.openStreams; }
};

CopyFileOptions with(ReplacementPolicy policy) {
    return {policy, 0, {}};
}

template<class Call>
std::pair<ErrorCode, ustring> failureOf(Call const& call) {
    try {
        call();
    } catch (Exception const& e) {
        return {e.getErrorCode(), e.getStorageIRI().getPath()};
    }
    return {ErrorCode::Unknown, u"no failure"};
}

std::pair<ErrorCode, ustring> failure(ErrorCode code, char16_t const* path) {
    return {code, path};
}

TEST(StreamingCopy, BringsEveryByteWhateverTheSize) {
    for (std::size_t const size : {0UL, 1UL, 65535UL, 65536UL, 65537UL, 1048576UL, 1048577UL,
                                   65536UL + 1048576UL, 5UL * 1048576UL + 7UL}) {
        Pair<Disk, Disk> inPlace;
        inPlace.source->state.items[u"/from"].bytes = pattern(size);
        EXPECT_EQ(inPlace.copy(), CopyStatus::Copied);
        EXPECT_TRUE(inPlace.copied() == pattern(size)) << size;

        Pair<Disk, ReplacingDisk> replacing;
        replacing.source->state.items[u"/from"].bytes = pattern(size);
        EXPECT_EQ(replacing.copy(), CopyStatus::Copied);
        EXPECT_TRUE(replacing.copied() == pattern(size)) << size;
    }
}

TEST(StreamingCopy, NeedsNoMoreOfTheDestinationThanThatItOpens) {
    Pair<TenLines, TenLines> pair;
    pair.source->state.items[u"/from"].bytes = "abc";
    pair.copy();
    EXPECT_EQ(pair.copied(), "abc");
}

TEST(StreamingCopy, ReportsBytesDoneAndBytesInAll) {
    Pair<Disk, Disk> pair;
    pair.source->state.items[u"/from"].bytes = pattern(2'000'000);
    std::vector<std::uint64_t> done;
    CopyFileOptions options;
    options.progress = [&](std::uint64_t bytes, std::optional<std::uint64_t> total) {
        EXPECT_EQ(total, 2'000'000U);
        done.push_back(bytes);
        return true;
    };
    pair.copy(options);
    EXPECT_THAT(done, ElementsAre(65536U, 65536U + 1048576U, 2'000'000U));
}

TEST(StreamingCopy, ReportsAnUnknownTotalWhereTheSourceTellsNoAttributes) {
    Pair<Disk, Disk> pair;
    pair.source->state.items[u"/from"].bytes = "abc";
    pair.source->state.tellsAttributes = false;
    int calls = 0;
    CopyFileOptions options;
    options.progress = [&](std::uint64_t bytes, std::optional<std::uint64_t> total) {
        EXPECT_EQ(bytes, 3U);
        EXPECT_EQ(total, std::nullopt);
        return ++calls > 0;
    };
    pair.copy(options);
    EXPECT_EQ(calls, 1);
}

TEST(StreamingCopy, ReportsAnEmptyFileOnce) {
    Pair<Disk, Disk> pair;
    pair.source->state.items[u"/from"];
    int calls = 0;
    CopyFileOptions options;
    options.progress = [&](std::uint64_t bytes, std::optional<std::uint64_t>) {
        EXPECT_EQ(bytes, 0U);
        return ++calls > 0;
    };
    pair.copy(options);
    EXPECT_EQ(calls, 1);
}

TEST(StreamingCopy, AsksForNoSizeThatNobodyWants) {
    Pair<Disk, ReplacingDisk> pair;
    pair.source->state.items[u"/from"].bytes = "abc";
    pair.copy();
    // exists, open, two reads, close
    EXPECT_EQ(pair.source->state.operations, 5);
}

template<class Pair>
void cancelAtFirstReport(Pair& pair) {
    CopyFileOptions options = with(ReplacementPolicy::ReplaceExisting);
    options.progress = [](std::uint64_t, std::optional<std::uint64_t>) { return false; };
    EXPECT_EQ(failureOf([&] { pair.copy(options); }), failure(ErrorCode::IOError, u"/to"));
    EXPECT_EQ(pair.openStreams(), 0);
}

TEST(StreamingCopy, CanceledLeavesNoPartialDestination) {
    Pair<Disk, Disk> fresh;
    fresh.source->state.items[u"/from"].bytes = pattern(200'000);
    cancelAtFirstReport(fresh);
    EXPECT_THAT(fresh.destination->state.items, IsEmpty());

    Pair<Disk, Disk> overOld;
    overOld.source->state.items[u"/from"].bytes = pattern(200'000);
    overOld.destination->state.items[u"/to"].bytes = "old";
    cancelAtFirstReport(overOld);
    EXPECT_THAT(overOld.destination->state.items, IsEmpty());

    Pair<Disk, ReplacingDisk> replacing;
    replacing.source->state.items[u"/from"].bytes = pattern(200'000);
    replacing.destination->state.items[u"/to"].bytes = "old";
    cancelAtFirstReport(replacing);
    EXPECT_EQ(replacing.copied(), "old");
}

TEST(StreamingCopy, ProgressThatThrowsEndsTheCopyTheSameWay) {
    Pair<Disk, Disk> pair;
    pair.source->state.items[u"/from"].bytes = "abc";
    CopyFileOptions options;
    options.progress = [](std::uint64_t, std::optional<std::uint64_t>) -> bool {
        throw std::runtime_error("enough");
    };
    EXPECT_THROW(pair.copy(options), std::runtime_error);
    EXPECT_THAT(pair.destination->state.items, IsEmpty());
}

TEST(StreamingCopy, HonoursThePolicyInPlace) {
    struct Row {
        ReplacementPolicy policy;
        bool writable;
        std::optional<ErrorCode> refusal;
    };
    for (Row const& row :
         {Row{ReplacementPolicy::FailIfExists, true, ErrorCode::ResourceAlreadyExists},
          Row{ReplacementPolicy::KeepExisting, true, ErrorCode::ResourceAlreadyExists},
          Row{ReplacementPolicy::FailIfExists, readOnly, ErrorCode::ResourceAlreadyExists},
          Row{ReplacementPolicy::ReplaceExisting, true, std::nullopt},
          Row{ReplacementPolicy::ReplaceReadOnly, true, std::nullopt},
          Row{ReplacementPolicy::ReplaceAndDeferDenied, true, std::nullopt},
          Row{ReplacementPolicy::ReplaceExisting, readOnly, ErrorCode::PermissionDenied},
          Row{ReplacementPolicy::ReplaceReadOnly, readOnly, ErrorCode::PermissionDenied}}) {
        Pair<Disk, Disk> pair;
        pair.source->state.items[u"/from"].bytes = "new";
        pair.destination->state.items[u"/to"] = {
            ExtendedExistsResult::File, "old", {}, row.writable};
        if (row.refusal) {
            EXPECT_EQ(failureOf([&] { pair.copy(with(row.policy)); }),
                      failure(*row.refusal, u"/to"));
            EXPECT_EQ(pair.copied(), "old");
            EXPECT_THAT(pair.destination->state.changes, IsEmpty());
        } else {
            pair.copy(with(row.policy));
            EXPECT_EQ(pair.copied(), "new");
        }
    }
}

TEST(StreamingCopy, LeavesThePolicyToADestinationThatReplaces) {
    Pair<Disk, ReplacingDisk> pair;
    pair.source->state.items[u"/from"].bytes = "new";
    pair.destination->state.items[u"/to"].bytes = "old";
    EXPECT_EQ(failureOf([&] { pair.copy(); }), failure(ErrorCode::ResourceAlreadyExists, u"/to"));
    EXPECT_EQ(pair.copied(), "old");
    pair.copy(with(ReplacementPolicy::ReplaceExisting));
    EXPECT_EQ(pair.copied(), "new");
}

TEST(StreamingCopy, RefusesToWriteOverWhatIsNoFile) {
    for (auto const& [kind, code] :
         {std::pair{ExtendedExistsResult::Folder, ErrorCode::InvalidLocation},
          std::pair{ExtendedExistsResult::Other, ErrorCode::UnsupportedOperation}}) {
        Pair<Disk, Disk> pair;
        pair.source->state.items[u"/from"].bytes = "new";
        pair.destination->state.items[u"/to"].kind = kind;
        EXPECT_EQ(failureOf([&] { pair.copy(with(ReplacementPolicy::ReplaceExisting)); }),
                  failure(code, u"/to"));
        EXPECT_THAT(pair.destination->state.changes, IsEmpty());
    }
}

TEST(StreamingCopy, RefusesASourceThatIsNoFile) {
    struct Row {
        std::optional<ExtendedExistsResult> kind;
        ErrorCode code;
    };
    for (Row const& row :
         {Row{std::nullopt, ErrorCode::ResourceNotFound},
          Row{ExtendedExistsResult::Folder, ErrorCode::InvalidLocation},
          Row{ExtendedExistsResult::Other, ErrorCode::UnsupportedOperation},
          Row{ExtendedExistsResult::LinkToFolder, ErrorCode::UnsupportedOperation},
          Row{ExtendedExistsResult::DanglingLink, ErrorCode::UnsupportedOperation}}) {
        Pair<LinkingDisk, Disk> pair;
        if (row.kind) {
            pair.source->state.items[u"/from"].kind = *row.kind;
        }
        EXPECT_EQ(failureOf([&] { pair.copy(); }), failure(row.code, u"/from"));
        EXPECT_THAT(pair.destination->state.changes, IsEmpty());
    }
}

TEST(StreamingCopy, NamesTheSourceAlsoWhereItsAbsenceIsThrown) {
    Pair<Disk, Disk> pair;
    pair.source->state.throwsForMissing = true;
    EXPECT_EQ(failureOf([&] { pair.copy(); }), failure(ErrorCode::ResourceNotFound, u"/from"));
}

TEST(StreamingCopy, TakesAThrownAbsenceOfTheDestinationForAbsence) {
    Pair<Disk, Disk> pair;
    pair.source->state.items[u"/from"].bytes = "abc";
    pair.destination->state.throwsForMissing = true;
    pair.copy();
    EXPECT_EQ(pair.copied(), "abc");
}

TEST(StreamingCopy, RefusesTwoNamesOfOneItemBeforeAnythingChanges) {
    auto const disk = std::make_shared<Disk>();
    disk->state.items[u"/folder/file"].bytes = "abc";
    StorageItem const sameByAnotherName(disk, at(u"/folder/../folder/file"));
    EXPECT_EQ(failureOf([&] {
                  copyFileByStreams(*disk, at(u"/folder/file"), sameByAnotherName,
                                    with(ReplacementPolicy::ReplaceExisting));
              }),
              failure(ErrorCode::InvalidLocation, u"/folder/file"));
    EXPECT_THAT(disk->state.changes, IsEmpty());
}

TEST(StreamingCopy, CopiesTheSamePathFromOneStorageToAnother) {
    Pair<Disk, Disk> pair;
    pair.source->state.items[u"/from"].bytes = "abc";
    pair.copy({}, u"/from", u"/from");
    EXPECT_EQ(pair.destination->state.items.at(u"/from").bytes, "abc");
}

TEST(StreamingCopy, DoesNotEmptyAFileThatTwoProvidersServe) {
    // Two providers of one kind may stand on one storage; what is written in place there is gone.
    Pair<Disk, Disk> pair;
    pair.source->state.items[u"/from"].bytes = "abc";
    pair.destination->state.items[u"/from"].bytes = "abc";
    EXPECT_EQ(failureOf([&] {
                  pair.copy(with(ReplacementPolicy::ReplaceExisting), u"/from", u"/x/../from");
              }),
              failure(ErrorCode::InvalidLocation, u"/from"));
    EXPECT_THAT(pair.destination->state.changes, IsEmpty());
}

TEST(StreamingCopy, LeavesALinkAloneThatIsAlreadyThere) {
    Pair<LinkingDisk, LinkingDisk> pair;
    pair.source->state.items[u"/from"] = {ExtendedExistsResult::LinkToFile, {}, u"v1"};
    pair.destination->state.items[u"/to"] = {ExtendedExistsResult::LinkToFile, {}, u"v1"};
    pair.copy(with(ReplacementPolicy::ReplaceExisting));
    EXPECT_EQ(pair.destination->state.items.at(u"/to").target, u"v1");
    EXPECT_THAT(pair.destination->state.changes, IsEmpty());
    EXPECT_EQ(failureOf([&] { pair.copy(); }), failure(ErrorCode::ResourceAlreadyExists, u"/to"));
}

TEST(StreamingCopy, LinkMayBeCopiedAgainAndAgainBetweenRealStorages) {
    auto const source = memory::buildMemoryProvider();
    auto const destination = memory::buildMemoryProvider();
    auto& sourceLinks = dynamic_cast<extensions::ILinks&>(*source);
    auto& destinationLinks = dynamic_cast<extensions::ILinks&>(*destination);
    source->createFile(StorageIRI(u"mem:/v1"));
    destination->createFile(StorageIRI(u"mem:/v1"));
    sourceLinks.createLink(StorageIRI(u"mem:/cur"), u"v1");
    destinationLinks.createLink(StorageIRI(u"mem:/cur"), u"/v1");

    for (int again = 0; again < 2; ++again) {
        source->copyFile(StorageIRI(u"mem:/cur"), StorageItem(destination, StorageIRI(u"mem:/cur")),
                         with(ReplacementPolicy::ReplaceExisting));
        EXPECT_EQ(destinationLinks.readLink(StorageIRI(u"mem:/cur")), u"v1");
    }
    EXPECT_EQ(destination->exists(StorageIRI(u"mem:/v1")), ExistsResult::File);
}

TEST(StreamingCopy, CanceledCopyOfALinkMakesNone) {
    Pair<LinkingDisk, LinkingDisk> pair;
    pair.source->state.items[u"/from"] = {ExtendedExistsResult::LinkToFile, {}, u"v1"};
    CopyFileOptions options;
    options.progress = [](std::uint64_t, std::optional<std::uint64_t>) { return false; };
    EXPECT_EQ(failureOf([&] { pair.copy(options); }), failure(ErrorCode::IOError, u"/to"));
    EXPECT_THAT(pair.destination->state.changes, IsEmpty());
}

TEST(StreamingCopy, CopiedLinkAsksForNothingToBeDoneToWhatItLeadsTo) {
    for (auto const& [policy, status] :
         {std::pair(ReplacementPolicy::ReplaceExisting, CopyStatus::CopiedWithTimes),
          std::pair(ReplacementPolicy::ReplaceReadOnly, CopyStatus::Copied)}) {
        Pair<LinkingDisk, LinkingDisk> pair;
        pair.source->state.items[u"/from"] = {ExtendedExistsResult::LinkToFile, {}, u"v1"};
        EXPECT_EQ(pair.copy(with(policy)), status);
    }
}

TEST(StreamingCopy, MakesALinkAgainWhereBothSidesHaveLinks) {
    for (ExtendedExistsResult const kind :
         {ExtendedExistsResult::LinkToFile, ExtendedExistsResult::LinkToFolder,
          ExtendedExistsResult::DanglingLink}) {
        Pair<LinkingDisk, LinkingDisk> pair;
        pair.source->state.items[u"/from"] = {kind, {}, u"../there"};
        EXPECT_EQ(pair.copy(), CopyStatus::CopiedWithTimes);
        EXPECT_EQ(pair.destination->state.items.at(u"/to").target, u"../there");
        EXPECT_THAT(pair.destination->state.changes, ElementsAre("link"));
    }
}

TEST(StreamingCopy, CopiesTheBytesOfALinkedFileWhereTheDestinationHasNoLinks) {
    Pair<LinkingDisk, Disk> pair;
    pair.source->state.items[u"/from"] = {ExtendedExistsResult::LinkToFile, "abc", u"there"};
    pair.copy();
    EXPECT_EQ(pair.copied(), "abc");
}

TEST(StreamingCopy, ALinkTakesThePlaceOfAFileInOneStep) {
    Pair<LinkingDisk, LinkingDisk> pair;
    pair.source->state.items[u"/from"] = {ExtendedExistsResult::DanglingLink, {}, u"there"};
    pair.destination->state.items[u"/to"].bytes = "old";
    EXPECT_EQ(failureOf([&] { pair.copy(); }), failure(ErrorCode::ResourceAlreadyExists, u"/to"));
    pair.copy(with(ReplacementPolicy::ReplaceExisting));
    EXPECT_EQ(pair.destination->state.items.at(u"/to").target, u"there");
    EXPECT_EQ(pair.destination->state.items.size(), 1U);
    EXPECT_THAT(pair.destination->state.changes, ElementsAre("link", "move"));
}

TEST(StreamingCopy, ALinkTakesThePlaceOfAFileAlsoWhereNothingCanBeMoved) {
    Pair<LinkingDisk, LinkingDisk> pair;
    pair.source->state.items[u"/from"] = {ExtendedExistsResult::DanglingLink, {}, u"there"};
    pair.destination->state.items[u"/to"].bytes = "old";
    pair.destination->moves = false;
    pair.copy(with(ReplacementPolicy::ReplaceExisting));
    EXPECT_EQ(pair.destination->state.items.at(u"/to").target, u"there");
    EXPECT_EQ(pair.destination->state.items.size(), 1U);
}

TEST(StreamingCopy, ALinkThatCannotTakeItsPlaceLeavesTheOldFileAndNoTrace) {
    for (int n = 1;; ++n) {
        Pair<LinkingDisk, LinkingDisk> pair;
        pair.source->state.items[u"/from"] = {ExtendedExistsResult::DanglingLink, {}, u"there"};
        pair.destination->state.items[u"/to"].bytes = "old";
        pair.destination->state.failAt = n;
        auto const failed = failureOf([&] { pair.copy(with(ReplacementPolicy::ReplaceExisting)); });
        EXPECT_EQ(pair.destination->state.items.size(), 1U) << n;
        if (pair.destination->state.operations < n) {
            EXPECT_EQ(pair.destination->state.items.at(u"/to").target, u"there");
            EXPECT_GT(n, 4);
            break;
        }
        EXPECT_EQ(failed.first, ErrorCode::IOError) << n;
        EXPECT_EQ(pair.copied(), "old") << n;
    }
}

TEST(StreamingCopy, ReplacesALinkInsteadOfWritingThroughIt) {
    Pair<Disk, Disk> pair;
    pair.source->state.items[u"/from"].bytes = "new";
    pair.destination->state.items[u"/to"] = {ExtendedExistsResult::LinkToFile, "behind it", {}};
    pair.copy(with(ReplacementPolicy::ReplaceExisting));
    EXPECT_EQ(pair.copied(), "new");
    EXPECT_THAT(pair.destination->state.changes, ElementsAre("remove", "create", "open"));
}

/// Makes the n-th operation of one side fail, for n = 1, 2, 3 ... until the copy passes, and lets
/// `check` look at what each failure left.
template<class Pair, class Check>
void failEveryOperationOf(State& (*side)(Pair&), std::optional<std::string> const& old,
                          Check const& check) {
    int n = 1;
    for (;; ++n) {
        Pair pair;
        pair.source->state.items[u"/from"].bytes = pattern(2'000'000);
        if (old) {
            pair.destination->state.items[u"/to"].bytes = *old;
        }
        side(pair).failAt = n;
        bool passed = false;
        try {
            pair.copy(with(ReplacementPolicy::ReplaceExisting));
            passed = true;
        } catch (Exception const& e) {
            EXPECT_EQ(e.getErrorCode(), ErrorCode::IOError);
        } catch (ByteStreamFailure const& e) {
            EXPECT_EQ(e.getErrorCode(), ErrorCode::NoSpaceLeft);
        }
        EXPECT_EQ(pair.openStreams(), 0) << n;
        if (passed) {
            EXPECT_LT(side(pair).operations, n) << "a failure was swallowed";
            EXPECT_TRUE(pair.copied() == pattern(2'000'000));
            break;
        }
        check(pair, n);
    }
    EXPECT_GT(n, 4) << "the fault was never reached";
}

template<class Pair>
State& sourceOf(Pair& pair) {
    return pair.source->state;
}
template<class Pair>
State& destinationOf(Pair& pair) {
    return pair.destination->state;
}

TEST(StreamingCopy, AFailureAtAnyPointLeavesNothingThatWasNotThere) {
    auto const nothing = [](auto& pair, int n) {
        EXPECT_THAT(pair.destination->state.items, IsEmpty()) << n;
    };
    failEveryOperationOf<Pair<Disk, Disk>>(sourceOf, std::nullopt, nothing);
    failEveryOperationOf<Pair<Disk, Disk>>(destinationOf, std::nullopt, nothing);
    failEveryOperationOf<Pair<Disk, TenLines>>(destinationOf, std::nullopt, nothing);
    failEveryOperationOf<Pair<Disk, ReplacingDisk>>(sourceOf, std::nullopt, nothing);
    failEveryOperationOf<Pair<Disk, ReplacingDisk>>(destinationOf, std::nullopt, nothing);
}

TEST(StreamingCopy, AFailureAtAnyPointKeepsTheOldContentOfADestinationThatReplaces) {
    auto const oldContent = [](auto& pair, int n) { EXPECT_EQ(pair.copied(), "old") << n; };
    failEveryOperationOf<Pair<Disk, ReplacingDisk>>(sourceOf, "old", oldContent);
    failEveryOperationOf<Pair<Disk, ReplacingDisk>>(destinationOf, "old", oldContent);
}

TEST(StreamingCopy, AFailureAtAnyPointRemovesNoFileThatWasThereBefore) {
    auto const stillThere = [](auto& pair, int n) {
        EXPECT_EQ(pair.destination->state.items.size(), 1U) << n;
    };
    failEveryOperationOf<Pair<Disk, Disk>>(sourceOf, "old", stillThere);
    failEveryOperationOf<Pair<Disk, Disk>>(destinationOf, "old", stillThere);
}

TEST(StreamingCopy, FailuresOfStreamsComeOutAsTheyAre) {
    Pair<Disk, ReplacingDisk> pair;
    pair.source->state.items[u"/from"].bytes = "abc";
    pair.destination->state.failAt = 2; // openReplacement, then the write
    try {
        pair.copy();
        FAIL() << "no failure";
    } catch (ByteStreamWriteFailure const& e) {
        EXPECT_STREQ(e.what(), "destination write");
        EXPECT_EQ(e.getErrorCode(), ErrorCode::NoSpaceLeft);
    }
}

TEST(StreamingCopy, ADestinationThatTakesLessThanItIsGivenFailsTheCopy) {
    Pair<Disk, Disk> pair;
    pair.source->state.items[u"/from"].bytes = "abc";
    pair.destination->state.largestWrite = 2;
    EXPECT_THROW(pair.copy(), ByteStreamWriteFailure);
    EXPECT_THAT(pair.destination->state.items, IsEmpty());
}

/// Somebody else creates the destination between the look at it and its creation.
class ContestedDisk : public Disk {
  public:
    void createFile(StorageIRI const& location) override {
        state.items[location.getResolvedPath()].bytes = "theirs";
        Disk::createFile(location);
    }
};

TEST(StreamingCopy, WhatSomebodyElseCreatedMeanwhileStaysTheirs) {
    Pair<Disk, ContestedDisk> pair;
    pair.source->state.items[u"/from"].bytes = "ours";
    EXPECT_EQ(failureOf([&] { pair.copy(); }), failure(ErrorCode::ResourceAlreadyExists, u"/to"));
    EXPECT_EQ(pair.copied(), "theirs");
    pair.destination->state.items.clear();
    pair.copy(with(ReplacementPolicy::ReplaceExisting));
    EXPECT_EQ(pair.copied(), "ours");
}

} // namespace
