#include "iso_time.hpp"

#include <fmt/format.h>

#include <chrono>
#include <ctime>
#include <string_view>

namespace cli {

using foundation::storage::provider::Timestamp;

std::string isoTime(Timestamp time) {
    using namespace std::chrono;
    // The calendar type holds the years -32767 to 32767; a storage may name any moment.
    constexpr std::int64_t last = 11'000'000LL * 86400;
    if (time.seconds > last || time.seconds < -last) {
        return fmt::format("@{}.{:09}", time.seconds, time.nanoseconds);
    }
    std::int64_t const secondsOfDay = ((time.seconds % 86400) + 86400) % 86400;
    std::int64_t const dayNumber = (time.seconds - secondsOfDay) / 86400;
    year_month_day const day{sys_days{days{static_cast<int>(dayNumber)}}};
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:09}Z", static_cast<int>(day.year()),
                       static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()),
                       secondsOfDay / 3600, secondsOfDay / 60 % 60, secondsOfDay % 60,
                       time.nanoseconds);
}

std::string isoTimeToSecond(Timestamp time) {
    std::string text = isoTime(time);
    std::size_t const point = text.find('.');
    bool const calendar = text.ends_with('Z');
    text.resize(point);
    return calendar ? text + "Z" : text;
}

namespace {

// Takes numbers and marks off the front of a text.
class Reader {
  public:
    explicit Reader(std::string_view text) : rest_(text) {}

    bool done() const { return rest_.empty(); }
    bool take(char c) {
        if (rest_.empty() || rest_.front() != c) {
            return false;
        }
        rest_.remove_prefix(1);
        return true;
    }
    std::optional<int> number(std::size_t digits) {
        if (rest_.size() < digits ||
            rest_.substr(0, digits).find_first_not_of("0123456789") != std::string_view::npos) {
            return std::nullopt;
        }
        int value = 0;
        for (char const c : rest_.substr(0, digits)) {
            value = value * 10 + (c - '0');
        }
        rest_.remove_prefix(digits);
        return value;
    }
    // One to nine digits behind a decimal mark, as nanoseconds; further digits are dropped.
    std::optional<std::int32_t> fraction() {
        std::int32_t value = 0;
        int digits = 0;
        for (; !rest_.empty() && rest_.front() >= '0' && rest_.front() <= '9'; ++digits) {
            if (digits < 9) {
                value = value * 10 + (rest_.front() - '0');
            }
            rest_.remove_prefix(1);
        }
        if (digits == 0) {
            return std::nullopt;
        }
        for (; digits < 9; ++digits) {
            value *= 10;
        }
        return value;
    }

  private:
    std::string_view rest_;
};

struct TimeOfDay {
    int hour = 0;
    int minute = 0;
    int second = 0;
    std::int32_t nanoseconds = 0;
};

std::optional<TimeOfDay> readTimeOfDay(Reader& reader) {
    TimeOfDay time;
    std::optional<int> const hour = reader.number(2);
    std::optional<int> const minute = reader.take(':') ? reader.number(2) : std::nullopt;
    if (!hour || !minute || *hour > 23 || *minute > 59) {
        return std::nullopt;
    }
    time.hour = *hour;
    time.minute = *minute;
    if (!reader.take(':')) {
        return time;
    }
    std::optional<int> const second = reader.number(2);
    if (!second || *second > 59) {
        return std::nullopt;
    }
    time.second = *second;
    if (reader.take('.') || reader.take(',')) {
        std::optional<std::int32_t> const fraction = reader.fraction();
        if (!fraction) {
            return std::nullopt;
        }
        time.nanoseconds = *fraction;
    }
    return time;
}

// The seconds that local time is ahead of UTC; `Z` and numbers only.
std::optional<int> readOffset(Reader& reader) {
    if (reader.take('Z')) {
        return 0;
    }
    int const sign = reader.take('+') ? 1 : reader.take('-') ? -1 : 0;
    std::optional<int> const hours = sign != 0 ? reader.number(2) : std::nullopt;
    if (!hours) {
        return std::nullopt;
    }
    reader.take(':');
    int const minutes = reader.done() ? 0 : reader.number(2).value_or(60);
    if (*hours > 23 || minutes > 59) {
        return std::nullopt;
    }
    return sign * (*hours * 3600 + minutes * 60);
}

std::optional<std::int64_t> localSeconds(std::chrono::year_month_day day, TimeOfDay const& time) {
    std::tm parts{};
    parts.tm_year = static_cast<int>(day.year()) - 1900;
    parts.tm_mon = static_cast<int>(static_cast<unsigned>(day.month())) - 1;
    parts.tm_mday = static_cast<int>(static_cast<unsigned>(day.day()));
    parts.tm_hour = time.hour;
    parts.tm_min = time.minute;
    parts.tm_sec = time.second;
    parts.tm_isdst = -1;
    parts.tm_wday = -1; // stays so where the call fails; its result -1 is also a moment
    std::time_t const seconds = std::mktime(&parts);
    return parts.tm_wday < 0 ? std::nullopt : std::optional<std::int64_t>(seconds);
}

} // namespace

std::optional<Timestamp> parseIsoTime(std::string const& text) {
    using namespace std::chrono;
    Reader reader(text);
    std::optional<int> const y = reader.number(4);
    std::optional<int> const m = reader.take('-') ? reader.number(2) : std::nullopt;
    std::optional<int> const d = reader.take('-') ? reader.number(2) : std::nullopt;
    if (!y || !m || !d) {
        return std::nullopt;
    }
    year_month_day const date{year{*y}, month{static_cast<unsigned>(*m)},
                              day{static_cast<unsigned>(*d)}};
    if (!date.ok()) {
        return std::nullopt;
    }
    std::optional<TimeOfDay> time = TimeOfDay{};
    if (!reader.done()) {
        time = reader.take('T') || reader.take(' ') ? readTimeOfDay(reader) : std::nullopt;
    }
    if (!time) {
        return std::nullopt;
    }
    if (reader.done()) {
        std::optional<std::int64_t> const seconds = localSeconds(date, *time);
        return seconds ? std::optional(Timestamp{*seconds, time->nanoseconds}) : std::nullopt;
    }
    std::optional<int> const offset = readOffset(reader);
    if (!offset || !reader.done()) {
        return std::nullopt;
    }
    std::int64_t const midnight = sys_days{date}.time_since_epoch().count() * 86400LL;
    return Timestamp{midnight + time->hour * 3600 + time->minute * 60 + time->second - *offset,
                     time->nanoseconds};
}

} // namespace cli
