// A provider is called from many threads at once.

#include <foundation/storage/conformance/detail/case.hpp>
#include <foundation/storage/conformance/detail/trial.hpp>

#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>

#include <algorithm>
#include <barrier>
#include <memory>
#include <thread>

namespace foundation::storage::conformance::detail {

namespace {

using enum Ability;

constexpr std::size_t threadCount = 8;

ustring digitsOf(std::size_t number) {
    std::string const digits = std::to_string(number);
    return {digits.begin(), digits.end()};
}

/// What became of each thread: nothing where all went well.
using Ends = std::vector<std::optional<ErrorCode>>;

/// Runs the call on many threads that begin together. What is not a provider's refusal is a remark.
Ends together(Trial& t, std::function<void(std::size_t)> const& call) {
    Ends ends(threadCount);
    std::vector<std::string> remarks(threadCount);
    {
        std::barrier start(static_cast<std::ptrdiff_t>(threadCount));
        std::vector<std::jthread> threads;
        for (std::size_t i = 0; i < threadCount; ++i) {
            threads.emplace_back([&, i] {
                start.arrive_and_wait();
                try {
                    call(i);
                } catch (Exception const& e) {
                    ends[i] = e.getErrorCode();
                } catch (...) {
                    remarks[i] = textOfCurrentException();
                }
            });
        }
    }
    for (std::string const& text : remarks) {
        t.expect(text.empty(), "a thread ended with " + text);
    }
    return ends;
}

/// All threads are done without a failure.
void expectAllDone(Trial& t, std::function<void(std::size_t)> const& call) {
    for (auto const& end : together(t, call)) {
        t.expect(!end, "a thread ended with " + textOf(end));
    }
}

/// One thread is done, the others are refused.
void expectOneDone(Trial& t, std::string const& what, ErrorCode refusal,
                   std::function<void(std::size_t)> const& call) {
    for (int round = 0; round < 20; ++round) {
        Ends const ends = together(t, call);
        auto const done = std::count(ends.begin(), ends.end(), std::nullopt);
        auto const refused = std::count(ends.begin(), ends.end(), std::optional(refusal));
        if (!t.expect(done == 1 && done + refused == static_cast<long>(threadCount),
                      what + " by " + textOf(threadCount) + " threads is done by " +
                          textOf(static_cast<long>(done)) + " and refused with " + textOf(refusal) +
                          " to " + textOf(static_cast<long>(refused)))) {
            return;
        }
        if (t.isFile(u"name")) {
            t.provider().removeFile(t.at(u"name"));
        } else if (t.isFolder(u"name")) {
            t.provider().removeFolder(t.at(u"name"));
        }
    }
}

constexpr Case cases[] = {
    {"OneOfManyCreatesAFile",
     [](Trial& t) {
         expectOneDone(t, "createFile", ErrorCode::ResourceAlreadyExists,
                       [&](std::size_t) { t.provider().createFile(t.at(u"name")); });
     },
     FileCreation | FileRemoval},
    {"OneOfManyCreatesAFolder",
     [](Trial& t) {
         expectOneDone(t, "createFolder", ErrorCode::ResourceAlreadyExists,
                       [&](std::size_t) { t.provider().createFolder(t.at(u"name")); });
     },
     FolderCreation | FolderRemoval},
    {"AllMakeTheSameChain",
     [](Trial& t) {
         for (std::size_t round = 0; round < 20; ++round) {
             ustring const path = u"chain " + digitsOf(round) + u"/b/c/d";
             expectAllDone(t, [&](std::size_t) { t.provider().createFolderRecursive(t.at(path)); });
             t.expectEqual("exists of the chain", t.exists(path), ExistsResult::Folder);
         }
     },
     Ability::FolderChainCreation},
    {"OneOfManyRemovesAFile",
     [](Trial& t) {
         for (int round = 0; round < 20; ++round) {
             t.makeFile(u"file");
             Ends const ends =
                 together(t, [&](std::size_t) { t.provider().removeFile(t.at(u"file")); });
             t.expect(std::count(ends.begin(), ends.end(), std::nullopt) == 1 &&
                          std::count(ends.begin(), ends.end(),
                                     std::optional(ErrorCode::ResourceNotFound)) ==
                              static_cast<long>(threadCount) - 1,
                      "removeFile of one file is not done by one thread alone");
         }
     },
     FileCreation | FileRemoval},
    {"OneOfManyMovesAFile",
     [](Trial& t) {
         for (std::size_t round = 0; round < 20; ++round) {
             ustring const stem = u"moved " + digitsOf(round) + u" ";
             t.makeFile(u"file");
             Ends const ends = together(t, [&](std::size_t i) {
                 t.provider().moveFile(t.at(u"file"), t.at(stem + digitsOf(i)),
                                       ReplacementPolicy::FailIfExists);
             });
             long there = 0;
             for (std::size_t i = 0; i < threadCount; ++i) {
                 there += t.isThere(stem + digitsOf(i)) ? 1 : 0;
             }
             t.expectEqual("the threads that moved one file",
                           static_cast<long>(std::count(ends.begin(), ends.end(), std::nullopt)),
                           1L);
             t.expectEqual("the names that one moved file has", there, 1L);
             t.expectGone(u"file");
         }
     },
     FileCreation | FileMoves},
    {"OneOfManyCopiesToAName",
     [](Trial& t) {
         for (std::size_t i = 0; i < threadCount; ++i) {
             t.makeFile(u"file " + digitsOf(i), pattern(100'000, static_cast<unsigned>(i)));
         }
         for (int round = 0; round < 10; ++round) {
             Ends const ends = together(t, [&](std::size_t i) {
                 t.copy(u"file " + digitsOf(i), u"name", ReplacementPolicy::FailIfExists);
             });
             auto const done = std::find(ends.begin(), ends.end(), std::nullopt);
             t.expectEqual("the threads that copied to one name",
                           static_cast<long>(std::count(ends.begin(), ends.end(), std::nullopt)),
                           1L);
             if (done != ends.end()) {
                 t.expectFile(u"name",
                              pattern(100'000, static_cast<unsigned>(done - ends.begin())));
             }
             t.provider().removeFile(t.at(u"name"));
         }
     },
     FileCopies | Writing | FileRemoval | Replacement},
    {"EachWorksInAFolderOfItsOwn",
     [](Trial& t) {
         expectAllDone(t, [&](std::size_t i) {
             ustring const folder = u"folder " + digitsOf(i);
             t.provider().createFolder(t.at(folder));
             for (std::size_t round = 0; round < 30; ++round) {
                 ustring const file = folder + u"/" + digitsOf(round);
                 std::string const bytes = pattern(1000 + round, static_cast<unsigned>(i));
                 t.makeFile(file, bytes);
                 if (t.bytesOf(file) != bytes || t.names(folder).size() != 1) {
                     throw std::logic_error("another file or folder than its own");
                 }
                 t.provider().removeFile(t.at(file));
             }
             t.provider().removeFolder(t.at(folder));
         });
         t.expectEqual("the names that are left", t.names({}), {});
     },
     Writing | Reading | Ability::Listing | FolderCreation | FileRemoval | FolderRemoval},
    {"AllReadOneFile",
     [](Trial& t) {
         for (DeclaredItem const& item : std::vector(t.content())) {
             if (item.kind == DeclaredItem::Kind::File) {
                 expectAllDone(t, [&](std::size_t i) {
                     for (int round = 0; round < 10; ++round) {
                         auto const stream = t.provider().openReadOnlyStream(t.at(item.path));
                         std::string bytes(item.bytes.size() + 1, '\0');
                         long got = 0;
                         long const piece = static_cast<long>(1000 + i);
                         for (long read = 0; read >= 0; got += std::max(read, 0L)) {
                             long const room = static_cast<long>(bytes.size()) - got;
                             read = room == 0
                                        ? -1
                                        : stream->read(bytes.data() + got, std::min(piece, room));
                         }
                         bytes.resize(static_cast<std::size_t>(got));
                         if (bytes != item.bytes) {
                             throw std::logic_error("other bytes than there are");
                         }
                     }
                 });
             }
         }
     },
     Ability::Reading},
    {"AllAskAtOnce",
     [](Trial& t) {
         auto const content = t.content();
         expectAllDone(t, [&](std::size_t) {
             for (int round = 0; round < 50; ++round) {
                 for (DeclaredItem const& item : content) {
                     bool const file = item.kind != DeclaredItem::Kind::Folder;
                     if (t.isFile(item.path) != file || t.isThere(u"not here")) {
                         throw std::logic_error("another answer than alone");
                     }
                 }
             }
         });
     }},
    {"EveryAppendIsKeptWhole",
     [](Trial& t) {
         constexpr std::size_t rounds = 50;
         constexpr std::size_t size = 100;
         t.makeFile(u"file");
         expectAllDone(t, [&](std::size_t i) {
             auto const stream =
                 t.provider().openStream(t.at(u"file"), {ByteStreamAccess::WriteOnly,
                                                         ByteStreamCreation::OpenExisting, 1, 0});
             for (std::size_t round = 0; round < rounds; ++round) {
                 write(*stream, std::string(size, static_cast<char>('a' + i)));
             }
             stream->close();
         });
         std::string const bytes = t.bytesOf(u"file");
         t.expectEqual("the bytes in all", static_cast<unsigned long>(bytes.size()),
                       static_cast<unsigned long>(threadCount * rounds * size));
         for (std::size_t at = 0; at + size <= bytes.size(); at += size) {
             if (!t.expect(bytes.find_first_not_of(bytes[at], at) >= at + size,
                           "an append is torn at " + textOf(static_cast<unsigned long>(at)))) {
                 return;
             }
         }
     },
     Writing | Reading},
    {"ReadersSeeTheOldContentOrTheNew",
     [](Trial& t) {
         std::string const contents[] = {std::string(150'000, 'a'), std::string(150'000, 'b')};
         t.makeFile(u"file", contents[0]);
         auto& replacing = t.extension<extensions::IReplacingStreams>();
         expectAllDone(t, [&](std::size_t i) {
             for (std::size_t round = 0; round < 20; ++round) {
                 if (i == 0) {
                     auto const stream = replacing.openReplacement(
                         t.at(u"file"), ReplacementPolicy::ReplaceExisting);
                     write(*stream, contents[round % 2]);
                     stream->close();
                     continue;
                 }
                 auto const stream = t.provider().openReadOnlyStream(t.at(u"file"));
                 std::string bytes(150'001, '\0');
                 bytes.resize(
                     static_cast<std::size_t>(std::max(stream->read(bytes.data(), 150'001), 0L)));
                 if (bytes != contents[0] && bytes != contents[1]) {
                     throw std::logic_error("neither the old content nor the new");
                 }
             }
         });
     },
     Replacement | Writing | Reading},
    {"ListingsBesideChangesDeliverWhatStays",
     [](Trial& t) {
         constexpr std::size_t staying = 400;
         for (std::size_t i = 0; i < staying; ++i) {
             t.makeFile(u"staying " + digitsOf(i));
         }
         expectAllDone(t, [&](std::size_t i) {
             for (std::size_t round = 0; round < 25; ++round) {
                 if (i < 2) {
                     ustring const name = u"coming and going " + digitsOf(i);
                     t.provider().createFile(t.at(name));
                     t.provider().removeFile(t.at(name));
                     continue;
                 }
                 auto names = t.names({});
                 std::erase_if(names, [](ustring const& name) { return name[0] != u's'; });
                 if (names.size() != staying ||
                     std::adjacent_find(names.begin(), names.end()) != names.end()) {
                     throw std::logic_error("entries that stay are missed or doubled");
                 }
             }
         });
     },
     Ability::Listing | FileCreation | FileRemoval},
    {"ClonesGoOnOnManyThreads",
     [](Trial& t) {
         constexpr std::size_t count = 600;
         for (std::size_t i = 0; i < count; ++i) {
             t.makeFile(u"file " + digitsOf(i));
         }
         auto const master = t.provider().listAllNamesOnly(t.at({}), {});
         std::vector<std::unique_ptr<IFolderEntryIterator>> clones;
         for (std::size_t i = 0; i < threadCount; ++i) {
             master->advance();
             clones.emplace_back(master->cloneIterator());
         }
         expectAllDone(t, [&](std::size_t i) {
             std::size_t left = 0;
             for (; clones[i]->hasNext(); ++left) {
                 clones[i]->advance();
                 std::unique_ptr<IFolderEntryIterator> const other(clones[i]->cloneIterator());
                 if (other->currentEntry().getName() != clones[i]->currentEntry().getName()) {
                     throw std::logic_error("a clone at another entry");
                 }
             }
             if (left != count - i - 1) {
                 throw std::logic_error("a clone with another number of entries left");
             }
         });
     },
     Ability::Listing | FileCreation},
    {"WhatIsReadIsWholeOrMissingBesideRemovals",
     [](Trial& t) {
         std::string const bytes = pattern(2000);
         t.makeFile(u"source", bytes);
         expectAllDone(t, [&](std::size_t i) {
             for (int round = 0; round < 30; ++round) {
                 if (i == 0) {
                     t.copy(u"source", u"file");
                     t.provider().removeFile(t.at(u"file"));
                     continue;
                 }
                 try {
                     auto const stream = t.provider().openReadOnlyStream(t.at(u"file"));
                     std::string read(2001, '\0');
                     read.resize(
                         static_cast<std::size_t>(std::max(stream->read(read.data(), 2001), 0L)));
                     if (read != bytes) {
                         throw std::logic_error("a part of a file");
                     }
                 } catch (Exception const& e) {
                     if (e.getErrorCode() != ErrorCode::ResourceNotFound) {
                         throw;
                     }
                 }
             }
         });
     },
     Writing | Reading | FileCopies | FileRemoval | Replacement},
    {"TwoRemovalsOfOneTreeBothEnd",
     [](Trial& t) {
         for (int round = 0; round < 5; ++round) {
             t.makeFolder(u"tree");
             for (std::size_t i = 0; i < 10; ++i) {
                 ustring const folder = u"tree/" + digitsOf(i);
                 t.makeFolder(folder);
                 t.makeFile(folder + u"/file");
             }
             Ends const ends = together(
                 t, [&](std::size_t) { t.provider().removeFolderRecursively(t.at(u"tree")); });
             for (auto const& end : ends) {
                 t.expect(!end || end == ErrorCode::ResourceNotFound,
                          "a removal beside others ended with " + textOf(end));
             }
             t.expectGone(u"tree");
         }
     },
     TreeRemoval | FolderCreation | FileCreation},
    {"FilesThatArePassedAroundAreNeitherLostNorDoubled",
     [](Trial& t) {
         constexpr std::size_t files = 4;
         t.makeFolder(u"one");
         t.makeFolder(u"two");
         for (std::size_t i = 0; i < files; ++i) {
             t.makeFile(u"one/" + digitsOf(i));
         }
         expectAllDone(t, [&](std::size_t i) {
             for (std::size_t round = 0; round < 50; ++round) {
                 ustring const name = u"/" + digitsOf((round + i) % files);
                 bool const there = (i + round) % 2 == 0;
                 try {
                     t.provider().moveFile(t.at((there ? u"one" : u"two") + name),
                                           t.at((there ? u"two" : u"one") + name),
                                           ReplacementPolicy::FailIfExists);
                 } catch (Exception const& e) {
                     // Between a look at the source and one at the destination another thread
                     // may have moved the file.
                     if (e.getErrorCode() != ErrorCode::ResourceNotFound &&
                         e.getErrorCode() != ErrorCode::ResourceAlreadyExists) {
                         throw;
                     }
                 }
             }
         });
         for (std::size_t i = 0; i < files; ++i) {
             t.expectEqual(
                 "the folders that a file is in",
                 int{t.isThere(u"one/" + digitsOf(i))} + int{t.isThere(u"two/" + digitsOf(i))}, 1);
         }
     },
     FileMoves | FileCreation | FolderCreation},
};

} // namespace

Family concurrencyFamily() {
    return {"Concurrency", cases};
}

} // namespace foundation::storage::conformance::detail
