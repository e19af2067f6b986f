#include "command_sweep.hpp"
#include "plain_request.hpp"
#include "whole_run.hpp"

#include "remote/server.hpp"

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <thread>

namespace remote_faults {
namespace {

using foundation::storage::provider::test::told;
using provider::ErrorCode;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Optional;

Target const* find(std::vector<Target> const& targets, std::string const& name) {
    auto const found = std::find_if(targets.begin(), targets.end(),
                                    [&](Target const& target) { return target.name == name; });
    return found == targets.end() ? nullptr : &*found;
}

std::string command() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path() / "vfs";
}

/// As scripts/faults does, with few faults at few places.
void expectNothingFound(std::string const& name) {
    std::vector<Target> const targets = allTargets();
    Target const* const target = find(targets, name);
    ASSERT_NE(target, nullptr);
    SweepResult result;
    std::vector<Wanted> const wanted{runAll(*target, Extent::Few, "", command(), result)};
    print(result, wanted);
    EXPECT_THAT(result.findings, IsEmpty());
    EXPECT_THAT(notInjected(result, wanted), IsEmpty());
}

class FaultsOnTheLine : public ::testing::Test {
  protected:
    void TearDown() override { closePlainConnections(); }
};

TEST_F(FaultsOnTheLine, FindNothingInTheReadingOfTheWeb) {
    VFS_NEEDS_SERVER("VFS_TEST_WEB_FAULT_URL");
    expectNothingFound("web");
}

TEST_F(FaultsOnTheLine, FindNothingInTheUseOfWebDav) {
    VFS_NEEDS_SERVER("VFS_TEST_DAV_FAULT_BASIC_URL");
    expectNothingFound("dav");
}

TEST_F(FaultsOnTheLine, FindNothingInTheUseOfAStore) {
    VFS_NEEDS_SERVER("VFS_TEST_S3_FAULT_ENDPOINT");
    expectNothingFound("s3");
}

// That the sweep sees what it looks for.

/// A line on which nothing is injected.
class SoundLine final : public FaultLine {
  public:
    explicit SoundLine(std::shared_ptr<FaultLine> line) : line_(std::move(line)) {}
    void set(Fault const&) override { line_->set({}); }
    FaultCounts clear() override { return line_->clear(); }

  private:
    std::shared_ptr<FaultLine> const line_;
};

TEST_F(FaultsOnTheLine, AreMissedWhereTheLineInjectsNone) {
    VFS_NEEDS_SERVER("VFS_TEST_WEB_FAULT_URL");
    std::vector<Target> targets = allTargets();
    auto* const target = const_cast<Target*>(find(targets, "web"));
    target->line = std::make_shared<SoundLine>(target->line);
    SweepResult result;
    std::vector<Wanted> wanted{runAll(*target, Extent::Few, "small read", command(), result)};
    EXPECT_THAT(notInjected(result, wanted),
                Contains("web: no fault took place of the kind \"503 twice\""));
    EXPECT_EQ(notInjected(result, wanted).size(), kindsOfLine(Extent::Few).size());
    wanted = {runAll(*target, Extent::Few, "commands", command(), result)};
    EXPECT_EQ(notInjected(result, wanted).size(), kindsOfCommands(Extent::Few).size());
}

TEST_F(FaultsOnTheLine, AreNotLookedForUnderANameThatNoOperationHas) {
    VFS_NEEDS_SERVER("VFS_TEST_WEB_FAULT_URL");
    SweepResult result;
    EXPECT_THROW(runAll(allTargets().front(), Extent::Few, "no such thing", command(), result),
                 std::runtime_error);
}

TEST_F(FaultsOnTheLine, MayLeaveMoreUploadsThanAPageOfTheStoreLists) {
    VFS_NEEDS_SERVER("VFS_TEST_S3_FAULT_ENDPOINT");
    std::string const bucket =
        told("VFS_TEST_S3_ENDPOINT") + '/' + told("VFS_TEST_S3_OPEN_BUCKET") + "/pages/";
    auto const targets = allTargets();
    std::set<std::string> keys;
    for (int i = 0; i < 51; ++i) {
        std::string const key = std::to_string(i);
        EXPECT_EQ(plainRequest("POST", bucket + key + "?uploads").status, 200);
        keys.insert("pages/" + key);
    }
    std::vector<std::string> const taken = find(targets, "s3")->side->takeUploads();
    EXPECT_EQ(std::set<std::string>(taken.begin(), taken.end()), keys);
    EXPECT_THAT(find(targets, "s3")->side->takeUploads(), IsEmpty());
}

TEST_F(FaultsOnTheLine, AreNotLookedForWhereUploadsCannotBeListed) {
    VFS_NEEDS_SERVER("VFS_TEST_S3_FAULT_ENDPOINT");
    // Not open to everybody, and none at all.
    for (std::string const& bucket : {told("VFS_TEST_S3_BUCKET"), std::string("no-such-bucket")}) {
        auto const side = makeBucketSide(told("VFS_TEST_S3_ENDPOINT"), bucket, "faults/");
        EXPECT_THROW(side->takeUploads(), std::runtime_error);
    }
}

// Operations with a defect each, so that it is known that the sweep can fail.

/// A folder that no server gives, and which is changed without one.
class Defects : public ::testing::Test {
  protected:
    /// Has uploads as a store has them.
    class Side final : public ServerSide {
      public:
        void put(std::string const& path, std::string const& content) override {
            files_[path] = content;
        }
        void remove(std::string const& path) override { files_.erase(path); }
        Files files(std::string const& folder) override {
            Files result;
            for (auto const& [path, content] : files_) {
                if (path.starts_with(folder)) {
                    result[path] = content;
                }
            }
            return result;
        }
        std::vector<std::string> takeUploads() override { return std::exchange(uploads, {}); }

