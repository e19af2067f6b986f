#include "storage_test.hpp"

#include <atomic>
#include <mutex>
#include <set>
#include <sstream>

namespace {

using namespace consumer;
using provider::ReplacementPolicy;
using vfs::AbsoluteIRI;
using vfs::ErrorCode;
using vfs::Exception;
using vfs::File;
using vfs::FileEntry;
using vfs::Folder;
using vfs::FolderEntry;
using vfs::FolderRemovalPolicy;
using vfs::FolderVisitor;
using vfs::FolderVisitResult;
using Calls = std::multiset<std::string>;

constexpr auto Continue = FolderVisitResult::Continue;
constexpr auto Skip = FolderVisitResult::Skip;
constexpr auto Stop = FolderVisitResult::Stop;

/// Notes what it is told, from any thread.
class Recorder : public FolderVisitor {
  public:
    FolderVisitResult visitBefore(Folder const& folder) override {
        return note("before ", folder.getName());
    }
    FolderVisitResult visit(File const& file) override { return note("", file.getName()); }
    FolderVisitResult visitAfter(Folder const& folder) override {
        return note("after ", folder.getName());
    }
    FolderVisitResult visitFolderFailed(Folder const& folder, Exception const&) override {
        return note("failed ", folder.getName());
    }

    Calls calls;

  private:
    FolderVisitResult note(std::string const& what, vfs::ustring const& name) {
        std::lock_guard const lock(mutex_);
        calls.insert(what + fl::i18n::toDisplayString(name));
        return Continue;
    }

    std::mutex mutex_;
};

/// The folder mem:/d with the file a and the folder e, which holds the file b.
class Walking : public StorageTest {
  protected:
    Walking() {
        folder(u"mem:/d/e").createFolderRecursive();
        fileWith(u"mem:/d/a", "a");
        fileWith(u"mem:/d/e/b", "b");
    }

    Folder const d = folder(u"mem:/d");
    Calls const whole{"before d", "a", "before e", "b", "after e", "after d"};
};

TEST_F(Walking, VisitorWithoutOverridesGoesOnAndLetsFailuresOut) {
    FolderVisitor visitor;
    FolderEntry const folderEntry(d);
    FileEntry const fileEntry(d, u"a");
    EXPECT_EQ(visitor.visitBefore(d), Continue);
    EXPECT_EQ(visitor.visitEntryBefore(folderEntry), Continue);
    EXPECT_EQ(visitor.visit(fileEntry.getFile()), Continue);
    EXPECT_EQ(visitor.visitEntry(fileEntry), Continue);
    EXPECT_EQ(visitor.visitAfter(d), Continue);
    EXPECT_EQ(visitor.visitEntryAfter(folderEntry), Continue);
    Exception const failure(ErrorCode::IOError, AbsoluteIRI(u"mem:/x"));
    EXPECT_EQ(codeOf([&] { visitor.visitFolderFailed(d, failure); }), ErrorCode::IOError);
    EXPECT_EQ(codeOf([&] { visitor.visitFolderEntryFailed(folderEntry, failure); }),
              ErrorCode::IOError);
}

TEST_F(Walking, ResultsPrint) {
    std::ostringstream out;
    out << Continue << ' ' << Skip << ' ' << Stop << ' ' << FolderVisitResult(3);
    EXPECT_EQ(out.str(), "FolderVisitResult::Continue FolderVisitResult::Skip "
                         "FolderVisitResult::Stop Unhandled FolderVisitResult");
}

TEST_F(Walking, SerialWalkVisitsEverything) {
    Recorder recorder;
    EXPECT_EQ(vfs::walkFolder(d, recorder), Continue);
    EXPECT_EQ(recorder.calls, whole);
}

TEST_F(Walking, ParallelWalkVisitsEverything) {
    Recorder recorder;
    EXPECT_EQ(vfs::walkFolderParallel(d, recorder), Continue);
    EXPECT_EQ(recorder.calls, whole);
}

TEST_F(Walking, ParallelWalkStopsWhereItIsTold) {
    Recorder recorder;
    std::atomic<int> asked = 0;
    EXPECT_EQ(vfs::walkFolderParallel(d, recorder, [&] { return ++asked > 0; }), Stop);
    EXPECT_EQ(recorder.calls, Calls());
    EXPECT_EQ(asked, 1);
}

TEST_F(Walking, FolderThatCannotBeListedIsAFailureOfTheVisitors) {
    class Unlistable : public provider::IProvider {
      public:
        provider::ExistsResult exists(provider::StorageIRI const&) const override {
            return provider::ExistsResult::Folder;
        }
    };
    Folder const unlistable(
        provider::StorageItem(std::make_shared<Unlistable>(), provider::StorageIRI(u"un:/d")),
        reference);
    Recorder recorder;
    EXPECT_EQ(vfs::walkFolder(unlistable, recorder), Continue);
    EXPECT_EQ(recorder.calls, (Calls{"before d", "failed d"}));
}

TEST_F(Walking, TreeIsCopied) {
    d.copyFolder(folder(u"mem:/copy"), ReplacementPolicy::FailIfExists);
    EXPECT_EQ(contentOf(file(u"mem:/copy/e/b")), "b");
    EXPECT_EQ(codeOf([&] { d.copyFolder(d, ReplacementPolicy::FailIfExists); }),
              ErrorCode::ResourceAlreadyExists);
    d.copyFolderInto(folder(u"mem:/copy"), ReplacementPolicy::FailIfExists);
    EXPECT_EQ(contentOf(file(u"mem:/copy/d/e/b")), "b");
}

TEST_F(Walking, TreeIsMoved) {
    d.moveFolder(folder(u"mem:/moved"), ReplacementPolicy::FailIfExists);
    EXPECT_FALSE(d.folderExists());
    EXPECT_EQ(contentOf(file(u"mem:/moved/e/b")), "b");
}

TEST_F(Walking, TreeIsRemovedWhereThePolicySaysSo) {
    EXPECT_EQ(codeOf([&] { d.removeFolder(FolderRemovalPolicy::NonRecursive); }),
              ErrorCode::FolderNotEmpty);
    d.removeFolder(FolderRemovalPolicy::Recursive);
    EXPECT_FALSE(d.folderExists());
    std::ostringstream out;
    out << FolderRemovalPolicy::NonRecursive << ' ' << FolderRemovalPolicy::Recursive
        << FolderRemovalPolicy(2);
    EXPECT_EQ(out.str(), "FolderRemovalPolicy::NonRecursive FolderRemovalPolicy::Recursive");
}

} // namespace
