// What the parallel walk does otherwise than the serial one; what they share stands in
// walk_folder_test.cpp.

#include <foundation/storage/vfs/walking/walk_folder.hpp>

#include "walked_tree.hpp"

#include <gtest/gtest.h>

#include <tbb/global_control.h>
#include <tbb/task_arena.h>
#include <tbb/task_group.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

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

class ParallelWalk : public WalkedTree {
  protected:
    FolderVisitResult walk(char16_t const* text = u"mem:/r") {
        return vfs::walkFolderParallel(at(text), visitor);
    }
    FolderVisitResult walk(std::function<bool()> const& shouldStop) {
        return vfs::walkFolderParallel(at(), visitor, shouldStop);
    }
    /// mem:/f with the files 0 to `count` - 1.
    CursorScript& addFiles(int count) {
        std::vector<provider::FolderEntry> entries;
        for (int i = 0; i < count; ++i) {
            entries.push_back(file(fl::i18n::to_ustring(std::to_string(i)).c_str()));
        }
        return tree.add(u"mem:/f", std::move(entries));
    }

    static Calls filesTo(int count) {
        Calls files;
        for (int i = 0; i < count; ++i) {
            files.push_back("file " + std::to_string(i));
        }
        return files;
    }
    static Calls sorted(Calls calls, Calls const& more) {
        calls.insert(calls.end(), more.begin(), more.end());
        std::sort(calls.begin(), calls.end());
        return calls;
    }
};

/// Runs a walk where at least two threads can take part, on any machine.
template<class Operation>
auto onSeveralThreads(Operation operation) {
    tbb::global_control const allowed(tbb::global_control::max_allowed_parallelism, 4);
    tbb::task_arena arena(4);
    return arena.execute(operation);
}

