#include "storage_test.hpp"

#include <foundation/storage/provider/extensions/i_flushable_filesystem.hpp>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <functional>
#include <sstream>

namespace {

using namespace consumer;
using provider::ReplacementPolicy;
using vfs::AbsoluteIRI;
using vfs::CanonicalAbsoluteIRI;
using vfs::ErrorCode;
using vfs::File;
using vfs::FileOrFolder;
using vfs::Folder;
using vfs::FolderRemovalPolicy;

boost::posix_time::ptime const someTime(boost::gregorian::date(2020, 2, 3),
                                        boost::posix_time::hours(4));

class Resources : public StorageTest {};

TEST_F(Resources, FileIsMadeInFourWays) {
    File const byLocation(AbsoluteIRI(u"mem:/f"), reference);
    EXPECT_EQ(File(CanonicalAbsoluteIRI(u"mem:/f"), reference), byLocation);
    EXPECT_EQ(File(folder(u"mem:/"), u"f"), byLocation);
    EXPECT_EQ(File(provider::StorageItem(mem, provider::StorageIRI(u"mem:/f")), reference),
              byLocation);
}

TEST_F(Resources, FileTellsWhereItLies) {
    folder(u"mem:/a").createFolder();
    folder(u"mem:/b").createFolder();
    File const f = file(u"mem:/a/../b/f.txt");
    vfs::Resource const& resource = f;
    EXPECT_EQ(resource.getLocation(), f.getLocation());
    EXPECT_EQ(f.getLocation().toString(), u"mem:/a/../b/f.txt");
    EXPECT_EQ(f.getCanonicalLocation().toString(), u"mem:/b/f.txt");
    EXPECT_EQ(f.getName(), u"f.txt");
    EXPECT_EQ(f.getExtension(), u".txt");
    EXPECT_EQ(f.getParent().getLocation(), AbsoluteIRI(u"mem:/a/../b"));
    EXPECT_TRUE(f.getStorageSystem() == reference);
}

TEST_F(Resources, FileIsMadeAskedChangedAndRemoved) {
    File const f = file(u"mem:/f");
    EXPECT_FALSE(f.fileExists());
    f.createFile();
    EXPECT_TRUE(f.fileExists());
    f.setLastModified(someTime);
    f.setWritable(false);
    EXPECT_EQ(f.getAttributes().getLastModified(), someTime);
    EXPECT_FALSE(f.getAttributes().isWritable());
    EXPECT_NO_THROW(f.getExtendedAttributes());
    f.setWritable(true);
    f.removeFile();
    EXPECT_FALSE(f.fileExists());
    EXPECT_EQ(codeOf([&] { f.getAttributes(); }), ErrorCode::ResourceNotFound);
    EXPECT_EQ(codeOf([&] { f.getExtendedAttributes(); }), ErrorCode::ResourceNotFound);
}

TEST_F(Resources, FileIsOpened) {
    File const f = fileWith(u"mem:/f", "abc");
    char bytes[4] = {};
    EXPECT_EQ(f.openReadOnly().read(bytes, 3), 3);
    EXPECT_STREQ(bytes, "abc");
    provider::ByteStreamOpenOptions options;
    options.withoutTruncate = 1;
    auto const device = f.open(options);
    EXPECT_EQ(device.write("x", 1), 1);
    device.close();
    EXPECT_EQ(contentOf(f), "xbc");
}

TEST_F(Resources, FileIsCopiedAndMoved) {
    File const f = fileWith(u"mem:/f", "abc");
    File const g = file(u"mem:/g");
    f.copyFile(g, ReplacementPolicy::FailIfExists);
    EXPECT_EQ(contentOf(g), "abc");
    EXPECT_EQ(codeOf([&] { f.copyFile(g, ReplacementPolicy::FailIfExists); }),
              ErrorCode::ResourceAlreadyExists);
    bool isAsked = false;
    provider::CopyFileOptions options;
    options.policy = ReplacementPolicy::ReplaceExisting;
    options.progress = [&](std::uint64_t, std::optional<std::uint64_t>) { return isAsked = true; };
    provider::CopyStatus const status = f.copyFile(g, options);
    EXPECT_EQ(status, provider::CopyStatus::CopiedWithTimes);
    EXPECT_TRUE(isAsked);
    g.moveFile(file(u"mem:/h"), ReplacementPolicy::FailIfExists);
    EXPECT_FALSE(g.fileExists());
    EXPECT_EQ(contentOf(file(u"mem:/h")), "abc");
}

TEST_F(Resources, FilesAreComparedSwappedAndPrinted) {
    File a = file(u"mem:/a");
    File b = file(u"mem:/b");
    EXPECT_TRUE(a == file(u"mem:/a"));
    EXPECT_TRUE(a != b);
    EXPECT_TRUE(a < b);
    a.swap(b);
    EXPECT_TRUE(b < a);
    std::ostringstream out;
    out << a;
    EXPECT_EQ(out.str(), "mem:/b");
}

TEST_F(Resources, FolderIsMadeInFourWays) {
    Folder const byLocation(AbsoluteIRI(u"mem:/d"), reference);
    EXPECT_EQ(Folder(CanonicalAbsoluteIRI(u"mem:/d"), reference), byLocation);
    EXPECT_EQ(Folder(folder(u"mem:/"), u"d"), byLocation);
    EXPECT_EQ(Folder(provider::StorageItem(mem, provider::StorageIRI(u"mem:/d")), reference),
              byLocation);
}

TEST_F(Resources, FolderTellsWhereItLies) {
    folder(u"mem:/a").createFolder();
    Folder const d = folder(u"mem:/a/../d");
    EXPECT_EQ(d.getLocation().toString(), u"mem:/a/../d");
    EXPECT_EQ(d.getCanonicalLocation().toString(), u"mem:/d");
    EXPECT_EQ(d.getName(), u"d");
    EXPECT_TRUE(d.hasParent());
    EXPECT_FALSE(folder(u"mem:/").hasParent());
    EXPECT_EQ(d.getParent().getLocation(), AbsoluteIRI(u"mem:/a/.."));
    EXPECT_TRUE(d.getStorageSystem() == reference);
}

TEST_F(Resources, FolderIsMadeAskedChangedAndRemoved) {
    Folder const d = folder(u"mem:/d");
    EXPECT_FALSE(d.folderExists());
    d.createFolder();
    EXPECT_TRUE(d.folderExists());
    EXPECT_EQ(codeOf([&] { folder(u"mem:/x/y").createFolder(); }), ErrorCode::ResourceNotFound);
    folder(u"mem:/x/y").createFolderRecursive();
    EXPECT_TRUE(folder(u"mem:/x/y").folderExists());
    d.setLastModified(someTime);
    d.setWritable(false);
    EXPECT_EQ(d.getAttributes().getLastModified(), someTime);
    EXPECT_FALSE(d.getAttributes().isWritable());
    d.setWritable(true);
    EXPECT_NO_THROW(d.getExtendedAttributes());
    d.removeFolder(FolderRemovalPolicy::NonRecursive);
    EXPECT_FALSE(d.folderExists());
    EXPECT_EQ(codeOf([&] { d.getExtendedAttributes(); }), ErrorCode::ResourceNotFound);
}

/// A provider that counts how often it is flushed.
class Flushable : public provider::IProvider, public provider::extensions::IFlushableFilesystem {
  public:
    provider::ExistsResult exists(provider::StorageIRI const&) const override {
        return provider::ExistsResult::Folder;
    }
    void flushFilesystem() override { ++flushed; }

