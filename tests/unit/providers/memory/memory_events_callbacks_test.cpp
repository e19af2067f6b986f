// What a callback may do: whatever it likes.

#include "memory_watch.hpp"

#include <foundation/storage/provider/memory/memory_factory.hpp>

#include <future>
#include <stdexcept>
#include <thread>

namespace {

using namespace memory_test;
using enum ReplacementPolicy;

/// A callback that is told what happened, and to what.
template<class Handle>
ChangeCallback calling(Handle handle) {
    return [handle](Kind kind, StorageIRI const&, StorageIRI const& entry, EntryType,
                    boost::property_tree::ptree const&) { handle(kind, entry.getPath()); };
}

void watch(Store const& store, ustring const& path, ChangeCallback callback) {
    store->publishFolderEvents(at(path), std::move(callback), everything,
                               RecursiveFileWatching::Recursive);
}

TEST(MemoryEventCallbacks, ComeOnTheThreadOfTheChangeBeforeItReturns) {
    Store const store;
    std::vector<std::thread::id> threads;
    watch(store, u"/", calling([&](Kind, ustring const& path) {
              threads.push_back(std::this_thread::get_id());
              EXPECT_TRUE(store.isThere(path)) << "not behind the change";
          }));
    store->createFile(at(u"/a"));
    EXPECT_EQ(threads, std::vector{std::this_thread::get_id()});
    std::thread other([&] {
        store->createFile(at(u"/b"));
        EXPECT_EQ(threads.size(), 2U);
        EXPECT_EQ(threads.back(), std::this_thread::get_id());
    });
    other.join();
}

TEST(MemoryEventCallbacks, ChangeTheStoreAndEverybodyHearsOfItInOrder) {
    Store const store;
    Log const before = watchTree(store, u"/");
    watch(store, u"/", calling([&](Kind kind, ustring const& path) {
              if (kind == Kind::Created && path == u"/a") {
                  store->createFile(at(u"/b"));
                  store->moveFile(at(u"/a"), at(u"/c"), FailIfExists);
                  store->removeFile(at(u"/b"));
              }
          }));
    Log const behind = watchTree(store, u"/");
    store->createFile(at(u"/a"));
    Lines const expected{"created /a", "created /b", "removed /a to /c", "created /c from /a",
                         "removed /b"};
    EXPECT_EQ(before.take(), expected);
    EXPECT_EQ(behind.take(), expected);
}

TEST(MemoryEventCallbacks, WriteTheFileThatTheyHearOf) {
    Store const store;
    store->createFile(at(u"/a"));
    auto const stream = store->openStream(
        at(u"/a"), {ByteStreamAccess::ReadWrite, ByteStreamCreation::OpenExisting, 1, 1});
    int left = 3;
    watch(store, u"/", calling([&](Kind, ustring const&) {
              if (left-- > 0) {
                  stream->write("more ", 5);
              }
          }));
    stream->write("one ", 4);
    EXPECT_EQ(store.get(u"/a"), "one more more more ");
    EXPECT_EQ(left, -1);
}

TEST(MemoryEventCallbacks, StopThemselves) {
    Store const store;
    int calls = 0;
    watch(store, u"/", calling([&](Kind, ustring const&) {
              ++calls;
              store->stopPublishingFolderEvents(at(u"/"));
          }));
    store->createFolderRecursive(at(u"/a/b/c")); // three reports at once
    store->createFile(at(u"/d"));
    EXPECT_EQ(calls, 1);
}

TEST(MemoryEventCallbacks, StopOneThatWasToBeToldNext) {
    Store const store;
    Log other;
    watch(store, u"/", calling([&](Kind, ustring const&) {
              store->stopPublishingFolderEvents(at(u"/"));
              store->stopPublishingFolderEvents(at(u"/"));
          }));
    watch(store, u"/", other.callback());
    store->createFile(at(u"/a"));
    EXPECT_EQ(other.take(), Lines());
}

TEST(MemoryEventCallbacks, PublishAnotherThatHearsOfWhatComes) {
    Store const store;
    Log other;
    bool published = false;
    watch(store, u"/", calling([&](Kind, ustring const&) {
              if (!std::exchange(published, true)) {
                  watch(store, u"/", other.callback());
                  store->createFile(at(u"/b"));
              }
          }));
    store->createFile(at(u"/a"));
    EXPECT_EQ(other.take(), Lines({"created /b"}));
}

TEST(MemoryEventCallbacks, ThrowWithoutHarmToOthersOrToTheChange) {
    Store const store;
    Log const before = watchTree(store, u"/");
    watch(store, u"/", calling([](Kind, ustring const&) { throw std::runtime_error("mine"); }));
    watch(store, u"/", calling([](Kind, ustring const&) { throw 1; }));
    watch(store, u"/", ChangeCallback());
    Log const behind = watchTree(store, u"/");
    EXPECT_NO_THROW(store->createFolderRecursive(at(u"/a/b")));
    EXPECT_EQ(before.take(), Lines({"created /a/", "created /a/b/"}));
    EXPECT_EQ(behind.take(), Lines({"created /a/", "created /a/b/"}));
}

TEST(MemoryEventCallbacks, HearOfWhatAFailedOperationHadChanged) {
    memory::MemoryOptions options;
    options.maximumEntries = 2;
    Store const store(options);
    Log const log = watchTree(store, u"/");
    EXPECT_EQ(failureOf([&] { store->createFolderRecursive(at(u"/a/b/c")); })->first,
              ErrorCode::NoSpaceLeft);
    EXPECT_EQ(log.take(), Lines({"created /a/", "created /a/b/"}));
}

TEST(MemoryEventCallbacks, HearOfBytesThatAFailedWriteLeft) {
    memory::MemoryOptions options;
    options.maximumBytes = 100 * 1024;
    Store const store(options);
    store->createFile(at(u"/a"));
    Log const log = watchTree(store, u"/");
    auto const stream = store->openStream(
        at(u"/a"), {ByteStreamAccess::WriteOnly, ByteStreamCreation::OpenExisting, 1, 1});
    std::string const much(200 * 1024, 'x');
    EXPECT_THROW(stream->write(much.data(), static_cast<long>(much.size())),
                 ByteStreamWriteFailure);
    EXPECT_FALSE(store.get(u"/a").empty());
    EXPECT_EQ(log.take(), Lines({"modified /a"}));
}

/// Calls an operation of a store whose last owner is a callback.
template<class Operation>
int callsUntilTheEndOf(Operation const& operation) {
    auto owner = std::make_shared<std::shared_ptr<memory::MemoryProvider>>(
        std::make_shared<memory::MemoryProvider>());
    memory::MemoryProvider& provider = **owner;
    provider.createFolderRecursive(at(u"/w/deep/er"));
    for (char16_t name = u'a'; name <= u'z'; ++name) {
        provider.createFile(at(ustring(u"/w/deep/") + name));
    }
    int calls = 0;
    provider.publishFolderEvents(at(u"/w"), calling([&, owner](Kind, ustring const&) {
                                     ++calls;
                                     owner->reset();
                                 }),
                                 everything, RecursiveFileWatching::Recursive);
    operation(provider);
    EXPECT_EQ(*owner, nullptr);
    return calls;
}

TEST(MemoryEventCallbacks, LetGoOfTheLastOwnerOfTheStore) {
    EXPECT_EQ(callsUntilTheEndOf([](auto& store) { store.createFile(at(u"/w/new")); }), 1);
    EXPECT_EQ(callsUntilTheEndOf([](auto& store) { store.createFolderRecursive(at(u"/w/1/2/3")); }),
              1);
    EXPECT_EQ(callsUntilTheEndOf([](auto& store) { store.removeFolderRecursively(at(u"/w")); }), 1);
    EXPECT_EQ(callsUntilTheEndOf([](auto& store) {
                  store.moveFolder(at(u"/w/deep"), at(u"/w/new"), FailIfExists);
              }),
              1);
    EXPECT_EQ(callsUntilTheEndOf([](auto& store) { store.setWritable(at(u"/w"), true); }), 1);
    EXPECT_EQ(callsUntilTheEndOf([](auto& store) {
                  auto const stream =
                      store.openStream(at(u"/w/new"), {ByteStreamAccess::WriteOnly,
                                                       ByteStreamCreation::OpenOrCreate, 0, 1});
                  EXPECT_EQ(stream->write("lives on", 8), 8);
                  stream->close();
              }),
              1);
}

TEST(MemoryEventCallbacks, LetGoOfTheStreamThatIsWritten) {
    Store const store;
    store->createFile(at(u"/a"));
    auto stream = store->openStream(
        at(u"/a"), {ByteStreamAccess::WriteOnly, ByteStreamCreation::OpenExisting, 1, 1});
    watch(store, u"/", calling([&](Kind, ustring const&) { stream.reset(); }));
    EXPECT_EQ(stream->write("bytes", 5), 5);
    EXPECT_EQ(stream, nullptr);
}

TEST(MemoryEventCallbacks, AreLetGoOfWhenTheyAreStopped) {
    Store const store;
    auto const owned = std::make_shared<int>();
    for (int i = 0; i < 2; ++i) {
        watch(store, u"/", calling([owned](Kind, ustring const&) {}));
    }
    store->createFile(at(u"/a"));
    EXPECT_EQ(owned.use_count(), 3);
    store->stopPublishingFolderEvents(at(u"/"));
    EXPECT_EQ(owned.use_count(), 2);
    store->stopPublishingFolderEvents(at(u"/"));
    EXPECT_EQ(owned.use_count(), 1);
    EXPECT_TRUE(failureOf([&] {
        store->publishFileEvents(at(u"/none"), calling([owned](Kind, ustring const&) {}), {});
    }));
    EXPECT_EQ(owned.use_count(), 1);
}

TEST(MemoryEventCallbacks, MayCallTheStoreWhenTheyAreDestroyed) {
    Store const store;
    Log const log = watchTree(store, u"/");
    std::shared_ptr<int> token(new int, [&](int* number) {
        delete number;
        store->createFile(at(u"/last words"));
        store->stopPublishingFolderEvents(at(u"/none"));
    });
    store->createFolder(at(u"/f"));
    watch(
        store, u"/f",
        calling([owned = std::make_shared<std::shared_ptr<int>>(token)](Kind, ustring const&) {}));
    token.reset();
    store->stopPublishingFolderEvents(at(u"/f"));
    EXPECT_EQ(log.take(), Lines({"created /f/", "created /last words"}));
}

TEST(MemoryEventCallbacks, MayWaitForAThreadThatChangesTheStore) {
    Store const store;
    Log const log = watchTree(store, u"/");
    watch(store, u"/", calling([&](Kind, ustring const& path) {
              if (path == u"/a") {
                  std::thread other([&] {
                      store->createFile(at(u"/b"));
                      store->stopPublishingFolderEvents(at(u"/none"));
                      watch(store, u"/", ChangeCallback());
                  });
                  other.join();
                  EXPECT_EQ(log.take(), Lines({"created /a"})) << "/b came before its turn";
              }
          }));
    store->createFile(at(u"/a"));
    EXPECT_EQ(log.take(), Lines({"created /b"}));
}

TEST(MemoryEventCallbacks, AStopDoesNotWaitForOneThatRuns) {
    Store const store;
    std::promise<void> running;
    std::promise<void> stopped;
    int calls = 0;
    watch(store, u"/", calling([&](Kind, ustring const&) {
              ++calls;
              running.set_value();
              stopped.get_future().wait();
          }));
    std::thread changing([&] { store->createFolderRecursive(at(u"/a/b/c")); });
    running.get_future().wait();
    store->stopPublishingFolderEvents(at(u"/"));
    stopped.set_value();
    changing.join();
    EXPECT_EQ(calls, 1);
}

TEST(MemoryEventCallbacks, WhatIsWrittenWhileOneRunsIsReportedOnce) {
    Store const store;
    store->createFile(at(u"/a"));
    auto const stream = store->openStream(
        at(u"/a"), {ByteStreamAccess::WriteOnly, ByteStreamCreation::OpenExisting, 1, 1});
    Lines lines;
    watch(store, u"/", calling([&](Kind kind, ustring const& path) {
              lines.push_back(nameOf(kind) + ' ' + text(path));
              if (lines.size() == 1) {
                  for (int i = 0; i < 100; ++i) {
                      stream->write("more", 4);
                  }
                  store->setWritable(at(u"/a"), true);
                  stream->write("more", 4);
              }
          }));
    stream->write("once", 4);
    EXPECT_EQ(lines, Lines({"modified /a", "modified /a", "attributes /a", "modified /a"}));
}

TEST(MemoryEventCallbacks, OneThatIsTooSlowHearsThatReportsWereLost) {
    Store const store;
    store->createFile(at(u"/a"));
    Log const quick = watchFolder(store, u"/", {Kind::Created});
    Log slow;
    std::promise<void> running;
    std::promise<void> mayGoOn;
    std::once_flag first;
    watch(store, u"/", calling([&](Kind, ustring const&) {
              std::call_once(first, [&] {
                  running.set_value();
                  mayGoOn.get_future().wait();
              });
          }));
    watch(store, u"/", slow.callback());
    std::thread changing([&] { store->setWritable(at(u"/a"), true); });
    running.get_future().wait();
    constexpr std::size_t changes = 500'000; // far more than are kept
    for (std::size_t i = 0; i < changes; ++i) {
        store->setWritable(at(u"/a"), true);
    }
    store->createFile(at(u"/lost on the slow one"));
    mayGoOn.set_value();
    changing.join();

    Lines const lines = slow.take();
    ASSERT_FALSE(lines.empty());
    EXPECT_GT(lines.size(), 1'000U);
    EXPECT_LT(lines.size(), changes);
    EXPECT_EQ(lines.back(), "overflow /");
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "overflow /"), 1);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "attributes /a"),
              static_cast<long>(lines.size()) - 1);
    EXPECT_EQ(quick.take(), Lines({"created /lost on the slow one"}));
    store->removeFile(at(u"/a"));
    EXPECT_EQ(slow.take(), Lines({"removed /a"})); // and is told again from then on
}

