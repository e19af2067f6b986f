#include <foundation/storage/provider/s3/detail/encoding.hpp>

#include <foundation/storage/provider/web/encoding.hpp>

#include <algorithm>

namespace foundation::storage::provider::s3::detail {

std::string encoded(std::string_view bytes, Slash slash) {
    return web::percentEncoded(bytes, slash == Slash::Kept ? "-._~/" : "-._~");
}

std::optional<std::string> decoded(std::string_view text) {
    std::string withBlanks(text);
    std::replace(withBlanks.begin(), withBlanks.end(), '+', ' ');
    return web::percentDecoded(withBlanks);
}

} // namespace foundation::storage::provider::s3::detail
