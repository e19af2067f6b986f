#include <foundation/storage/provider/http/detail/entity_tag.hpp>

#include <algorithm>

namespace foundation::storage::provider::http::detail {

std::string strongTagOf(std::string_view told) {
    if (told.size() < 3 || told.front() != '"' || told.back() != '"') {
        return {};
    }
    std::string_view const inner = told.substr(1, told.size() - 2);
    bool const isSendable = std::all_of(inner.begin(), inner.end(), [](char c) {
        auto const byte = static_cast<unsigned char>(c);
        return byte > 0x20 && byte != '"' && byte != 0x7f;
    });
    return isSendable ? std::string(told) : std::string();
}

} // namespace foundation::storage::provider::http::detail
