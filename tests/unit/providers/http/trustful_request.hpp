#pragma once

#include <string>

namespace foundation::storage::provider::http::test {

/// The status that a client gets for a HEAD that takes any certificate; 0 where there is no answer.
/// So it is known that a server is there which others have refused.
long statusForTheTrustful(std::string const& url);

} // namespace foundation::storage::provider::http::test
