#include <foundation/storage/vfs/walking/folder_visitor.hpp>

#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/resources/file.hpp>

#include "walked_tree.hpp"

#include <boost/exception/diagnostic_information.hpp>
#include <boost/exception/info.hpp>

#include <gtest/gtest.h>

#include <sstream>
#include <type_traits>
#include <typeinfo>

namespace {

using namespace vfs_test;
using vfs::AbsoluteIRI;
using vfs::ErrorCode;
using vfs::Exception;
using vfs::File;
using vfs::FileEntry;
using vfs::Folder;
using vfs::FolderEntry;
using vfs::FolderVisitor;

using Note = boost::error_info<struct TagNote, std::string>;

class Detailed : public Exception {
  public:
    using Exception::Exception;
};

std::string printed(FolderVisitResult result) {
    std::ostringstream out;
    std::ostream& returned = out << result;
    EXPECT_EQ(&returned, &out);
    return out.str();
}

TEST(FolderVisitResult, PrintsItsName) {
    EXPECT_EQ(printed(FolderVisitResult::Continue), "FolderVisitResult::Continue");
    EXPECT_EQ(printed(FolderVisitResult::Skip), "FolderVisitResult::Skip");
    EXPECT_EQ(printed(FolderVisitResult::Stop), "FolderVisitResult::Stop");
    EXPECT_EQ(printed(static_cast<FolderVisitResult>(3)), "Unhandled FolderVisitResult");
    EXPECT_EQ(printed(static_cast<FolderVisitResult>(0xFFFFFFFF)), "Unhandled FolderVisitResult");
}

TEST(FolderVisitResult, IsHeldIn32BitsFromZero) {
    static_assert(sizeof(FolderVisitResult) == 4);
    static_assert(static_cast<std::uint32_t>(FolderVisitResult::Continue) == 0);
    static_assert(static_cast<std::uint32_t>(FolderVisitResult::Skip) == 1);
    static_assert(static_cast<std::uint32_t>(FolderVisitResult::Stop) == 2);
}

/// Handles alone, answering Skip.
class HandleVisitor : public FolderVisitor {
  public:
    FolderVisitResult visitBefore(Folder const& f) override { return note("before", f); }
    FolderVisitResult visit(File const& f) override { return note("file", f); }
    FolderVisitResult visitAfter(Folder const& f) override { return note("after", f); }
    FolderVisitResult visitFolderFailed(Folder const& f, Exception const& e) override {
        failure = &e;
        return note("failed", f);
    }

    Calls calls;
    Exception const* failure = nullptr;

  private:
    template<class Item>
    FolderVisitResult note(std::string const& call, Item const& item) {
        std::ostringstream out;
        out << call << ' ' << item;
        calls.push_back(out.str());
        return FolderVisitResult::Skip;
    }
};

class FolderVisitorTest : public WalkedTree {
  protected:
    FolderEntry folderEntry{at(), u"S"};
    FileEntry fileEntry{at(), u"a"};
};

class NoOverrides : public FolderVisitor {};
static_assert(std::is_default_constructible_v<FolderVisitor>);

TEST_F(FolderVisitorTest, WithoutOverridesGoesOn) {
    NoOverrides plain;
    EXPECT_EQ(plain.visitBefore(at()), FolderVisitResult::Continue);
    EXPECT_EQ(plain.visitEntryBefore(folderEntry), FolderVisitResult::Continue);
    EXPECT_EQ(plain.visit(File(at(), u"a")), FolderVisitResult::Continue);
    EXPECT_EQ(plain.visitEntry(fileEntry), FolderVisitResult::Continue);
    EXPECT_EQ(plain.visitAfter(at()), FolderVisitResult::Continue);
    EXPECT_EQ(plain.visitEntryAfter(folderEntry), FolderVisitResult::Continue);
}

TEST_F(FolderVisitorTest, EntriesGoOnAsHandlesWithTheAnswer) {
    HandleVisitor handles;
    Exception const failed = failure(ErrorCode::IOError);
    EXPECT_EQ(handles.visitEntryBefore(folderEntry), FolderVisitResult::Skip);
    EXPECT_EQ(handles.visitEntry(fileEntry), FolderVisitResult::Skip);
    EXPECT_EQ(handles.visitEntryAfter(folderEntry), FolderVisitResult::Skip);
    EXPECT_EQ(handles.visitFolderEntryFailed(folderEntry, failed), FolderVisitResult::Skip);
    EXPECT_EQ(handles.calls,
              (Calls{"before mem:/r/S", "file mem:/r/a", "after mem:/r/S", "failed mem:/r/S"}));
    EXPECT_EQ(handles.failure, &failed);
}

TEST_F(FolderVisitorTest, FailureIsThrownAsACopyCutDownToException) {
    NoOverrides plain;
    Detailed original(ErrorCode::IOError, AbsoluteIRI(u"mem:/named"));
    original << Note("why");
    auto const check = [&](auto call) {
        try {
            call();
            ADD_FAILURE() << "nothing was thrown";
        } catch (Exception const& thrown) {
            EXPECT_EQ(typeid(thrown), typeid(Exception));
            EXPECT_NE(&thrown, &original);
            EXPECT_EQ(thrown.getErrorCode(), ErrorCode::IOError);
            EXPECT_EQ(thrown.getLocation(), AbsoluteIRI(u"mem:/named"));
            ASSERT_NE(boost::get_error_info<Note>(thrown), nullptr);
            EXPECT_EQ(*boost::get_error_info<Note>(thrown), "why");
        }
    };
    check([&] { plain.visitFolderFailed(at(), original); });
    check([&] { plain.visitFolderEntryFailed(folderEntry, original); });
}

TEST_F(FolderVisitorTest, FailureIsNoRethrowOfTheExceptionInFlight) {
    NoOverrides plain;
    try {
        throw failure(ErrorCode::ResourceInUse);
    } catch (Exception const&) {
        EXPECT_EQ(codeOf([&] { plain.visitFolderFailed(at(), failure(ErrorCode::IOError)); }),
                  ErrorCode::IOError);
    }
}

TEST_F(FolderVisitorTest, HoldsNothingAndAsksForNothing) {
    static_assert(sizeof(FolderVisitor) == sizeof(void*));
    static_assert(!std::is_abstract_v<FolderVisitor>);
    static_assert(std::has_virtual_destructor_v<FolderVisitor>);
    NoOverrides plain;
    EXPECT_EQ(vfs::walkFolder(at(), plain), FolderVisitResult::Continue);
}

} // namespace
