#include <foundation/storage/provider/timestamp.hpp>

#include <boost/date_time/posix_time/posix_time.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>

using boost::posix_time::ptime;
using boost::posix_time::time_from_string;
using foundation::storage::provider::Timestamp;
using foundation::storage::provider::toPtime;
using foundation::storage::provider::toTimestamp;

TEST(Timestamp, BecomesTheSameTimeRoundedDownToMicroseconds) {
    struct {
        Timestamp time;
        char const* text;
    } const cases[] = {
        {{0, 0}, "1970-01-01 00:00:00"},
        {{0, 999}, "1970-01-01 00:00:00"},
        {{0, 1000}, "1970-01-01 00:00:00.000001"},
        {{1, 999999999}, "1970-01-01 00:00:01.999999"},
        {{-1, 0}, "1969-12-31 23:59:59"},
        {{-1, 999999999}, "1969-12-31 23:59:59.999999"},
        {{1709164800, 0}, "2024-02-29 00:00:00"},
        {{4102444800, 5000}, "2100-01-01 00:00:00.000005"},
        {{-17987443200, 0}, "1400-01-01 00:00:00"},
        {{253402300799, 999999999}, "9999-12-31 23:59:59.999999"},
    };
    for (auto const& c : cases) {
        ptime const expected = time_from_string(c.text);
        EXPECT_EQ(toPtime(c.time), expected) << c.text;
        Timestamp const back = toTimestamp(expected);
        EXPECT_EQ(back.seconds, c.time.seconds) << c.text;
        EXPECT_EQ(back.nanoseconds, c.time.nanoseconds / 1000 * 1000) << c.text;
    }
}

TEST(Timestamp, OutsideTheCalendarBecomesTheNearestTime) {
    ptime const first = time_from_string("1400-01-01 00:00:00");
    ptime const last = time_from_string("9999-12-31 23:59:59.999999");

    EXPECT_EQ(toPtime({-17987443201, 999999999}), first);
    EXPECT_EQ(toPtime({std::numeric_limits<std::int64_t>::min(), 0}), first);
    EXPECT_EQ(toPtime({253402300800, 0}), last);
    EXPECT_EQ(toPtime({std::numeric_limits<std::int64_t>::max(), 999999999}), last);
}

TEST(Timestamp, SpecialValuesAreRefused) {
    using namespace boost::date_time;
    for (special_values const value : {not_a_date_time, pos_infin, neg_infin}) {
        EXPECT_THROW(toTimestamp(ptime(value)), std::invalid_argument);
    }
}

TEST(Timestamp, TimesBeforeTheEpochRoundDownToo) {
    Timestamp const time = toTimestamp(time_from_string("1969-12-31 23:59:59.250000"));

    EXPECT_EQ(time.seconds, -1);
    EXPECT_EQ(time.nanoseconds, 250000000);
}

TEST(Timestamp, OrdersByTime) {
    EXPECT_LT((Timestamp{-1, 999999999}), (Timestamp{0, 0}));
    EXPECT_LT((Timestamp{5, 1}), (Timestamp{5, 2}));
    EXPECT_EQ((Timestamp{5, 2}), (Timestamp{5, 2}));
}
