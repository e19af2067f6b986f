#include "plain_request.hpp"
#include "sweep.hpp"

#include "remote/server.hpp"

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <stdexcept>
#include <thread>

namespace remote_faults {
namespace {

using provider::ErrorCode;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Optional;

Target const* find(std::vector<Target> const& targets, std::string const& name) {
    auto const found = std::find_if(targets.begin(), targets.end(),
                                    [&](Target const& target) { return target.name == name; });
    return found == targets.end() ? nullptr : &*found;
}

/// As scripts/faults does, with few faults at few places.
void expectNothingFound(std::string const& name) {
    std::vector<Target> const targets = allTargets();
    Target const* const target = find(targets, name);
    ASSERT_NE(target, nullptr);
    prepare(*target);
    SweepResult result;
    for (Scenario const& scenario : scenariosOf(*target)) {
        sweep(*target, scenario, Extent::Few, result);
    }
    EXPECT_THAT(result.findings, IsEmpty());
    EXPECT_GT(result.sum().injected, 10U);
    EXPECT_EQ(result.kinds.size(), 8U) << "a kind of fault was not tried";
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
        return runOnce(*target_, scenario, {"none", {}});
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
