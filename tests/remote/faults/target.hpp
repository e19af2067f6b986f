#pragma once

#include "fault_line.hpp"
#include "server_side.hpp"

#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/storage_iri.hpp>
#include <foundation/storage/provider/web/web_options.hpp>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace remote_faults {

namespace provider = foundation::storage::provider;

/// Whom the server takes the provider for.
enum class Who { Known, Stranger };

/// A provider, its server and the faulty way between them.
struct Target {
    std::string name;
    provider::StorageIRI root; ///< a folder; ends in a slash
    /// A provider that has no connection and remembers nothing. A stall ends after `patience`.
    std::function<std::shared_ptr<provider::IProvider>(Who, std::chrono::milliseconds patience)>
        makeProvider;
    std::shared_ptr<ServerSide> side;
    std::shared_ptr<FaultLine> line;
    /// What must be in no text; also as it is sent.
    std::vector<std::string> secrets;
    /// The variables by which the command knows who asks; "netrc" is what is in that file.
    std::function<std::map<std::string, std::string>(Who)> environment;
    bool hasFolders = true;
    bool listsTrees = false; ///< has a recursive listing of its own
    bool movesFolders = false;
    bool hasUploads = false; ///< what is large is written in parts, which can be left behind
};

/// For what an operation may take as a whole; what takes much longer hangs.
inline constexpr std::chrono::milliseconds operationTimeout{5'000};
/// How often a provider sends a request.
inline constexpr unsigned attempts = 3;

/// For any of them.
provider::web::WebOptions webOptions(std::chrono::milliseconds patience);
std::string base64(std::string_view text);

/// Those whose servers run, as with-servers tells, and whose provider was built.
std::vector<Target> allTargets();

} // namespace remote_faults
