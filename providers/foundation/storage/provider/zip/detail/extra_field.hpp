#pragma once

#include <foundation/storage/provider/zip/detail/little_endian.hpp>

#include <cstdint>
#include <string_view>

namespace foundation::storage::provider::zip::detail {

/// What is told of a member beside the fixed fields (APPNOTE 4.5, and Info-ZIP's own list).
enum class ExtraId : std::uint16_t {
    Zip64 = 0x0001,
    Ntfs = 0x000A,
    PkwareUnix = 0x000D,
    ExtendedTime = 0x5455,
    OldUnix = 0x5855,
    UnicodePath = 0x7075,
};

/// The content of the first extra field of this kind; empty where there is none, or what stands
/// there is cut short.
inline std::string_view extraField(std::string_view extra, ExtraId id) noexcept {
    while (extra.size() >= 4) {
        auto const* const at = reinterpret_cast<unsigned char const*>(extra.data());
        std::size_t const size = read16(at + 2);
        if (size > extra.size() - 4) {
            break;
        }
        if (read16(at) == static_cast<std::uint16_t>(id)) {
            return extra.substr(4, size);
        }
        extra.remove_prefix(4 + size);
    }
    return {};
}

} // namespace foundation::storage::provider::zip::detail