/// Waits for another thread, and not for ever: what is waited for fails the test where it misses.
template<class Condition>
bool comesTrue(Condition condition) {
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

TEST_F(ParallelWalk, StopFromOneFileLetsTheOthersBeVisited) {
    addFiles(10);
    visitor.on("file 4", Stop);
    EXPECT_EQ(walk(u"mem:/f"), Stop);
    EXPECT_EQ(visitor.sorted(), sorted(filesTo(10), {"before f"}));
}

TEST_F(ParallelWalk, StopLeavesOutOnlyTheClosingCallsOnTheWayUp) {
    struct Row {
        char const* call;
        Calls leftOut;
    };
    Row const table[] = {{"before S", {"file b", "after S", "after r"}},
                         {"file a", {"after r"}},
                         {"file b", {"after S", "after r"}},
                         {"after S", {"after r"}}};
    for (Row const& row : table) {
        RecordingVisitor stopping;
        stopping.on(row.call, Stop);
        EXPECT_EQ(vfs::walkFolderParallel(at(), stopping), Stop) << row.call;
        Calls all{"before r", "file a", "before S", "file b", "after S", "file c", "after r"};
        for (std::string const& call : row.leftOut) {
            std::erase(all, call);
        }
        EXPECT_EQ(stopping.sorted(), sorted(all, {})) << row.call;
    }
}

TEST_F(ParallelWalk, ResultOutOfRangeBeforeAFolderIsAsContinue) {
    visitor.on("before S", outOfRange);
    visitor.on("before r", outOfRange);
    EXPECT_EQ(walk(), Continue);
    EXPECT_EQ(visitor.count("file b"), 1);
    EXPECT_EQ(visitor.count("after r"), 1);
}

TEST_F(ParallelWalk, FailureThatAHandlerAnswersLetsTheOtherItemsGoOn) {
    addFiles(10);
    for (FolderVisitResult const answer : {Continue, Skip, outOfRange}) {
        RecordingVisitor answering;
        answering.on("file 3", failing(ErrorCode::IOError));
        answering.on("failed f 9", answer);
        EXPECT_EQ(vfs::walkFolderParallel(at(u"mem:/f"), answering), Continue);
        EXPECT_EQ(answering.sorted(), sorted(filesTo(10), {"before f", "failed f 9", "after f"}));
        EXPECT_EQ(answering.calls().back(), "after f");
    }
}

TEST_F(ParallelWalk, HandlerThatAnswersStopLeavesOutTheClosingCall) {
    addFiles(10);
    visitor.on("file 3", failing(ErrorCode::IOError));
    visitor.on("failed f 9", Stop);
    EXPECT_EQ(walk(u"mem:/f"), Stop);
    EXPECT_EQ(visitor.sorted(), sorted(filesTo(10), {"before f", "failed f 9"}));
}

TEST_F(ParallelWalk, EachResourceNotFoundFromAnItemClosesTheFolderOnceMore) {
    addFiles(10);
    visitor.on("file 2", failing(ErrorCode::ResourceNotFound));
    visitor.on("file 7", failing(ErrorCode::ResourceNotFound));
    EXPECT_EQ(walk(u"mem:/f"), Continue);
    EXPECT_EQ(visitor.sorted(), sorted(filesTo(10), {"before f", "after f", "after f", "after f"}));
    EXPECT_EQ(visitor.calls().back(), "after f");
}

TEST_F(ParallelWalk, ResourceNotFoundAboutASubfolderClosesTheFolderAboveOnceMore) {
    visitor.on("before S", failing(ErrorCode::ResourceNotFound));
    EXPECT_EQ(walk(), Continue);
    EXPECT_EQ(visitor.sorted(),
              (Calls{"after r", "after r", "before S", "before r", "file a", "file c"}));
}

TEST_F(ParallelWalk, ExceptionOfAHandlerLeavesTheFolderWithoutAClosingCall) {
    visitor.on("file b", failing(ErrorCode::IOError));
    visitor.on("failed r 9", Skip);
    EXPECT_EQ(walk(), Continue) << "the failure of S is answered as an item of r";
    EXPECT_EQ(visitor.count("failed S 9"), 1);
    EXPECT_EQ(visitor.count("failed r 9"), 1);
    EXPECT_EQ(visitor.count("after S"), 0);
    EXPECT_EQ(visitor.count("after r"), 1);
    EXPECT_EQ(visitor.count("file c"), 1) << "r was not cancelled";
}

// A listing that fails while it is fed, at every place of a block and across blocks.
TEST_F(ParallelWalk, FailureOfAListingBehindItsBeginningIsTheParents) {
    constexpr int count = 40;
    for (int failed = 1; failed < count; ++failed) {
        for (std::uint32_t const code : {9U, 4U}) {
            addFiles(count).failOn(CursorCall::Advance, static_cast<std::size_t>(failed), code);
            tree.add(u"mem:/q", {folder(u"f"), file(u"x")});
            StorageIRI const below(u"mem:/q/f");
            auto const listing = storage.fake->onList;
            storage.fake->onList = [&](auto const& operation, StorageIRI const& location,
                                       auto const& filter) {
                return listing(operation, location == below ? StorageIRI(u"mem:/f") : location,
                               filter);
            };
            RecordingVisitor answering;
            answering.onFailures(Continue);
            EXPECT_EQ(vfs::walkFolderParallel(at(u"mem:/q"), answering), Continue);
            EXPECT_EQ(answering.count("failed f 9"), 0);
            EXPECT_EQ(answering.count("after f"), 0);
            EXPECT_EQ(answering.count("failed q 9"), code == 9 ? 1 : 0) << failed;
            EXPECT_EQ(answering.count("after q"), code == 4 ? 2 : 1) << failed;
            EXPECT_EQ(answering.count("file x"), 1);
            EXPECT_EQ(tree.alive(), 0);
            storage.fake->onList = listing;
        }
    }
}

TEST_F(ParallelWalk, FailureOfTheRootsListingBehindItsBeginningReachesTheCaller) {
    constexpr int count = 40;
    auto const walkAnswering = [&] {
        RecordingVisitor answering;
        answering.onFailures(Continue);
        vfs::walkFolderParallel(at(u"mem:/f"), answering);
    };
    for (std::size_t failed = 1; failed < count; ++failed) {
        for (std::uint32_t const code : {9U, 4U}) {
            addFiles(count).failOn(CursorCall::Advance, failed, code);
            EXPECT_EQ(codeOf(walkAnswering), translatedCode(code));
            EXPECT_EQ(tree.alive(), 0);
            // A listing lets this one through as it is.
            addFiles(count).failOn(CursorCall::HasNext, failed, code);
            EXPECT_EQ(rawCodeOf(walkAnswering), code);
            EXPECT_EQ(tree.alive(), 0);
        }
    }
}

TEST_F(ParallelWalk, FailureOfAnItemAtEveryPlaceLosesNoOther) {
    constexpr int count = 40;
    addFiles(count);
    for (int failed = 0; failed < count; ++failed) {
        RecordingVisitor answering;
        answering.on("file " + std::to_string(failed), failing(ErrorCode::IOError));
        answering.onFailures(Continue);
        EXPECT_EQ(vfs::walkFolderParallel(at(u"mem:/f"), answering), Continue);
        EXPECT_EQ(answering.sorted(),
                  sorted(filesTo(count), {"before f", "failed f 9", "after f"}));
        RecordingVisitor throwing;
        throwing.on("file " + std::to_string(failed), failing(ErrorCode::IOError));
        EXPECT_EQ(codeOf([&] { vfs::walkFolderParallel(at(u"mem:/f"), throwing); }),
                  ErrorCode::IOError);
        EXPECT_EQ(throwing.count("after f"), 0);
        EXPECT_EQ(tree.alive(), 0);
    }
}

TEST_F(ParallelWalk, FoldersOfEverySizeAreVisitedWhole) {
    for (int count = 0; count < 70; ++count) {
        addFiles(count);
        RecordingVisitor counting;
        EXPECT_EQ(vfs::walkFolderParallel(at(u"mem:/f"), counting), Continue);
        EXPECT_EQ(counting.sorted(), sorted(filesTo(count), {"before f", "after f"})) << count;
    }
    EXPECT_EQ(tree.alive(), 0);
}

TEST_F(ParallelWalk, DoesNotCallAVisitorThatIsStoppedBeforehand) {
    EXPECT_EQ(walk([] { return true; }), Stop);
    EXPECT_TRUE(visitor.calls().empty());
    EXPECT_TRUE(storage.fake->calls().empty());
}

TEST_F(ParallelWalk, EmptyPredicateThrowsBeforeAnyCall) {
    EXPECT_THROW(walk(std::function<bool()>()), std::bad_function_call);
    EXPECT_TRUE(visitor.calls().empty());
}

TEST_F(ParallelWalk, PredicateIsAskedOnEnteringBeforeEachItemAndAtTheEnd) {
    std::atomic<int> polls = 0;
    auto const never = [&] {
        ++polls;
        return false;
    };
    tree.add(u"mem:/e", {});
    EXPECT_EQ(vfs::walkFolderParallel(at(u"mem:/e"), visitor, never), Continue);
    EXPECT_EQ(polls, 2);
    polls = 0;
    EXPECT_EQ(walk(never), Continue);
    EXPECT_EQ(polls, (1 + 3 + 1) + (1 + 1 + 1));
    polls = 0;
    visitor.on("before S", Skip);
    EXPECT_EQ(walk(never), Continue);
    EXPECT_EQ(polls, (1 + 3 + 1) + 1);
}

TEST_F(ParallelWalk, EmptyFolderIsClosedBehindTheLastPoll) {
    tree.add(u"mem:/e", {});
    Calls order;
    visitor.on("after e", [&] {
        order.push_back("after e");
        return Skip;
    });
    EXPECT_EQ(vfs::walkFolderParallel(at(u"mem:/e"), visitor,
                                      [&] {
                                          order.push_back("poll");
                                          return false;
                                      }),
              Skip);
    EXPECT_EQ(order, (Calls{"poll", "poll", "after e"}));
}

TEST_F(ParallelWalk, PredicateThatTurnsTrueInTheLastItemLeavesTheFolderOpen) {
    addFiles(1);
    std::atomic<bool> stop = false;
    visitor.on("file 0", [&] {
        stop = true;
        return Continue;
    });
    EXPECT_EQ(vfs::walkFolderParallel(at(u"mem:/f"), visitor, [&] { return stop.load(); }), Stop);
    EXPECT_EQ(visitor.calls(), (Calls{"before f", "file 0"}));
}

TEST_F(ParallelWalk, NothingIsVisitedOnceThePredicateAnswersTrue) {
    addFiles(1000);
    bool stop = false;
    visitor.on("file 0", [&] {
        stop = true;
        return Continue;
    });
    tbb::task_arena alone(1);
    EXPECT_EQ(alone.execute([&] {
        return vfs::walkFolderParallel(at(u"mem:/f"), visitor, [&] { return stop; });
    }),
              Stop);
    EXPECT_EQ(visitor.calls().back(), "file 0");
}

TEST_F(ParallelWalk, StopOutweighsSkip) {
    visitor.on("file a", Skip);
    visitor.on("file c", Stop);
    EXPECT_EQ(walk(), Stop);
    EXPECT_EQ(visitor.count("after r"), 0);
}

TEST_F(ParallelWalk, PredicateIsAskedAtTheEndBehindAStopToo) {
    addFiles(2);
    visitor.on("file 0", Stop);
    std::atomic<int> polls = 0;
    EXPECT_EQ(vfs::walkFolderParallel(at(u"mem:/f"), visitor,
                                      [&] {
                                          ++polls;
                                          return false;
                                      }),
              Stop);
    EXPECT_EQ(polls, 1 + 2 + 1);
}

// A folder's group is bound to the one around it.

TEST_F(ParallelWalk, ExceptionOfAFolderDropsWhatIsBelowItToo) {
    std::atomic<bool> thrower = false;
    std::atomic<bool> begun = false;
    std::vector<provider::FolderEntry> many;
    for (int i = 0; i < 100; ++i) {
        many.push_back(file(fl::i18n::to_ustring(std::to_string(i)).c_str()));
        visitor.on("file " + std::to_string(i), [&] {
            begun = true;
            EXPECT_TRUE(comesTrue([] { return tbb::is_current_task_group_canceling(); }));
            return Continue;
        });
    }
    tree.add(u"mem:/r", {folder(u"S"), file(u"x")});
    tree.add(u"mem:/r/S", std::move(many));
    visitor.on("before S", [&] {
        EXPECT_TRUE(comesTrue([&] { return thrower.load(); }));
        return Continue;
    });
    visitor.on("file x", [&]() -> FolderVisitResult {
        thrower = true;
        EXPECT_TRUE(comesTrue([&] { return begun.load(); }));
        throw std::runtime_error("foreign");
    });
    EXPECT_THROW(onSeveralThreads([&] { return walk(); }), std::runtime_error);
    EXPECT_LT(visitor.calls().size(), 20U) << "the rest of S was dropped";
    EXPECT_EQ(visitor.count("after S"), 1) << "and S was closed all the same";
    EXPECT_EQ(visitor.count("after r"), 0);
}

TEST_F(ParallelWalk, InACancelledTaskGroupVisitsNoItemAndClosesTheFolder) {
    tbb::task_group group;
    FolderVisitResult result = Stop;
    group.run([&] {
        group.cancel();
        result = walk();
    });
    group.wait();
    EXPECT_EQ(result, Continue);
    EXPECT_EQ(visitor.calls(), (Calls{"before r", "after r"}));
}

TEST_F(ParallelWalk, PredicateIsCopied) {
    struct Counting {
        std::shared_ptr<int> copies = std::make_shared<int>(0);
        Counting() = default;
        Counting(Counting const& other) : copies(other.copies) { ++*copies; }
        Counting& operator=(Counting const&) = delete;
        bool operator()() const { return true; }
    };
    Counting const counting;
    std::function<bool()> const asked(counting);
    *counting.copies = 0;
    EXPECT_EQ(walk(asked), Stop);
    EXPECT_EQ(*counting.copies, 1) << "into the walk, and moved from there on";
}

TEST_F(ParallelWalk, WhatThePredicateThrowsGoesTheWayOfItsPlace) {
    EXPECT_THROW(walk([]() -> bool { throw std::runtime_error("foreign"); }), std::runtime_error);
    EXPECT_EQ(codeOf([&] { walk([]() -> bool { throw failure(ErrorCode::IOError); }); }),
              ErrorCode::IOError)
        << "on entering, nothing handles it";
    EXPECT_TRUE(visitor.calls().empty());

    addFiles(1);
    visitor.onFailures(Continue);
    std::atomic<int> polls = 0;
    auto const thrower = [&](int poll) {
        polls = 0;
        vfs::walkFolderParallel(at(u"mem:/f"), visitor, [&, poll]() -> bool {
            if (++polls == poll) {
                throw failure(ErrorCode::IOError);
            }
            return false;
        });
    };
    EXPECT_NO_THROW(thrower(2));
    EXPECT_EQ(visitor.count("failed f 9"), 1) << "before an item, the folder's handler does";
    EXPECT_EQ(visitor.count("after f"), 1);
    EXPECT_EQ(codeOf([&] { thrower(3); }), ErrorCode::IOError) << "at the end, nothing does";
    EXPECT_EQ(visitor.count("failed f 9"), 1);
}

TEST_F(ParallelWalk, ItemsOfAFolderAreVisitedAtOnce) {
    std::atomic<int> inside = 0;
    auto const both = [&] {
        ++inside;
        EXPECT_TRUE(comesTrue([&] { return inside == 2; }));
        return Continue;
    };
    visitor.on("file a", both);
    visitor.on("file c", both);
    EXPECT_EQ(onSeveralThreads([&] { return walk(); }), Continue);
}

TEST_F(ParallelWalk, SubtreesAreVisitedAtOnce) {
    tree.add(u"mem:/p", {folder(u"x"), folder(u"y")});
    tree.add(u"mem:/p/x", {file(u"1")});
    tree.add(u"mem:/p/y", {file(u"2")});
    std::atomic<int> inside = 0;
    auto const both = [&] {
        ++inside;
        EXPECT_TRUE(comesTrue([&] { return inside == 2; }));
        return Continue;
    };
    visitor.on("file 1", both);
    visitor.on("file 2", both);
    EXPECT_EQ(onSeveralThreads([&] { return walk(u"mem:/p"); }), Continue);
}

TEST_F(ParallelWalk, StaysInTheArenaOfItsCaller) {
    addFiles(100);
    std::mutex mutex;
    std::set<std::thread::id> threads;
    for (int i = 0; i < 100; ++i) {
        visitor.on("file " + std::to_string(i), [&] {
            std::lock_guard const lock(mutex);
            threads.insert(std::this_thread::get_id());
            return Continue;
        });
    }
    tbb::task_arena alone(1);
    EXPECT_EQ(alone.execute([&] { return walk(u"mem:/f"); }), Continue);
    EXPECT_EQ(threads, std::set<std::thread::id>{std::this_thread::get_id()});
}

TEST_F(ParallelWalk, ListingIsMovedByOneThreadAtATime) {
    constexpr int count = 400;
    CursorScript& script = addFiles(count);
    std::atomic<bool> moving = false;
    std::atomic<int> moves = 0;
    for (std::size_t i = 0; i < count; ++i) {
        script.failOn(CursorCall::Advance, i, [&] {
            EXPECT_FALSE(moving.exchange(true));
            std::this_thread::yield();
            ++moves;
            moving = false;
        });
    }
    EXPECT_EQ(onSeveralThreads([&] { return walk(u"mem:/f"); }), Continue);
    EXPECT_EQ(moves, count);
}

TEST_F(ParallelWalk, ForeignExceptionOfAWorkerReachesTheCallerWithItsType) {
    std::thread::id const caller = std::this_thread::get_id();
    std::atomic<bool> thrown = false;
    addFiles(8);
    auto const throwElsewhere = [&] {
        if (std::this_thread::get_id() != caller) {
            thrown = true;
            throw std::runtime_error("from a worker");
        }
        EXPECT_TRUE(comesTrue([&] { return thrown.load(); }));
        return Continue;
    };
    for (int i = 0; i < 8; ++i) {
        visitor.on("file " + std::to_string(i), throwElsewhere);
    }
    try {
        onSeveralThreads([&] { return walk(u"mem:/f"); });
        FAIL() << "nothing was thrown";
    } catch (std::runtime_error const& e) {
        EXPECT_STREQ(e.what(), "from a worker");
    }
    EXPECT_EQ(visitor.count("after f"), 0);
}

TEST_F(ParallelWalk, OfSeveralExceptionsOneArrives) {
    visitor.on("file a", failing(ErrorCode::IOError));
    visitor.on("file c", failing(ErrorCode::NoSpaceLeft));
    ErrorCode const arrived = onSeveralThreads([&] { return codeOf([&] { walk(); }); });
    EXPECT_TRUE(arrived == ErrorCode::IOError || arrived == ErrorCode::NoSpaceLeft);
    EXPECT_EQ(visitor.count("after r"), 0);
}

TEST_F(ParallelWalk, ItemsThatHaveBegunRunToTheirEndBehindAnException) {
    std::atomic<bool> begun = false;
    std::atomic<bool> throwing = false;
    std::atomic<bool> ended = false;
    visitor.on("file a", [&] {
        begun = true;
        EXPECT_TRUE(comesTrue([&] { return throwing.load(); }));
        ended = true;
        return Continue;
    });
    visitor.on("file c", [&]() -> FolderVisitResult {
        EXPECT_TRUE(comesTrue([&] { return begun.load(); }));
        throwing = true;
        throw std::runtime_error("foreign");
    });
    EXPECT_THROW(onSeveralThreads([&] { return walk(); }), std::runtime_error);
    EXPECT_TRUE(ended);
}

TEST_F(ParallelWalk, FailureClimbsFolderByFolderAndCancelsEach) {
    tree.add(u"mem:/q", {folder(u"r")});
    tree.add(u"mem:/q/r", {folder(u"S")});
    tree.add(u"mem:/q/r/S", {file(u"b")});
    visitor.on("file b", failing(ErrorCode::IOError));
    EXPECT_EQ(codeOf([&] { walk(u"mem:/q"); }), ErrorCode::IOError);
    EXPECT_EQ(visitor.calls(), (Calls{"before q", "before r", "before S", "file b", "failed S 9",
                                      "failed r 9", "failed q 9"}));
}

TEST_F(ParallelWalk, GoesTwoThousandLevelsDown) {
    std::u16string path = u"mem:/d";
    constexpr int levels = 2000;
    for (int i = 0; i < levels; ++i) {
        tree.add(path.c_str(), {folder(u"d"), file(u"x")});
        path += u"/d";
    }
    tree.add(path.c_str(), {});
    EXPECT_EQ(onSeveralThreads([&] { return walk(u"mem:/d"); }), Continue);
    EXPECT_EQ(visitor.count("file x"), levels);
    EXPECT_EQ(visitor.count("after d"), levels + 1);
}

} // namespace
