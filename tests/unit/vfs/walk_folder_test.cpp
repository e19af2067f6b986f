// What both walks do alike, and the order that the serial one keeps.

#include <foundation/storage/vfs/walking/walk_folder.hpp>

#include <foundation/storage/vfs/streams/io_exception.hpp>

#include "walked_tree.hpp"

#include <gtest/gtest.h>

#include <set>
#include <stdexcept>
#include <thread>
#include <typeinfo>

namespace {

using namespace vfs_test;
using vfs::AbsoluteIRI;
using vfs::ErrorCode;
using vfs::Exception;
using vfs::Folder;
using vfs::FolderVisitor;

constexpr auto Continue = FolderVisitResult::Continue;
constexpr auto Skip = FolderVisitResult::Skip;
constexpr auto Stop = FolderVisitResult::Stop;
constexpr auto outOfRange = static_cast<FolderVisitResult>(7);

class AnyWalk : public WalkedTree, public testing::WithParamInterface<Walk> {
  protected:
    FolderVisitResult walk(char16_t const* text = u"mem:/r") {
        return GetParam().run(at(text), visitor);
    }
};
INSTANTIATE_TEST_SUITE_P(, AnyWalk, testing::Values(serialWalk, parallelWalk),
                         [](auto const& given) { return given.param.name; });

Calls const wholeTree{"after S", "after r", "before S", "before r", "file a", "file b", "file c"};

Calls without(Calls calls, std::set<std::string> const& left) {
    std::erase_if(calls, [&](std::string const& call) { return left.contains(call); });
    return calls;
}

TEST_P(AnyWalk, VisitsEveryItemOnce) {
    EXPECT_EQ(walk(), Continue);
    EXPECT_EQ(visitor.sorted(), wholeTree);
}

TEST_P(AnyWalk, AsksForUnfilteredListingsWithAttributesAndNothingElse) {
    walk();
    Calls log = storage.fake->log();
    std::sort(log.begin(), log.end());
    EXPECT_EQ(log, (Calls{"listAll mem:/r <>", "listAll mem:/r/S <>"}));
}

TEST_P(AnyWalk, HandsOutTheAttributesOfTheListing) {
    tree.add(u"mem:/r", {fileOfSize(u"a", 7), folderOfSize(u"S", 8)});
    struct Sizes : FolderVisitor {
        FolderVisitResult visitEntryBefore(vfs::FolderEntry const& entry) override {
            if (entry.getName() == u"S") {
                folderSize = entry.getAttributes().values().size.value_or(0);
            }
            return Continue;
        }
        FolderVisitResult visitEntry(vfs::FileEntry const& entry) override {
            if (entry.getName() == u"a") {
                fileSize = entry.getAttributes().values().size.value_or(0);
            }
            return Continue;
        }
        std::uint64_t fileSize = 0;
        std::uint64_t folderSize = 0;
    } sizes;
    GetParam().run(at(), sizes);
    EXPECT_EQ(sizes.fileSize, 7U);
    EXPECT_EQ(sizes.folderSize, 8U);
    EXPECT_EQ(storage.fake->calls(), (Calls{"listAll", "listAll"}));
}

TEST_P(AnyWalk, FolderComesBeforeAndBehindWhatIsInIt) {
    walk();
    Calls const calls = visitor.calls();
    EXPECT_EQ(calls.front(), "before r");
    EXPECT_EQ(calls.back(), "after r");
    auto const position = [&](char const* call) {
        return std::find(calls.begin(), calls.end(), call) - calls.begin();
    };
    EXPECT_LT(position("before S"), position("file b"));
    EXPECT_LT(position("file b"), position("after S"));
}

TEST_P(AnyWalk, EmptyFolderHasNothingBetweenItsTwoCalls) {
    tree.add(u"mem:/e", {});
    EXPECT_EQ(walk(u"mem:/e"), Continue);
    EXPECT_EQ(visitor.calls(), (Calls{"before e", "after e"}));
}

TEST_P(AnyWalk, RootIsAnEntryLikeAnyOther) {
    struct Root : FolderVisitor {
        FolderVisitResult visitEntryBefore(vfs::FolderEntry const& entry) override {
            name = entry.getName();
            location = entry.getFolder().getLocation().toString();
            return Skip;
        }
        vfs::ustring name;
        vfs::ustring location;
    } root_;
    EXPECT_EQ(GetParam().run(at(), root_), Skip);
    EXPECT_EQ(root_.name, u"r");
    EXPECT_EQ(root_.location, u"mem:/r");
}

// The results that mean the same to both walks. What is behind a Stop differs, and stands with
// each.
struct Answered {
    char const* call;
    FolderVisitResult answer;
    FolderVisitResult result;
    std::set<std::string> leftOut;
};

TEST_P(AnyWalk, ResultsDoWhatTheTableSays) {
    std::set<std::string> const inS{"file b", "after S"};
    std::set<std::string> const inR{"file a", "before S", "file b", "after S", "file c", "after r"};
    Answered const table[] = {
        {"before S", Continue, Continue, {}}, {"before S", Skip, Continue, inS},
        {"before r", Skip, Skip, inR},        {"before r", Stop, Stop, inR},
        {"file a", Skip, Continue, {}},       {"file a", outOfRange, Continue, {}},
        {"file b", Skip, Continue, {}},       {"file c", Stop, Stop, {"after r"}},
        {"after S", Skip, Continue, {}},      {"after S", outOfRange, Continue, {}},
        {"after r", Continue, Continue, {}},  {"after r", Skip, Skip, {}},
        {"after r", Stop, Stop, {}},          {"after r", outOfRange, outOfRange, {}},
    };
    for (Answered const& row : table) {
        RecordingVisitor answering;
        answering.on(row.call, row.answer);
        EXPECT_EQ(GetParam().run(at(), answering), row.result) << row.call << ' ' << row.answer;
        EXPECT_EQ(answering.sorted(), without(wholeTree, row.leftOut))
            << row.call << ' ' << row.answer;
    }
}

TEST_P(AnyWalk, SkippedFolderIsNotListed) {
    visitor.on("before r", Skip);
    EXPECT_EQ(walk(), Skip);
    EXPECT_TRUE(storage.fake->calls().empty());
    visitor.on("before r", Stop);
    EXPECT_EQ(walk(), Stop);
    EXPECT_TRUE(storage.fake->calls().empty());
}

TEST_P(AnyWalk, MissingRootCountsAsFinished) {
    EXPECT_EQ(walk(u"mem:/none"), Continue);
    EXPECT_EQ(visitor.calls(), (Calls{"before none", "after none"}));
    visitor.on("after none", Stop);
    EXPECT_EQ(walk(u"mem:/none"), Stop);
}

TEST_P(AnyWalk, MissingRootFailsWithWhatVisitEntryAfterThrows) {
    visitor.on("after none", failing(ErrorCode::ResourceInUse));
    EXPECT_EQ(codeOf([&] { walk(u"mem:/none"); }), ErrorCode::ResourceInUse);
}

TEST_P(AnyWalk, VanishedSubfolderCountsAsFinished) {
    failToList(u"mem:/r/S", 4);
    EXPECT_EQ(walk(), Continue);
    EXPECT_EQ(visitor.sorted(), without(wholeTree, {"file b"}));
}

TEST_P(AnyWalk, RefusedRootIsHandedToTheHandlerAndNotVisitedAfter) {
    for (std::uint32_t const code : {0U, 1U, 2U, 3U, 5U, 6U, 7U, 8U, 9U, 10U, 11U, 12U}) {
        FakeStorage refusing;
        refusing.fake->onList = [code](auto const&, StorageIRI const& location, auto const&)
            -> std::unique_ptr<provider::IFolderEntryIterator> { fail(code, location); };
        Folder const refused(AbsoluteIRI(u"mem:/r"), refusing.reference);
        std::string const failed =
            "failed r " + std::to_string(static_cast<std::uint32_t>(translatedCode(code)));
        for (FolderVisitResult const answer : {Continue, Skip, Stop}) {
            RecordingVisitor answering;
            answering.on(failed, answer);
            EXPECT_EQ(GetParam().run(refused, answering), answer) << code;
            EXPECT_EQ(answering.calls(), (Calls{"before r", failed})) << code;
        }
        RecordingVisitor throwing;
        EXPECT_EQ(codeOf([&] { GetParam().run(refused, throwing); }), translatedCode(code));
    }
}

TEST_P(AnyWalk, RefusedSubfolderIsPassedOverByAHandlerThatAnswers) {
    failToList(u"mem:/r/S", 2);
    visitor.onFailures(Continue);
    EXPECT_EQ(walk(), Continue);
    EXPECT_EQ(visitor.sorted(),
              (Calls{"after r", "before S", "before r", "failed S 2", "file a", "file c"}));
}

TEST_P(AnyWalk, FailureOfTheFirstStepOfAListingIsTheFoldersOwn) {
    for (CursorCall const call : {CursorCall::HasNext, CursorCall::Advance}) {
        CursorScript& script = tree.add(u"mem:/r/S", {file(u"b")});
        script.failOn(call, 0, 9, 1);
        RecordingVisitor answering;
        answering.onFailures(Continue);
        EXPECT_EQ(GetParam().run(at(), answering), Continue);
        EXPECT_EQ(answering.sorted(),
                  (Calls{"after r", "before S", "before r", "failed S 9", "file a", "file c"}));
    }
}

TEST_P(AnyWalk, FailureWithoutHandlerClimbsFolderByFolder) {
    failToList(u"mem:/r/S", 2);
    tree.add(u"mem:/q", {folder(u"r")});
    tree.add(u"mem:/q/r", {folder(u"S")});
    failToList(u"mem:/q/r/S", 2);
    EXPECT_EQ(codeOf([&] { walk(u"mem:/q"); }), ErrorCode::PermissionDenied);
    EXPECT_EQ(visitor.calls(), (Calls{"before q", "before r", "before S", "failed S 2",
                                      "failed r 2", "failed q 2"}));
}

TEST_P(AnyWalk, FailuresThatClimbNameWhereTheyBegan) {
    failToList(u"mem:/r/S", 2);
    try {
        walk();
        FAIL() << "nothing was thrown";
    } catch (Exception const& e) {
        EXPECT_EQ(e.getLocation(), AbsoluteIRI(u"mem:/r/S"));
        EXPECT_EQ(typeid(e), typeid(Exception));
    }
}

TEST_P(AnyWalk, ExceptionsAboutASubfolderAreFailuresOfTheFolderAbove) {
    for (char const* call : {"before S", "after S"}) {
        RecordingVisitor answering;
        answering.on(call, failing(ErrorCode::ResourceInUse));
        answering.onFailures(Continue);
        EXPECT_EQ(GetParam().run(at(), answering), Continue) << call;
        std::string const failed =
            "failed r " + std::to_string(static_cast<std::uint32_t>(ErrorCode::ResourceInUse));
        EXPECT_EQ(answering.count(failed), 1) << call;
    }
}

TEST_P(AnyWalk, ExceptionsAboutTheRootLeaveTheWalk) {
    for (char const* call : {"before r", "after r"}) {
        RecordingVisitor throwing;
        throwing.on(call, failing(ErrorCode::ResourceInUse));
        throwing.onFailures(Continue);
        EXPECT_EQ(codeOf([&] { GetParam().run(at(), throwing); }), ErrorCode::ResourceInUse)
            << call;
    }
    failToList(u"mem:/r", 9);
    visitor.on("failed r 9", failing(ErrorCode::ResourceInUse));
    EXPECT_EQ(codeOf([&] { walk(); }), ErrorCode::ResourceInUse);
}

TEST_P(AnyWalk, ResourceNotFoundAboutTheRootLeavesTheWalkToo) {
    for (char const* call : {"before r", "after r"}) {
        RecordingVisitor throwing;
        throwing.on(call, failing(ErrorCode::ResourceNotFound));
        EXPECT_EQ(codeOf([&] { GetParam().run(at(), throwing); }), ErrorCode::ResourceNotFound);
        EXPECT_EQ(throwing.count(call), 1);
    }
}

TEST_P(AnyWalk, SubclassOfExceptionArrivesCutDownThroughTheDefaultHandler) {
    struct Detailed : Exception {
        using Exception::Exception;
    };
    visitor.on("file b", []() -> FolderVisitResult {
        throw Detailed(ErrorCode::IOError, AbsoluteIRI(u"mem:/named"));
    });
    try {
        walk();
        FAIL() << "nothing was thrown";
    } catch (Exception const& e) {
        EXPECT_EQ(typeid(e), typeid(Exception));
        EXPECT_EQ(e.getLocation(), AbsoluteIRI(u"mem:/named"));
    }
}

TEST_P(AnyWalk, ForeignExceptionsReachTheCallerAndNoHandler) {
    visitor.on("file b", []() -> FolderVisitResult { throw std::runtime_error("foreign"); });
    visitor.onFailures(Continue);
    EXPECT_THROW(walk(), std::runtime_error);
    visitor.on("file b", []() -> FolderVisitResult {
        throw vfs::IOReadException(ErrorCode::ResourceNotFound);
    });
    EXPECT_THROW(walk(), vfs::IOReadException);
    visitor.on("file b", []() -> FolderVisitResult {
        throw provider::Exception(provider::ErrorCode::ResourceNotFound, StorageIRI(u"mem:/x"));
    });
    EXPECT_THROW(walk(), provider::Exception);
    for (std::string const& call : visitor.calls()) {
        EXPECT_NE(call.substr(0, 6), "failed");
        EXPECT_NE(call, "after r");
        EXPECT_NE(call, "after S");
    }
}

TEST_P(AnyWalk, ForeignExceptionOfAFolderItselfReachesTheCaller) {
    for (char const* call : {"before S", "after S", "before r", "after r"}) {
        RecordingVisitor throwing;
        throwing.on(call, []() -> FolderVisitResult { throw 42; });
        throwing.onFailures(Continue);
        EXPECT_THROW(GetParam().run(at(), throwing), int) << call;
    }
}

TEST_P(AnyWalk, NoCursorIsLeftOpen) {
    walk();
    visitor.on("file b", failing(ErrorCode::IOError));
    EXPECT_THROW(walk(), Exception);
    visitor.on("file b", Stop);
    EXPECT_EQ(walk(), Stop);
    EXPECT_EQ(tree.alive(), 0);
}

TEST_P(AnyWalk, GoesOnWhereTheCallersHandleIsAssignedMeanwhile) {
    Folder handle = at();
    visitor.on("before r", [&] {
        handle = at(u"mem:/elsewhere");
        return Continue;
    });
    EXPECT_EQ(GetParam().run(handle, visitor), Continue);
    EXPECT_EQ(visitor.sorted(), wholeTree);
}

TEST_P(AnyWalk, CursorWithoutACloneIsTheFoldersOwnFailure) {
    inner->cloneless = true;
    visitor.onFailures(Continue);
    EXPECT_EQ(walk(), Continue);
    std::string const failed =
        "failed S " + std::to_string(static_cast<std::uint32_t>(ErrorCode::InternalError));
    EXPECT_EQ(visitor.sorted(),
              (Calls{"after r", "before S", "before r", failed, "file a", "file c"}));
}

TEST_P(AnyWalk, HandlerRunsWithTheVeryExceptionInFlight) {
    struct Detailed : Exception {
        using Exception::Exception;
    };
    struct Rethrowing : FolderVisitor {
        FolderVisitResult visit(vfs::File const& f) override {
            if (f.getName() == u"b") {
                throw Detailed(ErrorCode::IOError, AbsoluteIRI(u"mem:/named"));
            }
            return Continue;
        }
        FolderVisitResult visitFolderFailed(Folder const&, Exception const& e) override {
            sawSubclass = sawSubclass && dynamic_cast<Detailed const*>(&e) != nullptr;
            throw;
        }
        bool sawSubclass = true;
    } rethrowing;
    EXPECT_THROW(GetParam().run(at(), rethrowing), Detailed);
    EXPECT_TRUE(rethrowing.sawSubclass);
}

class SerialWalk : public WalkedTree {
  protected:
    FolderVisitResult walk(char16_t const* text = u"mem:/r") {
        return vfs::walkFolder(at(text), visitor);
    }
};

TEST_F(SerialWalk, GoesDepthFirstInListingOrder) {
    walk();
    EXPECT_EQ(visitor.calls(),
              (Calls{"before r", "file a", "before S", "file b", "after S", "file c", "after r"}));
}

TEST_F(SerialWalk, AddsNoSortingOfItsOwn) {
    tree.add(u"mem:/r", {file(u"z"), file(u"a"), folder(u"S"), file(u"M")});
    walk();
    EXPECT_EQ(visitor.calls(), (Calls{"before r", "file z", "file a", "before S", "file b",
                                      "after S", "file M", "after r"}));
}

TEST_F(SerialWalk, OneCallAtATimeOnTheCallersThread) {
    struct Threads : FolderVisitor {
        FolderVisitResult visitBefore(Folder const&) override { return note(); }
        FolderVisitResult visit(vfs::File const&) override { return note(); }
        FolderVisitResult visitAfter(Folder const&) override { return note(); }
        FolderVisitResult note() {
            seen.insert(std::this_thread::get_id());
            return Continue;
        }
        std::set<std::thread::id> seen;
    } threads;
    vfs::walkFolder(at(), threads);
    EXPECT_EQ(threads.seen, std::set<std::thread::id>{std::this_thread::get_id()});
}

TEST_F(SerialWalk, FetchesNoFurtherThanItVisits) {
    visitor.on("file a", Stop);
    EXPECT_EQ(walk(), Stop);
    EXPECT_EQ(root->count(CursorCall::Advance), 1);
}

TEST_F(SerialWalk, StopEndsTheWalkAtOnce) {
    struct Row {
        char const* call;
        Calls calls;
    };
    Row const table[] = {
        {"before S", {"before r", "file a", "before S"}},
        {"file a", {"before r", "file a"}},
        {"file b", {"before r", "file a", "before S", "file b"}},
        {"after S", {"before r", "file a", "before S", "file b", "after S"}},
    };
    for (Row const& row : table) {
        RecordingVisitor stopping;
        stopping.on(row.call, Stop);
        EXPECT_EQ(vfs::walkFolder(at(), stopping), Stop) << row.call;
        EXPECT_EQ(stopping.calls(), row.calls) << row.call;
    }
}

TEST_F(SerialWalk, StopThreeLevelsDownLeavesOutEveryVisitEntryAfter) {
    tree.add(u"mem:/1", {folder(u"2"), file(u"x")});
    tree.add(u"mem:/1/2", {folder(u"3"), file(u"y")});
    tree.add(u"mem:/1/2/3", {file(u"f"), file(u"z")});
    visitor.on("file f", Stop);
    EXPECT_EQ(walk(u"mem:/1"), Stop);
    EXPECT_EQ(visitor.calls(), (Calls{"before 1", "before 2", "before 3", "file f"}));
}

TEST_F(SerialWalk, ResultOutOfRangeBeforeAFolderIsAsSkip) {
    visitor.on("before S", outOfRange);
    EXPECT_EQ(walk(), Continue);
    EXPECT_EQ(visitor.calls(), (Calls{"before r", "file a", "before S", "file c", "after r"}));
    visitor.on("before r", outOfRange);
    EXPECT_EQ(walk(), outOfRange);
}

TEST_F(SerialWalk, FailureOfAnItemDropsTheRestOfItsFolder) {
    tree.add(u"mem:/r/S", {file(u"1"), file(u"2"), file(u"3"), file(u"4"), folder(u"5")});
    struct Row {
        FolderVisitResult answer;
        FolderVisitResult result;
        Calls behind;
    };
    Row const table[] = {{Continue, Continue, {"file c", "after r"}},
                         {Skip, Continue, {"file c", "after r"}},
                         {Stop, Stop, {}},
                         {outOfRange, Continue, {"file c", "after r"}}};
    for (Row const& row : table) {
        RecordingVisitor answering;
        answering.on("file 3", failing(ErrorCode::IOError));
        answering.on("failed S 9", row.answer);
        EXPECT_EQ(vfs::walkFolder(at(), answering), row.result) << row.answer;
        Calls expected{"before r", "file a", "before S",  "file 1",
                       "file 2",   "file 3", "failed S 9"};
        expected.insert(expected.end(), row.behind.begin(), row.behind.end());
        EXPECT_EQ(answering.calls(), expected) << row.answer;
    }
}

TEST_F(SerialWalk, FailureBehindTheFirstEntryOfAListingIsTheFoldersOwn) {
    root->failOn(CursorCall::Advance, 2, 9);
    visitor.onFailures(Continue);
    EXPECT_EQ(walk(), Continue);
    EXPECT_EQ(visitor.calls(),
              (Calls{"before r", "file a", "before S", "file b", "after S", "failed r 9"}));
}

TEST_F(SerialWalk, ListingThatVanishesBehindItsFirstEntryCountsAsFinished) {
    root->failOn(CursorCall::Advance, 2, 4);
    EXPECT_EQ(walk(), Continue);
    EXPECT_EQ(visitor.calls(),
              (Calls{"before r", "file a", "before S", "file b", "after S", "after r"}));
}

TEST_F(SerialWalk, ResourceNotFoundFromAnItemDropsTheRestSilently) {
    visitor.on("file a", failing(ErrorCode::ResourceNotFound));
    EXPECT_EQ(walk(), Continue);
    EXPECT_EQ(visitor.calls(), (Calls{"before r", "file a", "after r"}));
}

TEST_F(SerialWalk, ResourceNotFoundAboutASubfolderDropsTheRestOfTheFolderAbove) {
    for (char const* call : {"before S", "after S"}) {
        RecordingVisitor throwing;
        throwing.on(call, failing(ErrorCode::ResourceNotFound));
        EXPECT_EQ(vfs::walkFolder(at(), throwing), Continue) << call;
        EXPECT_EQ(throwing.count("file c"), 0) << call;
        EXPECT_EQ(throwing.count("after r"), 1) << call;
        EXPECT_EQ(throwing.calls().back(), "after r") << call;
    }
}

TEST_F(SerialWalk, HandlerThatThrowsResourceNotFoundIsAVanishedFolderAbove) {
    visitor.on("file b", failing(ErrorCode::IOError));
    visitor.on("failed S 9", failing(ErrorCode::ResourceNotFound));
    EXPECT_EQ(walk(), Continue);
    EXPECT_EQ(visitor.calls(),
              (Calls{"before r", "file a", "before S", "file b", "failed S 9", "after r"}));
}

TEST_F(SerialWalk, EachHandlerGetsWhatTheOneBelowThrew) {
    visitor.on("file b", failing(ErrorCode::IOError));
    visitor.on("failed S 9", failing(ErrorCode::ResourceInUse));
    std::string const second =
        "failed r " + std::to_string(static_cast<std::uint32_t>(ErrorCode::ResourceInUse));
    visitor.on(second, Skip);
    EXPECT_EQ(walk(), Skip);
    EXPECT_EQ(visitor.calls(),
              (Calls{"before r", "file a", "before S", "file b", "failed S 9", second}));
}

TEST_F(SerialWalk, VisitEntryAfterOfAFinishedFolderIsNotProtected) {
    visitor.on("after S", failing(ErrorCode::IOError));
    EXPECT_THROW(walk(), Exception);
    EXPECT_EQ(visitor.calls(),
              (Calls{"before r", "file a", "before S", "file b", "after S", "failed r 9"}));
}

TEST_F(SerialWalk, KeepsOneListingOpenForEachFolderOnTheWayDown) {
    std::vector<int> open;
    visitor.on("file a", [&] {
        open.push_back(tree.alive());
        return Continue;
    });
    visitor.on("file b", [&] {
        open.push_back(tree.alive());
        return Continue;
    });
    visitor.on("after r", [&] {
        open.push_back(tree.alive());
        return Continue;
    });
    walk();
    ASSERT_EQ(open.size(), 3U);
    EXPECT_EQ(open[0], 2) << "that of the listing, and the one that moves";
    EXPECT_EQ(open[1], 2 * open[0]);
    EXPECT_EQ(open[2], open[0]);
}

} // namespace
