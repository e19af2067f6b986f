#pragma once

#include <string>
#include <string_view>

namespace foundation::storage::provider::http::detail {

/// A strong entity tag (RFC 9110, section 8.8.3), as it goes into a condition; empty where `told`
/// is a weak one, or nothing that can be sent. It may come out of XML, where line ends are text.
std::string strongTagOf(std::string_view told);

} // namespace foundation::storage::provider::http::detail
