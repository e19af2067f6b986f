#include <foundation/storage/provider/timestamp.hpp>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <stdexcept>

namespace foundation::storage::provider {

namespace {

using boost::gregorian::date;
using boost::posix_time::ptime;

ptime epoch() {
    return ptime(date(1970, 1, 1));
}

} // namespace

ptime toPtime(Timestamp time) {
    // Day 0 and the day after the last of the calendar; outside of it the date type throws.
    static std::int64_t const first = (date(1400, 1, 1) - date(1970, 1, 1)).days() * 86400LL;
    static std::int64_t const last =
        (date(9999, 12, 31) - date(1970, 1, 1)).days() * 86400LL + 86399;
    if (time.seconds < first) {
        return ptime(date(1400, 1, 1));
    }
    if (time.seconds > last) {
        return ptime(date(9999, 12, 31), boost::posix_time::time_duration(23, 59, 59, 999999));
    }
    return epoch() + boost::posix_time::seconds(time.seconds) +
           boost::posix_time::microseconds(time.nanoseconds / 1000);
}

Timestamp toTimestamp(ptime const& time) {
    if (time.is_special()) {
        throw std::invalid_argument("a point in time is needed, not a special value");
    }
    std::int64_t const micros = (time - epoch()).total_microseconds();
    std::int64_t seconds = micros / 1000000;
    std::int64_t rest = micros % 1000000;
    if (rest < 0) {
        --seconds;
        rest += 1000000;
    }
    return {seconds, static_cast<std::int32_t>(rest * 1000)};
}

} // namespace foundation::storage::provider
