// Reports while many threads change the store. Run under the thread sanitizer too.

#include "memory_watch.hpp"

#include <array>
#include <atomic>
#include <functional>
#include <latch>
#include <map>
#include <random>
#include <thread>

namespace {

using namespace memory_test;
using enum ReplacementPolicy;

using Items = std::map<ustring, EntryType>; // by path

/// What a store holds below a folder, according to its reports; or what was wrong with one.
class Replica {
  public:
    explicit Replica(ustring root) : root_(std::move(root)) {}

    void apply(Kind kind, StorageIRI const& watched, StorageIRI const& entry, EntryType type,
               boost::property_tree::ptree const& extended) {
        ustring const& path = entry.getPath();
        lines_.push_back(line(kind, watched, entry, type, extended));
        if (path == root_) {
            applyToRoot(kind);
            return;
        }
        bool const isKnown = items_.contains(path);
        switch (kind) {
        case Kind::Created:
            check(isThere_ &&
                  (entry.getParent().getPath() == root_ || isFolder(entry.getParent().getPath())));
            create(path, type, otherEnd(extended, "movedFrom"));
            break;
        case Kind::Removed:
            check(isKnown && items_[path] == type);
            remove(path, otherEnd(extended, "movedTo"));
            break;
        case Kind::Modified:
            check(isKnown && items_[path] == EntryType::File && type == EntryType::File);
            break;
        case Kind::AttributesChanged:
            check(isKnown && items_[path] == type);
            break;
        case Kind::Overflow:
            check(false);
        }
    }

    Items const& items() const { return items_; }
    bool isThere() const { return isThere_; }
    /// The reports up to the first that cannot have been; nothing where there is none.
    Lines const& wrong() const { return wrong_; }

  private:
    static std::optional<std::string> otherEnd(boost::property_tree::ptree const& extended,
                                               char const* key) {
        auto const text = extended.get_optional<std::string>(key);
        return text ? std::optional(*text) : std::nullopt;
    }
    void applyToRoot(Kind kind) {
        if (kind == Kind::Created || kind == Kind::Removed) {
            check(isThere_ == (kind == Kind::Removed));
            isThere_ = kind == Kind::Created;
            items_.clear();
        }
    }
    bool isFolder(ustring const& path) const {
        auto const found = items_.find(path);
        return found != items_.end() && found->second == EntryType::Folder;
    }
    /// Takes out an item with all that is below it, with paths from it on.
    Items take(ustring const& path) {
        Items taken;
        for (auto at = items_.lower_bound(path); at != items_.end();) {
            if (at->first != path && !at->first.starts_with(path + u'/')) {
                ++at;
                continue;
            }
            taken[at->first.substr(path.size())] = at->second;
            at = items_.erase(at);
        }
        return taken;
    }
    void create(ustring const& path, EntryType type, std::optional<std::string> const& from) {
        Items const replaced = take(path);
        check(replaced.size() <= 1 && (replaced.empty() || replaced.begin()->second == type));
        check(moving_.has_value() == from.has_value());
        if (!moving_) {
            items_[path] = type;
            return;
        }
        check(from == moving_->from);
        for (auto const& [below, itsType] : moving_->items) {
            items_[path + below] = itsType;
        }
        check(items_[path] == type);
        moving_.reset();
    }
    void remove(ustring const& path, std::optional<std::string> const& to) {
        Items taken = take(path);
        if (to) {
            check(!moving_);
            moving_ = Moving{text(at(path).toString()), std::move(taken)};
        } else {
            check(taken.size() == 1 || root_ != u"/"); // elsewhere it may have moved away
        }
    }
    void check(bool isRight) {
        if (!isRight && wrong_.empty()) {
            wrong_ = lines_;
        }
    }

    struct Moving {
        std::string from;
        Items items;
    };

