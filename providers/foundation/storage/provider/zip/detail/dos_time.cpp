#include <foundation/storage/provider/zip/detail/dos_time.hpp>

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

} // namespace foundation::storage::provider::zip::detail
