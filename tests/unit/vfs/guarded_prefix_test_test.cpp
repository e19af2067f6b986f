#include <foundation/storage/vfs/iri/detail/guarded_prefix_test.hpp>

#include "unit/log_collector.hpp"

#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

namespace logging = boost::log;
using foundation::storage::vfs::detail::guardedPrefixTest;

class GuardedPrefixTest : public testing::Test {
  protected:
    void SetUp() override { logging::core::get()->add_sink(sink_); }
    void TearDown() override {
        logging::core::get()->remove_sink(sink_);
        logging::core::get()->reset_filter();
    }

    boost::shared_ptr<LogCollector> collector_ = boost::make_shared<LogCollector>();
    boost::shared_ptr<logging::sinks::synchronous_sink<LogCollector>> sink_ =
        boost::make_shared<logging::sinks::synchronous_sink<LogCollector>>(collector_);
};

bool failing(std::u32string_view) {
    throw std::runtime_error("made to fail");
}

TEST_F(GuardedPrefixTest, FailureIsLoggedAndAnsweredWithFalse) {
    EXPECT_FALSE(guardedPrefixTest(U"ab:/", failing));

    ASSERT_EQ(collector_->records.size(), 1U);
    LogRecord const& record = collector_->records.front();
    EXPECT_EQ(record.channel, "foundation::storage::vfs");
    EXPECT_EQ(record.severity, 16);
    EXPECT_EQ(record.text.rfind("Exception caught: ", 0), 0U);
    EXPECT_NE(record.text.find("std::runtime_error"), std::string::npos);
    EXPECT_NE(record.text.find("made to fail"), std::string::npos);
}

TEST_F(GuardedPrefixTest, NothingIsWrittenWhereTheLevelIsDisabled) {
    logging::core::get()->set_filter(logging::expressions::attr<int>("Severity") != 16);
    EXPECT_FALSE(guardedPrefixTest(U"ab:/", failing));
    EXPECT_TRUE(collector_->records.empty());
}

TEST_F(GuardedPrefixTest, AnswersOfTheTestPassUnlogged) {
    EXPECT_TRUE(guardedPrefixTest(U"ab:/", [](std::u32string_view) { return true; }));
    EXPECT_FALSE(guardedPrefixTest(U"ab:/", [](std::u32string_view) { return false; }));
    EXPECT_TRUE(collector_->records.empty());
}

} // namespace
