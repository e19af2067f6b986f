#pragma once

#include <string>

namespace remote_faults {

struct PlainAnswer {
    long status;
    std::string body;
};

/// Sends a request by libcurl alone, so that servers can be looked at without what is tested. On
/// any thread, which keeps its connections. Throws std::runtime_error without an answer.
PlainAnswer plainRequest(std::string const& method, std::string const& url,
                         std::string const& body = {});
/// Those of this thread.
void closePlainConnections();

} // namespace remote_faults
