#include <foundation/log/diagnostic_logger.hpp>

#include "unit/log_collector.hpp"

#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/make_shared.hpp>

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace {

namespace logging = boost::log;

class DiagnosticLogger : public testing::Test {
  protected:
    DiagnosticLogger() {
        logging::core::get()->add_sink(sink_);
        logging::core::get()->set_filter(logging::expressions::attr<int>("Severity") >= 10 &&
                                         logging::expressions::attr<std::string>("Channel") ==
                                             "a::name");
    }
    ~DiagnosticLogger() override {
        logging::core::get()->remove_sink(sink_);
        logging::core::get()->reset_filter();
    }

    std::vector<LogRecord> const& records() { return sink_->locked_backend()->records; }

    boost::shared_ptr<logging::sinks::synchronous_sink<LogCollector>> sink_ =
        boost::make_shared<logging::sinks::synchronous_sink<LogCollector>>();
    foundation::log::diagnostic_logger logger_{"a::name"};
};

} // namespace

TEST_F(DiagnosticLogger, WritesNameLevelAndText) {
    logger_.write(16, "Exception caught: \xC3\xA9");

    ASSERT_EQ(records().size(), 1U);
    EXPECT_EQ(records()[0].channel, "a::name");
    EXPECT_EQ(records()[0].severity, 16);
    EXPECT_EQ(records()[0].text, "Exception caught: \xC3\xA9");
}

TEST_F(DiagnosticLogger, IsEnabledWhereTheHostWantsTheRecord) {
    EXPECT_TRUE(logger_.isEnabled(16));
    EXPECT_TRUE(logger_.isEnabled(10));
    EXPECT_FALSE(logger_.isEnabled(9));
    EXPECT_FALSE(foundation::log::diagnostic_logger("another").isEnabled(16));
    EXPECT_TRUE(records().empty()) << "asking writes nothing";
}

TEST_F(DiagnosticLogger, DropsWhatTheHostDoesNotWant) {
    logger_.write(9, "too fine");
    foundation::log::diagnostic_logger("another").write(16, "elsewhere");

    EXPECT_TRUE(records().empty());
}

TEST_F(DiagnosticLogger, AnEmptyTextAndAHoleAreRecordsToo) {
    logger_.write(16, "");
    logger_.write(16, std::string_view("a\0b", 3));

    ASSERT_EQ(records().size(), 2U);
    EXPECT_EQ(records()[0].text, "");
    EXPECT_EQ(records()[1].text, std::string("a\0b", 3));
}

TEST_F(DiagnosticLogger, ManyThreadsWriteWholeRecords) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this] {
            for (int k = 0; k < 100; ++k) {
                logger_.write(16, "a text");
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    ASSERT_EQ(records().size(), 400U);
    for (auto const& record : records()) {
        EXPECT_EQ(record.text, "a text");
    }
}

TEST_F(DiagnosticLogger, KnowsItsName) {
    EXPECT_EQ(logger_.name(), "a::name");
}
