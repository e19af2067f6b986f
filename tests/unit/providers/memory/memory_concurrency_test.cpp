// Many threads in one tree, with checks on what comes of it. Run under the thread sanitizer too.

#include "memory_store.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <future>
#include <latch>
#include <random>
#include <thread>
#include <vector>

namespace {

using namespace memory_test;
using enum ReplacementPolicy;

constexpr int threads = 8;

/// Runs `work` on all threads at once and waits for them.
void together(std::function<void(int thread)> const& work) {
    std::latch start(threads);
    std::vector<std::jthread> running;
    for (int i = 0; i < threads; ++i) {
        running.emplace_back([&, i] {
            start.arrive_and_wait();
            work(i);
        });
    }
}

ustring numbered(char16_t const* prefix, int number) {
    std::string const text = std::to_string(number);
    return prefix + ustring(text.begin(), text.end());
}

/// Whether the operation went through; the failures that a race may bring count as no.
template<class Call>
bool succeeds(Call const& call) {
    auto const failed = failureOf(call);
    if (failed && failed->first != ErrorCode::ResourceNotFound &&
        failed->first != ErrorCode::ResourceAlreadyExists &&
        failed->first != ErrorCode::FolderNotEmpty && failed->first != ErrorCode::InvalidLocation) {
        ADD_FAILURE() << "unexpected code " << failed->first;
    }
    return !failed;
}

/// Removes a tree of the names a, b, c and d.
void clear(Store& store, ustring const& path) {
    switch (store->exists(at(path))) {
    case ExistsResult::Nothing:
        return;
    case ExistsResult::File:
        return store->removeFile(at(path));
    case ExistsResult::Folder:
        break;
    }
    for (char16_t const* const name : {u"/a", u"/b", u"/c", u"/d"}) {
        clear(store, path + name);
    }
    store->removeFolder(at(path));
}

TEST(MemoryConcurrency, OneThreadOfManyCreatesAFile) {
    constexpr int files = 200;
    Store store;
    std::atomic<int> created{0};
    together([&](int) {
        for (int i = 0; i < files; ++i) {
            created += succeeds([&] { store->createFile(at(numbered(u"/f", i))); });
        }
    });
    EXPECT_EQ(created, files);
}

TEST(MemoryConcurrency, OneThreadOfManyRemovesAFile) {
    constexpr int files = 200;
    Store store;
    for (int i = 0; i < files; ++i) {
        store->createFile(at(numbered(u"/f", i)));
    }
    std::atomic<int> removed{0};
    together([&](int) {
        for (int i = 0; i < files; ++i) {
            removed += succeeds([&] { store->removeFile(at(numbered(u"/f", i))); });
        }
    });
    EXPECT_EQ(removed, files);
}

TEST(MemoryConcurrency, EveryAppendedRecordIsThereOnceAndInItsThreadsOrder) {
    struct Record {
        std::int32_t thread;
        std::int32_t number;
    };
    constexpr int records = 3000;
    Store store;
    store->createFile(at(u"/log"));
    together([&](int thread) {
        auto const log =
            store->openStream(at(u"/log"), {ByteStreamAccess::WriteOnly,
                                            ByteStreamCreation::OpenExisting, 1, /*append*/ 0});
        for (int i = 0; i < records; ++i) {
            Record const record{thread, i};
            log->write(reinterpret_cast<char const*>(&record), sizeof record);
        }
        log->close();
    });
    std::string const content = store.get(u"/log");
    ASSERT_EQ(content.size(), threads * records * sizeof(Record));
    std::array<int, threads> next{};
    for (std::size_t i = 0; i < content.size(); i += sizeof(Record)) {
        Record record{};
        std::memcpy(&record, content.data() + i, sizeof record);
        ASSERT_EQ(record.number, next.at(static_cast<std::size_t>(record.thread))++);
    }
}

TEST(MemoryConcurrency, ReadersSeeTheOldContentOrTheNewAndNothingInBetween) {
    constexpr std::size_t size = 150'000;
    Store store;
    store.put(u"/file", std::string(size, 'z'));
    together([&](int thread) {
        for (int i = 0; i < 60; ++i) {
            if (thread < threads / 2) {
                auto const stream = store->openReplacement(at(u"/file"), ReplaceExisting);
                std::string const content(size, static_cast<char>('a' + thread));
                stream->write(content.data(), static_cast<long>(content.size()));
                stream->close();
            } else {
                std::string const content = store.get(u"/file");
                ASSERT_EQ(content.size(), size);
                ASSERT_EQ(content.find_first_not_of(content.front()), std::string::npos);
            }
        }
    });
}

TEST(MemoryConcurrency, ACopyOfAFileThatIsBeingWrittenIsOfOneMoment) {
    constexpr std::size_t size = 200'000;
    Store store;
    store.put(u"/file", std::string(size, 'z'));
    together([&](int thread) {
        for (int i = 0; i < 60; ++i) {
            if (thread < threads / 2) {
                auto const stream =
                    store->openStream(at(u"/file"), {ByteStreamAccess::WriteOnly,
                                                     ByteStreamCreation::OpenExisting, 1, 1});
                std::string const content(size, static_cast<char>('a' + thread));
                stream->write(content.data(), static_cast<long>(content.size()));
            } else {
                ustring const copy = numbered(u"/copy", thread);
                store.copy(u"/file", copy, ReplaceExisting);
                std::string const content = store.get(copy);
                ASSERT_EQ(content.size(), size);
                ASSERT_EQ(content.find_first_not_of(content.front()), std::string::npos);
                store.put(copy, "scribbled over"); // without harm to what it was shared with
            }
        }
    });
}

TEST(MemoryConcurrency, AWriterGetsThroughBesideReadersThatNeverPause) {
    Store store;
    store.put(u"/file", "content");
    std::atomic<bool> done{false};
    std::atomic<int> reading{0};
    std::vector<std::jthread> readers;
    for (int i = 0; i < threads; ++i) {
        readers.emplace_back([&] {
            auto const stream = store->openReadOnlyStream(at(u"/file"));
            ++reading;
            char c = 0;
            while (!done) {
                store->exists(at(u"/file"));
                stream->seek(0, std::ios_base::beg);
                stream->read(&c, 1);
            }
        });
    }
    while (reading < threads) {
        std::this_thread::yield();
    }
    auto writing = std::async(std::launch::async, [&] {
        auto const stream = store->openStream(
            at(u"/file"), {ByteStreamAccess::WriteOnly, ByteStreamCreation::OpenExisting, 1, 1});
        for (int i = 0; i < 100; ++i) {
            store->createFile(at(u"/new"));
            store->removeFile(at(u"/new"));
            stream->write("x", 1);
        }
    });
    auto const outcome = writing.wait_for(std::chrono::minutes(2));
    done = true;
    EXPECT_EQ(outcome, std::future_status::ready);
    writing.get();
}

TEST(MemoryConcurrency, MovesLoseNothingAndDoubleNothing) {
    constexpr int folders = 4;
    constexpr int tokens = 20;
    Store store;
    for (int i = 0; i < folders; ++i) {
        store->createFolder(at(numbered(u"/d", i)));
    }
    for (int i = 0; i < tokens; ++i) {
        store.put(u"/d0" + numbered(u"/t", i), std::to_string(i));
    }
    std::atomic<int> moved{0};
    together([&](int thread) {
        std::mt19937 random(static_cast<unsigned>(thread));
        auto const below = [&](int limit) {
            return static_cast<int>(random() % static_cast<unsigned>(limit));
        };
        for (int i = 0; i < 2000; ++i) {
            ustring const name = numbered(u"/t", below(tokens));
            ustring const from = numbered(u"/d", below(folders)) + name;
            ustring const to = numbered(u"/d", below(folders)) + name;
            moved += succeeds([&] { store->moveFile(at(from), at(to), FailIfExists); });
        }
    });
    EXPECT_GT(moved, 0);
    for (int i = 0; i < tokens; ++i) {
        int found = 0;
        for (int folder = 0; folder < folders; ++folder) {
            ustring const path = numbered(u"/d", folder) + numbered(u"/t", i);
            if (store.isThere(path)) {
                ++found;
                EXPECT_EQ(store.get(path), std::to_string(i));
            }
        }
        EXPECT_EQ(found, 1) << "token " << i;
    }
}

TEST(MemoryConcurrency, FoldersThatAreMovedIntoEachOtherStayOneTree) {
    Store store;
    store->createFolder(at(u"/p"));
    store->createFolder(at(u"/q"));
    together([&](int thread) {
        for (int i = 0; i < 500; ++i) {
            if (thread % 2 == 0) {
                succeeds([&] { store->moveFolder(at(u"/p"), at(u"/q/p"), FailIfExists); });
                succeeds([&] { store->moveFolder(at(u"/q/p"), at(u"/p"), FailIfExists); });
            } else {
                succeeds([&] { store->moveFolder(at(u"/q"), at(u"/p/q"), FailIfExists); });
                succeeds([&] { store->moveFolder(at(u"/p/q"), at(u"/q"), FailIfExists); });
            }
            // Up to the root from wherever they are now, which would not end in a circle.
            for (char16_t const* const path : {u"/p", u"/q", u"/p/q", u"/q/p"}) {
                succeeds([&] { store->getCanonicalLocation(at(path)); });
            }
        }
    });
    int reachable = 0;
    for (char16_t const* const path : {u"/p", u"/q", u"/p/q", u"/q/p"}) {
        reachable += store.isThere(path);
    }
    EXPECT_EQ(reachable, 2);
}

TEST(MemoryConcurrency, EverythingAtOnceGivesBackAllThatItTook) {
    constexpr std::uint64_t limit = 50'000'000;
    Store store({.maximumBytes = limit, .maximumEntries = 1000});
    std::array<char16_t const*, 6> const paths{u"/a", u"/b", u"/a/c", u"/a/d", u"/b/c", u"/b/d"};
    together([&](int thread) {
        std::mt19937 random(static_cast<unsigned>(thread) + 100);
        auto const path = [&] { return at(paths[random() % paths.size()]); };
        std::string const content(100'000, 'x');
        for (int i = 0; i < 1500; ++i) {
            succeeds([&] {
                switch (random() % 15) {
                case 0:
                    return store->createFolder(path());
                case 1:
                    return store->createFile(path());
                case 2:
                    return store->removeFile(path());
                case 3:
                    return store->removeFolder(path());
                case 4:
                    return store->moveFile(path(), path(), ReplaceExisting);
                case 5:
                    return store->moveFolder(path(), path(), ReplaceExisting);
                case 6:
                    return store->createLink(path(), ustring(paths[random() % paths.size()]));
                case 7: {
                    auto const from = path();
                    auto const to = path();
                    store->copyFile(from, store.item(to.getPath()), {ReplaceExisting, 0, {}});
                    return;
                }
                case 8: {
                    auto const stream = store->openStream(path(), {});
                    stream->write(content.data(), static_cast<long>(1 + random() % 99'999));
                    return stream->close();
                }
                case 9: {
                    std::string buffer(50'000, '\0');
                    store->openReadOnlyStream(path())->read(buffer.data(), 50'000);
                    return;
                }
                case 10:
                    return store->setLastModified(path(), toPtime({1, 0}));
                case 11: {
                    auto const stream = store->openReplacement(path(), ReplaceExisting);
                    stream->write(content.data(), 70'000);
                    try {
                        stream->close();
                    } catch (ByteStreamCloseFailure const&) {
                        // The folder has gone, or a folder has taken the name.
                    }
                    return;
                }
                case 12:
                    return store->removeFolderRecursively(path());
                case 13:
                    store->existsExtended(path());
                    store->getExtendedAttributes(path());
                    return;
                default:
                    store->getFileAttributes(path());
                }
            });
        }
    });
    clear(store, u"/a");
    clear(store, u"/b");
    EXPECT_FALSE(store.isThere(u"/a"));
    EXPECT_FALSE(store.isThere(u"/b"));
    store.put(u"/all", std::string(limit, 'y'));
    store->removeFile(at(u"/all"));
    for (int i = 0; i < 1000; ++i) {
        store->createFile(at(numbered(u"/f", i)));
    }
    EXPECT_EQ(failureOf([&] { store->createFile(at(u"/one more")); }),
              failure(ErrorCode::NoSpaceLeft, u"/one more"));
}

} // namespace