        std::vector<std::string> uploads;

      private:
        Files files_;
    };

    void SetUp() override {
        VFS_NEEDS_SERVER("VFS_TEST_WEB_FAULT_URL");
        targets_ = allTargets();
        target_ = const_cast<Target*>(find(targets_, "web"));
        ASSERT_NE(target_, nullptr);
        target_->side = side_;
    }

    void TearDown() override { closePlainConnections(); }

    RunResult run(std::function<void()> const& defect) const {
        Scenario const scenario{"defective",
                                [defect](Stage const&) {
                                    defect();
                                    return std::optional<std::string>();
                                },
                                {{"work/file", "old"}},
                                {{"work/file", "new"}}};
        return runOnce(*target_, scenario, {"no fault", {}});
    }
    [[noreturn]] void fail(std::string const& what = "work") const {
        throw provider::ByteStreamReadFailure(what, ErrorCode::IOError);
    }

    std::shared_ptr<Side> const side_ = std::make_shared<Side>();
    std::vector<Target> targets_;
    Target* target_ = nullptr;
};

TEST_F(Defects, AreNotFoundWhereThereAreNone) {
    RunResult const result = run([&] { side_->put("work/file", "new"); });
    EXPECT_EQ(result.wrong, std::nullopt);
    EXPECT_EQ(result.failure, std::nullopt);
    EXPECT_EQ(run([&] { fail(); }).wrong, std::nullopt);
}

TEST_F(Defects, IncludeASuccessThatIsNone) {
    EXPECT_THAT(run([] {}).wrong, Optional(HasSubstr("work/file has other bytes")));
}

TEST_F(Defects, IncludeHalfAFile) {
    EXPECT_THAT(run([&] {
                    side_->put("work/file", "ne");
                    fail();
                }).wrong,
                Optional(HasSubstr("work/file is neither the old nor the new one")));
}

TEST_F(Defects, IncludeATemporaryFile) {
    EXPECT_THAT(run([&] {
                    side_->put("work/file.new", "new");
                    fail();
                }).wrong,
                Optional(HasSubstr("work/file.new is neither")));
}

TEST_F(Defects, IncludeAnExceptionThatIsNotPromised) {
    EXPECT_THAT(run([] { throw std::runtime_error("no type"); }).wrong,
                Optional(HasSubstr("not promised: no type")));
}

TEST_F(Defects, IncludeAnUploadThatIsLeft) {
    EXPECT_THAT(run([&] { side_->uploads.emplace_back("work/file"); }).leak,
                Optional(HasSubstr("work/file")));
}

TEST_F(Defects, IncludeASecretThatIsTold) {
    EXPECT_THAT(run([&] { fail("no entrance with " + target_->secrets.front()); }).canary,
                Optional(HasSubstr("no entrance")));
}

TEST_F(Defects, IncludeACallThatTakesTooLong) {
    EXPECT_THAT(
        run([&] { std::this_thread::sleep_for(operationTimeout + std::chrono::seconds(3)); }).hang,
        Optional(HasSubstr("takes")));
}

} // namespace
} // namespace remote_faults
