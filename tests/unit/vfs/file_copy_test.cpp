#include <foundation/storage/vfs/resources/file.hpp>

#include "fake_provider.hpp"

#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>

#include <gtest/gtest.h>

namespace {

using namespace vfs_test;
using provider::CopyFileOptions;
using provider::CopyStatus;
using provider::ReplacementPolicy;
using vfs::AbsoluteIRI;
using vfs::ErrorCode;
using vfs::File;
using Calls = std::vector<std::string>;
using Log = std::vector<std::string>;

boost::posix_time::ptime const someTime(boost::gregorian::date(2001, 2, 3));

/// Two schemes with a fake provider each; `mem` has two files.
class FileCopy : public testing::Test {
  protected:
    FileCopy() {
        for (auto const& fake : {mem, far}) {
            fake->onGetFileAttributes = [](StorageIRI const&) {
                provider::AttributeValues values;
                values.lastModified = provider::toTimestamp(someTime);
                return provider::FileAttributes(values);
            };
            fake->onSetLastModified = [](StorageIRI const&, auto const&) {};
            fake->onSetWritable = [](StorageIRI const&, bool) {};
            fake->onRemoveFile = [](StorageIRI const&) {};
        }
    }

    std::shared_ptr<vfs::PluggableStorageSystem> makeSystem() const {
        auto made = std::make_shared<vfs::PluggableStorageSystem>(nullptr);
        made->registerPhysicalProvider("mem", [this] { return mem; });
        made->registerPhysicalProvider("far", [this] { return far; });
        return made;
    }

    /// A copy that fails with each of the codes in turn, then succeeds with `status`.
    void copiesAfter(std::vector<std::uint32_t> codes, CopyStatus status) {
        mem->onCopyFile = [this, codes = std::move(codes), status,
                           next = 0UL](StorageIRI const&, provider::StorageItem const& to,
                                       CopyFileOptions const& options) mutable {
            policies.push_back(options.policy);
            if (next < codes.size()) {
                fail(codes[next++], to.getLocation());
            }
            return status;
        };
    }

    void movesAfter(std::vector<std::uint32_t> codes) {
        mem->onMoveFile = [this, codes = std::move(codes),
                           next = 0UL](StorageIRI const&, StorageIRI const& to,
                                       ReplacementPolicy policy) mutable {
            policies.push_back(policy);
            if (next < codes.size()) {
                fail(codes[next++], to);
            }
        };
    }

