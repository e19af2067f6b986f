#include <foundation/storage/provider/zip/detail/dos_time.hpp>

#include <algorithm>
#include <ctime>

namespace foundation::storage::provider::zip::detail {

std::int64_t secondsOfDosTime(std::uint32_t time) noexcept {
    // The zone is asked once for an hour: members of one archive are of few hours, and asking takes
    // longer than everything else that is told of a member.
    struct Hour {
        std::uint32_t time = 0;
        std::int64_t seconds = 0;
        bool isKnown = false;
    };
    static thread_local Hour last;
    std::uint32_t const hour = time & ~std::uint32_t{0x7FF};
    if (!last.isKnown || last.time != hour) {
        std::tm fields{};
        fields.tm_year = static_cast<int>(time >> 25) + 80;
        fields.tm_mon = static_cast<int>(time >> 21 & 0xF) - 1;
        fields.tm_mday = static_cast<int>(time >> 16 & 0x1F);
        fields.tm_hour = static_cast<int>(time >> 11 & 0x1F);
        fields.tm_isdst = -1;
        last = {hour, std::mktime(&fields), true};
    }
    return last.seconds + (time >> 5 & 0x3F) * 60 + (time & 0x1F) * 2;
}

std::uint32_t dosTimeOfSeconds(std::int64_t seconds) noexcept {
    constexpr std::uint32_t first = 1U << 21 | 1U << 16; // 1980-01-01
    constexpr std::uint32_t last = 127U << 25 | 12U << 21 | 31U << 16 | 23U << 11 | 59U << 5 | 29U;
    std::time_t const time = seconds;
    std::tm fields{};
    if (::localtime_r(&time, &fields) == nullptr || fields.tm_year < 80) {
        return first;
    }
    if (fields.tm_year > 80 + 127) {
        return last;
    }
    return static_cast<std::uint32_t>(fields.tm_year - 80) << 25 |
           static_cast<std::uint32_t>(fields.tm_mon + 1) << 21 |
           static_cast<std::uint32_t>(fields.tm_mday) << 16 |
           static_cast<std::uint32_t>(fields.tm_hour) << 11 |
           static_cast<std::uint32_t>(fields.tm_min) << 5 |
           static_cast<std::uint32_t>(std::min(fields.tm_sec, 59)) / 2;
}

} // namespace foundation::storage::provider::zip::detail
