// What the store reports of each operation.

#include "memory_watch.hpp"

#include <boost/date_time/posix_time/ptime.hpp>

#include <functional>

namespace {

using namespace memory_test;
using enum ReplacementPolicy;

/// /w with a file, a folder with a file, and a link; beside it a file and a folder with content.
Store tree() {
    Store store;
    store->createFolderRecursive(at(u"/w/deep"));
    store->createFolderRecursive(at(u"/out/below"));
    store.put(u"/w/file", "bytes");
    store.put(u"/w/deep/file", "bytes");
    store.put(u"/out/file", "other");
    store.put(u"/out/below/file", "other");
    store->createLink(at(u"/w/link"), u"file");
    return store;
}

std::unique_ptr<ByteStream> open(Store const& store, ustring const& path, bool truncate,
                                 bool append = false) {
    return store->openStream(at(path),
                             {ByteStreamAccess::WriteOnly, ByteStreamCreation::OpenOrCreate,
                              truncate ? 0U : 1U, append ? 0U : 1U});
}

void replace(Store const& store, ustring const& path) {
    auto const stream = store->openReplacement(at(path), ReplaceExisting);
    stream->write("new", 3);
    stream->close();
}

struct Case {
    char const* name;
    std::function<void(Store const&)> operation;
    Lines flat;
    Lines recursive;
};

boost::posix_time::ptime const someTime(boost::gregorian::date(2024, 2, 29));

std::vector<Case> const cases{
    {"createFile",
     [](Store const& s) { s->createFile(at(u"/w/new")); },
     {"created /w/new"},
     {"created /w/new"}},
    {"createFile deep",
     [](Store const& s) { s->createFile(at(u"/w/deep/new")); },
     {},
     {"created /w/deep/new"}},
    {"createFile through a link to a folder",
     [](Store const& s) {
         s->createLink(at(u"/way"), u"w/deep");
         s->createFile(at(u"/way/new"));
     },
     {},
     {"created /w/deep/new"}},
    {"createFolder",
     [](Store const& s) { s->createFolder(at(u"/w/new")); },
     {"created /w/new/"},
     {"created /w/new/"}},
    {"createFolderRecursive",
     [](Store const& s) { s->createFolderRecursive(at(u"/w/deep/1/2")); },
     {},
     {"created /w/deep/1/", "created /w/deep/1/2/"}},
    {"createFolderRecursive of what is there",
     [](Store const& s) { s->createFolderRecursive(at(u"/w/deep")); },
     {},
     {}},
    {"createLink",
     [](Store const& s) { s->createLink(at(u"/w/new"), u"nowhere"); },
     {"created /w/new"},
     {"created /w/new"}},
    {"removeFile",
     [](Store const& s) { s->removeFile(at(u"/w/file")); },
     {"removed /w/file"},
     {"removed /w/file"}},
    {"removeFile of a link",
     [](Store const& s) { s->removeFile(at(u"/w/link")); },
     {"removed /w/link"},
     {"removed /w/link"}},
    {"removeFolder",
     [](Store const& s) {
         s->removeFile(at(u"/w/deep/file"));
         s->removeFolder(at(u"/w/deep"));
     },
     {"removed /w/deep/"},
     {"removed /w/deep/file", "removed /w/deep/"}},
    {"removeFolderRecursively",
     [](Store const& s) {
         s->createFolderRecursive(at(u"/w/deep/1/2"));
         s->removeFolderRecursively(at(u"/w/deep"));
     },
     {"removed /w/deep/"},
     {"created /w/deep/1/", "created /w/deep/1/2/", "removed /w/deep/1/2/", "removed /w/deep/1/",
      "removed /w/deep/file", "removed /w/deep/"}},
    {"removeFolderRecursively of the watched folder",
     [](Store const& s) { s->removeFolderRecursively(at(u"/w")); },
     {"removed /w/deep/", "removed /w/file", "removed /w/link", "removed /w/"},
     {"removed /w/deep/file", "removed /w/deep/", "removed /w/file", "removed /w/link",
      "removed /w/"}},
    {"copyFile",
     [](Store const& s) { s.copy(u"/out/file", u"/w/new"); },
     {"created /w/new"},
     {"created /w/new"}},
    {"copyFile onto a file",
     [](Store const& s) { s.copy(u"/out/file", u"/w/file", ReplaceExisting); },
     {"created /w/file"},
     {"created /w/file"}},
    {"copyFile of a link",
     [](Store const& s) { s.copy(u"/w/link", u"/w/deep/new"); },
     {},
     {"created /w/deep/new"}},
    {"setLastModified",
     [](Store const& s) { s->setLastModified(at(u"/w/file"), someTime); },
     {"attributes /w/file"},
     {"attributes /w/file"}},
    {"setLastModified through a link",
     [](Store const& s) { s->setLastModified(at(u"/w/link"), someTime); },
     {"attributes /w/file"},
     {"attributes /w/file"}},
    {"setLastModified of a folder",
     [](Store const& s) { s->setLastModified(at(u"/w/deep"), someTime); },
     {"attributes /w/deep/"},
     {"attributes /w/deep/"}},
    {"setLastModified of the watched folder",
     [](Store const& s) { s->setLastModified(at(u"/w"), someTime); },
     {"attributes /w/"},
     {"attributes /w/"}},
    {"setWritable",
     [](Store const& s) { s->setWritable(at(u"/w/deep/file"), false); },
     {},
     {"attributes /w/deep/file"}},
    {"setFolderAttributes",
     [](Store const& s) {
         s->setFolderAttributes(at(u"/w/deep"), {0700, std::nullopt, std::nullopt});
     },
     {"attributes /w/deep/"},
     {"attributes /w/deep/"}},
    {"openStream of nothing",
     [](Store const& s) { open(s, u"/w/new", true); },
     {"created /w/new"},
     {"created /w/new"}},
    {"openStream that truncates",
     [](Store const& s) { open(s, u"/w/file", true); },
     {"modified /w/file"},
     {"modified /w/file"}},
    {"openStream that truncates nothing",
     [](Store const& s) {
         s->createFile(at(u"/w/new"));
         open(s, u"/w/new", true);
     },
     {"created /w/new"},
     {"created /w/new"}},
    {"openStream that keeps the bytes", [](Store const& s) { open(s, u"/w/file", false); }, {}, {}},
    {"write",
     [](Store const& s) {
         auto const stream = open(s, u"/w/deep/file", false);
         stream->write("a", 1);
         stream->write("", 0);
         stream->write("b", 1);
         stream->close();
     },
     {},
     {"modified /w/deep/file", "modified /w/deep/file"}},
    {"write at the end, through a link",
     [](Store const& s) { open(s, u"/w/link", false, true)->write("a", 1); },
     {"modified /w/file"},
     {"modified /w/file"}},
    {"write to a file that was moved",
     [](Store const& s) {
         auto const stream = open(s, u"/out/file", false);
         s->moveFile(at(u"/out/file"), at(u"/w/new"), FailIfExists);
         stream->write("a", 1);
         s->moveFolder(at(u"/w"), at(u"/w2"), FailIfExists);
         stream->write("a", 1);
         s->moveFolder(at(u"/w2"), at(u"/out/w2"), FailIfExists);
         s->moveFile(at(u"/out/w2/new"), at(u"/back"), FailIfExists);
         s->createFolder(at(u"/w"));
         s->moveFile(at(u"/back"), at(u"/w/renamed"), FailIfExists);
         stream->write("a", 1);
     },
     {"created /w/new", "modified /w/new", "removed /w/", "created /w/", "created /w/renamed",
      "modified /w/renamed"},
     {"created /w/new", "modified /w/new", "removed /w/", "created /w/", "created /w/renamed",
      "modified /w/renamed"}},
    {"write to a file that was removed or replaced",
     [](Store const& s) {
         auto const first = open(s, u"/w/file", false);
         replace(s, u"/w/file");
         first->write("a", 1);
         auto const second = open(s, u"/w/file", false);
         s->removeFile(at(u"/w/file"));
         second->write("a", 1);
     },
     {"created /w/file", "removed /w/file"},
     {"created /w/file", "removed /w/file"}},
    {"openReplacement",
     [](Store const& s) { replace(s, u"/w/deep/new"); },
     {},
     {"created /w/deep/new"}},
    {"openReplacement that is not closed",
     [](Store const& s) { s->openReplacement(at(u"/w/file"), ReplaceExisting)->write("new", 3); },
     {},
     {}},
    {"what fails",
     [](Store const& s) {
         EXPECT_TRUE(failureOf([&] { s->createFile(at(u"/w/file")); }));
         EXPECT_TRUE(failureOf([&] { s->createFolder(at(u"/w/deep")); }));
         EXPECT_TRUE(failureOf([&] { s->removeFolder(at(u"/w/deep")); }));
         EXPECT_TRUE(failureOf([&] { s->removeFile(at(u"/w/none")); }));
         EXPECT_TRUE(failureOf([&] { s->moveFolder(at(u"/w"), at(u"/w/deep/w"), FailIfExists); }));
         EXPECT_TRUE(failureOf([&] { s.copy(u"/out/file", u"/w/file"); }));
         EXPECT_TRUE(failureOf([&] { s->setWritable(at(u"/w/none"), true); }));
     },
     {},
     {}},
    {"what happens elsewhere",
     [](Store const& s) {
         s->createFile(at(u"/ww"));
         s->createFile(at(u"/out/w"));
         s->createFolder(at(u"/w!"));
         s->createFile(at(u"/w!/file"));
         s->removeFolderRecursively(at(u"/out"));
     },
     {},
     {}},
    {"createFolderRecursive that fails on the way",
     [](Store const& s) {
         EXPECT_TRUE(failureOf([&] { s->createFolderRecursive(at(u"/w/file/x")); }));
         s->createFolder(at(u"/w/ro"));
         s->setWritable(at(u"/w/ro"), false);
         EXPECT_TRUE(failureOf([&] { s->createFolderRecursive(at(u"/w/ro/x")); }));
     },
     {"created /w/ro/", "attributes /w/ro/"},
     {"created /w/ro/", "attributes /w/ro/"}},
};

TEST(MemoryEventsOfOperations, SayWhatChanged) {
    for (Case const& each : cases) {
        SCOPED_TRACE(each.name);
        Store const store = tree();
        Log const flat = watchFolder(store, u"/w");
        Log const recursive = watchTree(store, u"/w");
        Log const fromRoot = watchTree(store, u"/");
        Log const none = watchTree(store, u"/w", {});
        each.operation(store);
        EXPECT_EQ(flat.take(), each.flat);
        EXPECT_EQ(recursive.take(), each.recursive);
        Lines const all = fromRoot.take();
        for (std::string const& line : each.recursive) {
            EXPECT_TRUE(std::any_of(all.begin(), all.end(), [&](std::string const& other) {
                return other.starts_with(line);
            })) << line;
        }
        EXPECT_EQ(none.take(), Lines());
    }
}

} // namespace