    std::shared_ptr<FakeProvider> mem = std::make_shared<FakeProvider>();
    std::shared_ptr<FakeProvider> far = std::make_shared<FakeProvider>();
    std::shared_ptr<vfs::PluggableStorageSystem> system = makeSystem();
    vfs::StorageSystemReference reference{std::weak_ptr<vfs::StorageSystem>(system)};
    File source{AbsoluteIRI(u"mem:/source"), reference};
    File destination{AbsoluteIRI(u"mem:/destination"), reference};
    File farAway{AbsoluteIRI(u"far:/away"), reference};
    std::vector<ReplacementPolicy> policies;
};

TEST_F(FileCopy, StatusOneNeedsNoFurtherStep) {
    copiesAfter({}, CopyStatus::CopiedWithTimes);
    EXPECT_EQ(source.copyFile(destination, CopyFileOptions{}), CopyStatus::CopiedWithTimes);
    EXPECT_EQ(mem->calls(), Calls{"copyFile"});
}

TEST_F(FileCopy, OtherStatusCarriesTheTimeOverWithinOneScheme) {
    copiesAfter({}, CopyStatus::Copied);
    EXPECT_EQ(source.copyFile(destination, CopyFileOptions{}), CopyStatus::Copied);
    EXPECT_EQ(mem->log(),
              (Log{"copyFile mem:/source mem:/destination 0", "getFileAttributes mem:/source",
                   "setLastModified mem:/destination " +
                       std::to_string(provider::toTimestamp(someTime).seconds)}));
}

TEST_F(FileCopy, LocationWithoutAPathLeavesTheCopyWithoutItsTime) {
    copiesAfter({}, CopyStatus::Copied);
    File const pathless(provider::StorageItem(mem, StorageIRI(u"mem://h")), reference);
    EXPECT_EQ(source.copyFile(pathless, CopyFileOptions{}), CopyStatus::Copied);
    EXPECT_EQ(mem->calls(), Calls{"copyFile"});
}

TEST_F(FileCopy, UnknownStatusIsGivenBack) {
    copiesAfter({}, static_cast<CopyStatus>(7));
    EXPECT_EQ(source.copyFile(destination, CopyFileOptions{}), static_cast<CopyStatus>(7));
}

TEST_F(FileCopy, BetweenSchemesTheTimeIsTheProvidersAffair) {
    copiesAfter({}, CopyStatus::Copied);
    source.copyFile(farAway, CopyFileOptions{});
    EXPECT_EQ(mem->calls(), Calls{"copyFile"});
    EXPECT_TRUE(far->calls().empty());
}

TEST_F(FileCopy, NothingThatFailsInTheTimestampStepLeavesTheCopy) {
    copiesAfter({}, CopyStatus::Copied);
    mem->onSetLastModified = [](StorageIRI const& l, auto const&) { fail(11, l); };
    EXPECT_EQ(source.copyFile(destination, CopyFileOptions{}), CopyStatus::Copied);
    mem->onGetFileAttributes = [](StorageIRI const&) -> provider::FileAttributes { throw 42; };
    EXPECT_EQ(source.copyFile(destination, CopyFileOptions{}), CopyStatus::Copied);
}

TEST_F(FileCopy, PolicyThreeReachesTheProviderAsOneAndTheOthersUnchanged) {
    copiesAfter({}, CopyStatus::CopiedWithTimes);
    movesAfter({});
    for (std::uint32_t const policy : {0U, 1U, 2U, 3U, 4U, 9U}) {
        policies.clear();
        auto const given = static_cast<ReplacementPolicy>(policy);
        auto const expected = policy == 3 ? ReplacementPolicy::ReplaceExisting : given;
        source.copyFile(destination, given);
        source.moveFile(destination, given);
        EXPECT_EQ(policies, (std::vector<ReplacementPolicy>{expected, expected})) << policy;
    }
}

TEST_F(FileCopy, CallableIsPassedOnAndTheRestIsEmpty) {
    bool called = false;
    CopyFileOptions options;
    options.policy = ReplacementPolicy::ReplaceAndDeferDenied;
    options.progress = [&](std::uint64_t, std::optional<std::uint64_t>) { return called = true; };
    mem->onCopyFile = [](auto const&, auto const&, CopyFileOptions const& given) {
        EXPECT_EQ(given.reserved, 0U);
        if (given.progress) {
            given.progress(1, 2);
        }
        return CopyStatus::CopiedWithTimes;
    };
    source.copyFile(destination, options);
    EXPECT_TRUE(called);
    EXPECT_EQ(options.policy, ReplacementPolicy::ReplaceAndDeferDenied) << "a private copy is used";
    source.copyFile(destination, ReplacementPolicy::ReplaceExisting);
}

TEST_F(FileCopy, ReadOnlyDestinationIsUnlockedAndLockedAgainAfterStatusOne) {
    copiesAfter({2}, CopyStatus::CopiedWithTimes);
    source.copyFile(destination, ReplacementPolicy::ReplaceReadOnly);
    EXPECT_EQ(
        mem->log(),
        (Log{"copyFile mem:/source mem:/destination 2", "setWritable true mem:/destination",
             "copyFile mem:/source mem:/destination 2", "setWritable false mem:/destination"}));
}

TEST_F(FileCopy, SecondAttemptHasTheOptionsOfTheFirst) {
    copiesAfter({2}, static_cast<CopyStatus>(7));
    CopyFileOptions options;
    options.policy = ReplacementPolicy::ReplaceReadOnly;
    options.progress = [](std::uint64_t, std::optional<std::uint64_t>) { return true; };
    EXPECT_EQ(source.copyFile(destination, options), static_cast<CopyStatus>(7));
    EXPECT_EQ(mem->log().at(2), "copyFile mem:/source mem:/destination 2 progress");

    copiesAfter({2}, CopyStatus::CopiedWithTimes);
    EXPECT_EQ(source.copyFile(destination, options), CopyStatus::CopiedWithTimes);
}

TEST_F(FileCopy, ReadOnlyDestinationStaysWritableAfterAnyOtherStatus) {
    copiesAfter({2}, CopyStatus::Copied);
    source.copyFile(destination, ReplacementPolicy::ReplaceReadOnly);
    EXPECT_EQ(mem->calls(), (Calls{"copyFile", "setWritable true", "copyFile", "getFileAttributes",
                                   "setLastModified"}));
}

TEST_F(FileCopy, FailureToLockAgainIsReported) {
    copiesAfter({2}, CopyStatus::CopiedWithTimes);
    mem->onSetWritable = [](StorageIRI const& l, bool writable) {
        if (!writable) {
            fail(9, l);
        }
    };
    EXPECT_EQ(codeOf([&] { source.copyFile(destination, ReplacementPolicy::ReplaceReadOnly); }),
              ErrorCode::IOError);
}

TEST_F(FileCopy, OtherPoliciesAndCodesUnlockNothing) {
    struct Case {
        ReplacementPolicy policy;
        std::uint32_t code;
        ErrorCode expected;
    };
    for (Case const& c :
         {Case{ReplacementPolicy::ReplaceExisting, 2, ErrorCode::PermissionDenied},
          Case{ReplacementPolicy::FailIfExists, 2, ErrorCode::PermissionDenied},
          Case{ReplacementPolicy::ReplaceAndDeferDenied, 2, ErrorCode::PermissionDenied},
          Case{ReplacementPolicy::ReplaceReadOnly, 3, ErrorCode::ResourceAlreadyExists},
          Case{ReplacementPolicy::ReplaceReadOnly, 7, ErrorCode::ReadOnlyProvider}}) {
        copiesAfter({c.code}, CopyStatus::Copied);
        EXPECT_EQ(codeOf([&] { source.copyFile(destination, c.policy); }), c.expected);
        movesAfter({c.code});
        EXPECT_EQ(codeOf([&] { source.moveFile(destination, c.policy); }), c.expected);
    }
    for (std::string const& call : mem->calls()) {
        EXPECT_TRUE(call == "copyFile" || call == "moveFile") << call;
    }
}

TEST_F(FileCopy, FirstFailureIsReportedWhereUnlockingFails) {
    copiesAfter({2}, CopyStatus::Copied);
    mem->onSetWritable = [](StorageIRI const&, bool) { throw 42; };
    try {
        source.copyFile(destination, ReplacementPolicy::ReplaceReadOnly);
        FAIL();
    } catch (vfs::Exception const& e) {
        EXPECT_EQ(e.getErrorCode(), ErrorCode::PermissionDenied);
        EXPECT_EQ(e.getLocation(), AbsoluteIRI(u"mem:/destination"));
    }
    EXPECT_EQ(mem->calls(), (Calls{"copyFile", "setWritable true"}));

    copiesAfter({2}, CopyStatus::Copied);
    mem->onSetWritable = [](StorageIRI const& l, bool) { fail(9, l); };
    EXPECT_EQ(codeOf([&] { source.copyFile(destination, ReplacementPolicy::ReplaceReadOnly); }),
              ErrorCode::PermissionDenied);
}

TEST_F(FileCopy, SecondFailureOfTheCopyIsReportedAsItIs) {
    copiesAfter({2, 8}, CopyStatus::Copied);
    EXPECT_EQ(codeOf([&] { source.copyFile(destination, ReplacementPolicy::ReplaceReadOnly); }),
              ErrorCode::NoSpaceLeft);
}

TEST_F(FileCopy, OnlyProviderExceptionsAreHandled) {
    mem->onCopyFile = [](auto const&, auto const&, auto const&) -> CopyStatus {
        throw std::bad_alloc();
    };
    EXPECT_THROW(source.copyFile(destination, ReplacementPolicy::ReplaceReadOnly), std::bad_alloc);
    EXPECT_EQ(mem->calls(), Calls{"copyFile"});
}

using FileMove = FileCopy;

TEST_F(FileMove, WithinASchemeIsTheProviders) {
    movesAfter({});
    source.moveFile(destination, ReplacementPolicy::FailIfExists);
    EXPECT_EQ(mem->log(), Log{"moveFile mem:/source mem:/destination 0"});
}

TEST_F(FileMove, BetweenSchemesCopiesAndRemoves) {
    copiesAfter({}, CopyStatus::Copied);
    source.moveFile(farAway, ReplacementPolicy::ReplaceAndDeferDenied);
    EXPECT_EQ(mem->log(), (Log{"copyFile mem:/source far:/away 1", "removeFile mem:/source"}));
}

TEST_F(FileMove, ThatTheProviderDoesNotSupportCopiesAndRemoves) {
    copiesAfter({}, CopyStatus::CopiedWithTimes);
    movesAfter({11});
    source.moveFile(destination, ReplacementPolicy::ReplaceExisting);
    EXPECT_EQ(mem->log(),
              (Log{"moveFile mem:/source mem:/destination 1",
                   "copyFile mem:/source mem:/destination 1", "removeFile mem:/source"}));
}

TEST_F(FileMove, FailedCopyRemovesNothing) {
    copiesAfter({8}, CopyStatus::Copied);
    EXPECT_EQ(codeOf([&] { source.moveFile(farAway, ReplacementPolicy::ReplaceExisting); }),
              ErrorCode::NoSpaceLeft);
    EXPECT_EQ(mem->calls(), Calls{"copyFile"});
}

TEST_F(FileMove, FailedRemovalLeavesTheCopyAndIsReported) {
    copiesAfter({}, CopyStatus::CopiedWithTimes);
    mem->onRemoveFile = [](StorageIRI const& l) { fail(2, l); };
    try {
        source.moveFile(farAway, ReplacementPolicy::ReplaceExisting);
        FAIL();
    } catch (vfs::Exception const& e) {
        EXPECT_EQ(e.getErrorCode(), ErrorCode::PermissionDenied);
        EXPECT_EQ(e.getLocation(), AbsoluteIRI(u"mem:/source"));
    }
    EXPECT_EQ(mem->calls(), (Calls{"copyFile", "removeFile"}));
}

TEST_F(FileMove, ReadOnlyDestinationIsUnlockedAndStaysSo) {
    movesAfter({2});
    source.moveFile(destination, ReplacementPolicy::ReplaceReadOnly);
    EXPECT_EQ(mem->log(),
              (Log{"moveFile mem:/source mem:/destination 2", "setWritable true mem:/destination",
                   "moveFile mem:/source mem:/destination 2"}));
}

TEST_F(FileMove, MissingDestinationNeedsNoUnlocking) {
    movesAfter({2});
    mem->onSetWritable = [](StorageIRI const& l, bool) { fail(4, l); };
    source.moveFile(destination, ReplacementPolicy::ReplaceReadOnly);
    EXPECT_EQ(mem->calls(), (Calls{"moveFile", "setWritable true", "moveFile"}));
}

TEST_F(FileMove, FailureToUnlockReplacesTheFirstFailure) {
    movesAfter({2});
    mem->onSetWritable = [](StorageIRI const& l, bool) { fail(7, l); };
    EXPECT_EQ(codeOf([&] { source.moveFile(destination, ReplacementPolicy::ReplaceReadOnly); }),
              ErrorCode::ReadOnlyProvider);

    movesAfter({2});
    mem->onSetWritable = [](StorageIRI const&, bool) { throw std::bad_alloc(); };
    EXPECT_THROW(source.moveFile(destination, ReplacementPolicy::ReplaceReadOnly), std::bad_alloc);
}

TEST_F(FileMove, SecondFailureOfTheMoveIsReportedAsTheFirst) {
    movesAfter({2, 8});
    EXPECT_EQ(codeOf([&] { source.moveFile(destination, ReplacementPolicy::ReplaceReadOnly); }),
              ErrorCode::PermissionDenied);

    mem->onMoveFile = [attempts = 0](auto const&, StorageIRI const& to, auto) mutable {
        if (++attempts == 1) {
            fail(2, to);
        }
        throw std::bad_alloc();
    };
    EXPECT_EQ(codeOf([&] { source.moveFile(destination, ReplacementPolicy::ReplaceReadOnly); }),
              ErrorCode::PermissionDenied)
        << "whatever the second attempt throws";
}

} // namespace
