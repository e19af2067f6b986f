#include <foundation/storage/provider/s3/detail/object_time.hpp>

#include <charconv>
#include <cstdio>
#include <limits>

namespace foundation::storage::provider::s3::detail {

std::string timeText(Timestamp time) {
    // The fraction counts away from zero in the text, and upwards in the value.
    bool const isNegative = time.seconds < 0;
    if (isNegative && time.nanoseconds != 0) {
        ++time.seconds;
        time.nanoseconds = nanosecondsInASecond - time.nanoseconds;
    }
    std::string text = std::to_string(time.seconds);
    if (isNegative && time.seconds == 0) {
        text.insert(0, 1, '-');
    }
    if (time.nanoseconds != 0) {
        char fraction[16];
        std::snprintf(fraction, sizeof fraction, ".%09d", time.nanoseconds);
        text += fraction;
    }
    return text;
}

std::optional<Timestamp> parseTimeText(std::string_view text) {
    Timestamp time;
    char const* const end = text.data() + text.size();
    auto const [rest, error] = std::from_chars(text.data(), end, time.seconds);
    if (error != std::errc()) {
        return std::nullopt;
    }
    char const* at = rest;
    if (at != end) {
        if (*at != '.') {
            return std::nullopt;
        }
        int digits = 0;
        for (++at; at != end; ++at, ++digits) {
            if (*at < '0' || *at > '9') {
                return std::nullopt;
            }
            if (digits < 9) {
                time.nanoseconds = time.nanoseconds * 10 + (*at - '0');
            }
        }
        for (; digits < 9; ++digits) {
            time.nanoseconds *= 10;
        }
    }
    if (text.starts_with('-') && time.nanoseconds != 0) {
        if (time.seconds == std::numeric_limits<std::int64_t>::min()) {
            return std::nullopt;
        }
        --time.seconds;
        time.nanoseconds = nanosecondsInASecond - time.nanoseconds;
    }
    return time;
}

Timestamp timeOf(ObjectHead const& head) {
    if (auto const text = head.headers.find("x-amz-meta-" + std::string(timeField))) {
        if (auto const time = parseTimeText(*text)) {
            return *time;
        }
    }
    return {head.lastModified / nanosecondsInASecond, 0};
}

} // namespace foundation::storage::provider::s3::detail