    int flushed = 0;
};

TEST_F(Resources, StorageIsFlushedThroughTheFolderAndByLocation) {
    auto const held = std::make_shared<Flushable>();
    system->registerPhysicalProvider("held", [held] { return held; });
    folder(u"held:/").flushFilesystem();
    EXPECT_EQ(held->flushed, 1);
    vfs::extensions::flushFilesystem(AbsoluteIRI(u"held:/"), reference);
    EXPECT_EQ(held->flushed, 2);
    EXPECT_NO_THROW(vfs::extensions::flushFilesystem(AbsoluteIRI(u"mem:/"), reference));
}

TEST_F(Resources, FoldersAreComparedSwappedAndPrinted) {
    Folder a = folder(u"mem:/a");
    Folder b = folder(u"mem:/b");
    EXPECT_TRUE(a == folder(u"mem:/a"));
    EXPECT_TRUE(a != b);
    EXPECT_TRUE(a < b);
    a.swap(b);
    EXPECT_TRUE(b < a);
    std::ostringstream out;
    out << a;
    EXPECT_EQ(out.str(), "mem:/b");
}

TEST_F(Resources, FolderTellsHowItsStorageComparesNames) {
    Folder const root = folder(u"mem:/");
    EXPECT_EQ(root.getFilenameSensitivity(), provider::FilenameSensitivity::Sensitive);
    vfs::PathComparator const isSame = root.getPathComparator();
    EXPECT_FALSE(isSame(u"a", u"A", provider::CaseModifier::AsStorage));
    EXPECT_TRUE(isSame(u"a", u"A", provider::CaseModifier::Insensitive));
    vfs::PathComparator const own(
        [](vfs::ustring const&, vfs::ustring const&, provider::CaseModifier) { return true; });
    EXPECT_TRUE(own(u"a", u"b", provider::CaseModifier::Sensitive));
    EXPECT_THROW(vfs::PathComparator(nullptr)(u"a", u"a", provider::CaseModifier::Sensitive),
                 std::bad_function_call);
}

TEST_F(Resources, FreeFunctionsServeFilesAndFoldersAlike) {
    File const f = fileWith(u"mem:/f", "abc");
    Folder const d = folder(u"mem:/d");
    d.createFolder();
    f.setLastModified(someTime);
    d.setLastModified(someTime);
    for (FileOrFolder const& item : {FileOrFolder(f), FileOrFolder(d)}) {
        vfs::ustring const name = item.which() == 0 ? u"f" : u"d";
        EXPECT_EQ(getName(item), name);
        EXPECT_EQ(getLocation(item).toString(), u"mem:/" + name);
        EXPECT_EQ(getCanonicalLocation(item).toString(), u"mem:/" + name);
        EXPECT_TRUE(exists(item));
        EXPECT_TRUE(hasParent(item));
        EXPECT_EQ(getParent(item).getLocation(), AbsoluteIRI(u"mem:/"));
        EXPECT_EQ(getLastModified(item), someTime);
        EXPECT_TRUE(isWritable(item));
        EXPECT_TRUE(getStorageSystem(item) == reference);
    }
    EXPECT_FALSE(exists(FileOrFolder(file(u"mem:/no"))));
    EXPECT_FALSE(hasParent(FileOrFolder(folder(u"mem:/"))));
}

} // namespace