    ustring const root_;
    bool isThere_ = true;
    Items items_;
    std::optional<Moving> moving_; ///< between its two reports
    Lines lines_;
    Lines wrong_;
};

/// A replica that is told of everything below a folder. Reports come on one thread at a time.
std::shared_ptr<Replica> replicate(Store const& store, ustring const& root) {
    auto replica = std::make_shared<Replica>(root);
    store->publishFolderEvents(
        at(root),
        [replica](Kind kind, StorageIRI const& watched, StorageIRI const& entry, EntryType type,
                  boost::property_tree::ptree const& extended) {
            replica->apply(kind, watched, entry, type, extended);
        },
        everything, RecursiveFileWatching::Recursive);
    return replica;
}

Items itemsIn(Store const& store, ustring const& folder) {
    Items items;
    auto const cursor = store->listAllRecursiveNamesOnly(at(folder), {});
    while (cursor->hasNext()) {
        cursor->advance();
        FolderEntry const entry = cursor->currentEntry();
        ustring path = folder == u"/" ? ustring() : folder;
        path += u'/';
        path += entry.getName();
        items[path] = entry.isFile() ? EntryType::File : EntryType::Folder;
    }
    return items;
}

std::string shown(Lines const& lines) {
    std::string text;
    for (std::size_t i = lines.size() > 40 ? lines.size() - 40 : 0; i < lines.size(); ++i) {
        text += lines[i] + '\n';
    }
    return text;
}

/// Changes at random, below few names, so that threads meet.
class Changing {
  public:
    Changing(Store const& store, unsigned seed) : store_(store), random_(seed) {}

    void change() {
        try {
            changeOrThrow();
        } catch (Exception const&) {
        } catch (ByteStreamCloseFailure const&) {
            // Another thread was first: the reports must agree all the same.
        }
    }

  private:
    unsigned number(unsigned end) { return static_cast<unsigned>(random_() % end); }
    ustring path() {
        ustring path;
        for (unsigned depth = 1 + number(3); depth > 0; --depth) {
            path += u'/';
            path += static_cast<char16_t>(u'a' + number(3));
        }
        return path;
    }
    void changeOrThrow() {
        StorageIRI const location = at(path());
        switch (number(12)) {
        case 0:
            return store_->createFile(location);
        case 1:
            return store_->createFolder(location);
        case 2:
            return store_->createFolderRecursive(location);
        case 3:
            return store_->removeFile(location);
        case 4:
            return store_->removeFolder(location);
        case 5:
            return store_->removeFolderRecursively(location);
        case 6:
            return store_->moveFile(location, at(path()), ReplaceExisting);
        case 7:
            return store_->moveFolder(location, at(path()), ReplaceExisting);
        case 8:
            store_->copyFile(location, store_.item(path()), {ReplaceExisting, 0, {}});
            return;
        case 9: {
            auto const stream =
                store_->openStream(location, {ByteStreamAccess::WriteOnly,
                                              ByteStreamCreation::OpenOrCreate, number(2), 1});
            std::this_thread::yield();
            stream->write("bytes", 5);
            return;
        }
        case 10: {
            auto const stream = store_->openReplacement(location, ReplaceExisting);
            stream->write("bytes", 5);
            return stream->close();
        }
        default:
            return store_->setWritable(location, true);
        }
    }