TEST(MemoryEventCallbacks, EndWithTheFactory) {
    memory::MemoryProviderFactory const factory;
    auto const provider = factory.buildProvider(at(u"/"));
    provider->createFolder(at(u"/w"));
    Log log;
    auto const owned = std::make_shared<int>();
    auto const publish = [&] {
        provider->publishFolderEvents(
            at(u"/w"),
            [callback = log.callback(), owned](Kind kind, StorageIRI const& watched,
                                               StorageIRI const& entry, EntryType type,
                                               boost::property_tree::ptree const& extended) {
                callback(kind, watched, entry, type, extended);
            },
            everything, RecursiveFileWatching::Recursive);
    };
    publish();
    provider->createFile(at(u"/w/a"));
    factory.shutdownProvider();
    EXPECT_EQ(owned.use_count(), 1);
    provider->createFile(at(u"/w/b"));
    EXPECT_EQ(log.take(), Lines({"created /w/a"}));
    try {
        publish();
        ADD_FAILURE() << "published behind the end";
    } catch (ChangeEventsSubscriptionException const& e) {
        EXPECT_EQ(e.getStorageIRI(), at(u"/w"));
    }
    EXPECT_EQ(owned.use_count(), 1);
    EXPECT_NO_THROW(provider->stopPublishingFolderEvents(at(u"/w")));
    factory.shutdownProvider();
    EXPECT_EQ(provider->exists(at(u"/w/b")), ExistsResult::File);
    EXPECT_EQ(factory.buildProvider(at(u"/")), provider);
}

TEST(MemoryEventCallbacks, EndTheFactoryThemselves) {
    auto const factory = std::make_shared<memory::MemoryProviderFactory>();
    auto const provider = factory->buildProvider(at(u"/"));
    int calls = 0;
    provider->publishFolderEvents(at(u"/"), calling([&](Kind, ustring const&) {
                                      ++calls;
                                      factory->shutdownProvider();
                                  }),
                                  everything, RecursiveFileWatching::Recursive);
    provider->createFolderRecursive(at(u"/a/b"));
    EXPECT_EQ(calls, 1);
}

} // namespace