    Store const& store_;
    std::minstd_rand random_;
};

TEST(MemoryEventConcurrency, ReportsTellWhatTheStoreHoldsWhoeverChangesIt) {
    constexpr unsigned rounds = 100;
    constexpr unsigned threads = 8;
    constexpr int changes = 150;
    for (unsigned round = 0; round < rounds; ++round) {
        Store const store;
        store->createFolder(at(u"/a"));
        auto const ofA = replicate(store, u"/a"); // comes and goes
        store->removeFolder(at(u"/a"));
        auto const ofAll = replicate(store, u"/");
        std::latch start(threads + 2);
        std::atomic<unsigned> changing{threads};
        std::atomic<int> late{0};
        {
            std::vector<std::jthread> running;
            for (unsigned i = 0; i < threads; ++i) {
                running.emplace_back([&, i] {
                    Changing thread(store, round * threads + i + 1);
                    start.arrive_and_wait();
                    for (int change = 0; change < changes; ++change) {
                        thread.change();
                    }
                    --changing;
                });
            }
            for (unsigned i = 0; i < 2; ++i) {
                running.emplace_back([&, i] {
                    StorageIRI const location = at(i == 0 ? u"/b" : u"/c/a");
                    start.arrive_and_wait();
                    while (changing != 0) {
                        auto const isStopped = std::make_shared<std::atomic<bool>>(false);
                        auto const callsBehind = std::make_shared<std::atomic<int>>(0);
                        try {
                            store->publishFolderEvents(
                                location,
                                [&late, isStopped, callsBehind](Kind, StorageIRI const&,
                                                                StorageIRI const&, EntryType,
                                                                boost::property_tree::ptree) {
                                    // The call that had begun may be seen to begin behind it.
                                    if (*isStopped && ++*callsBehind > 1) {
                                        ++late;
                                    }
                                },
                                everything, RecursiveFileWatching::Recursive);
                        } catch (Exception const&) {
                            continue; // not there at the moment
                        }
                        store->stopPublishingFolderEvents(location);
                        *isStopped = true;
                    }
                });
            }
        }
        ASSERT_EQ(shown(ofAll->wrong()), "") << "round " << round;
        ASSERT_EQ(shown(ofA->wrong()), "") << "round " << round;
        ASSERT_EQ(ofAll->items(), itemsIn(store, u"/")) << "round " << round;
        bool const isAThere = store->exists(at(u"/a")) == ExistsResult::Folder;
        ASSERT_EQ(ofA->isThere(), isAThere) << "round " << round;
        ASSERT_EQ(ofA->items(), isAThere ? itemsIn(store, u"/a") : Items()) << "round " << round;
        ASSERT_EQ(late, 0);
    }
}

TEST(MemoryEventConcurrency, WhatOneThreadDoesIsToldInItsOrderBesideOthers) {
    constexpr std::size_t threads = 8;
    constexpr int changes = 500;
    Store const store;
    std::array<Lines, threads> told; // one callback at a time
    std::atomic<int> inside{0};
    store->publishFolderEvents(
        at(u"/"),
        [&](Kind kind, StorageIRI const& watched, StorageIRI const& entry, EntryType type,
            boost::property_tree::ptree const& extended) {
            EXPECT_EQ(++inside, 1);
            auto const thread = static_cast<std::size_t>(entry.getName()[0] - u'a');
            told[thread].push_back(line(kind, watched, entry, type, extended));
            --inside;
        },
        everything, RecursiveFileWatching::NonRecursive);
    {
        std::latch start(threads);
        std::vector<std::jthread> running;
        for (std::size_t i = 0; i < threads; ++i) {
            running.emplace_back([&, i] {
                StorageIRI const file = at(ustring(u"/") + static_cast<char16_t>(u'a' + i));
                start.arrive_and_wait();
                for (int change = 0; change < changes; ++change) {
                    store->createFile(file);
                    store->setWritable(file, true);
                    store->removeFile(file);
                }
            });
        }
    }
    for (std::size_t i = 0; i < threads; ++i) {
        std::string const path = std::string(" /") + static_cast<char>('a' + i);
        Lines expected;
        for (int change = 0; change < changes; ++change) {
            for (char const* const kind : {"created", "attributes", "removed"}) {
                expected.push_back(kind + path);
            }
        }
        EXPECT_EQ(told[i], expected);
    }
}

TEST(MemoryEvents, AThreadIsNotHeldForAsLongAsOthersMakeChanges) {
    constexpr int tooMany = 5'000;
    constexpr int ahead = 100;
    Store const store;
    std::latch begun(1);
    std::atomic<bool> isBack{false};
    std::atomic<bool> isFirst{true};
    std::atomic<int> made{0};
    std::atomic<int> told{0};
    store->publishFolderEvents(
        at(u"/"),
        [&](Kind, StorageIRI const&, StorageIRI const&, EntryType,
            boost::property_tree::ptree const&) {
            if (isFirst.exchange(false)) {
                begun.count_down(); // on the thread that is to come back
                while (made < ahead / 2) {
                    std::this_thread::yield();
                }
            }
            ++told;
        },
        everything, RecursiveFileWatching::NonRecursive);
    std::jthread const other([&] {
        begun.wait();
        for (; made < tooMany && !isBack; ++made) {
            store->createFile(at(u"/other"));
            store->removeFile(at(u"/other"));
            while (made > told + ahead && !isBack) {
                std::this_thread::yield(); // so that there is always more to tell, and not too much
            }
        }
    });

    store->createFile(at(u"/file"));
    isBack = true;

    EXPECT_LT(made, tooMany);
}

} // namespace
