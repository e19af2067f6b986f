#pragma once

#include "target.hpp"

#include "unit/providers/http/lying_server.hpp"

#include <memory>
#include <string>

namespace remote_faults {

using LyingServer = foundation::storage::provider::http::test::LyingServer;

/// The servers that lie, each in a process that runs as long as this object. Those that speak TLS
/// start when they are first asked for.
class LyingServers {
  public:
    LyingServer const& web(LyingServer::Tls tls);
    LyingServer const& store(LyingServer::Tls tls);

  private:
    std::map<LyingServer::Tls, std::unique_ptr<LyingServer>> web_;
    std::map<LyingServer::Tls, std::unique_ptr<LyingServer>> store_;
};

/// Where an operation meets a server that lies. `behaviour` is the first name of the path, or the
/// bucket, and says how it lies. Its line injects nothing, and counts the requests that have `met`
/// in their line of the server's log, or with TLS the connections.
///
/// Throws std::runtime_error where the server knows no such behaviour.
Target lyingWeb(LyingServer const& server, std::string const& name, std::string const& behaviour,
                std::string const& met, LyingServer::Tls tls);
#ifdef WITH_S3
Target lyingStore(LyingServer const& server, std::string const& behaviour, std::string const& met,
                  LyingServer::Tls tls);
#endif

/// Of an object, past all lies; nothing where there is none.
std::optional<std::string> objectOf(LyingServer const& store, std::string const& bucket,
                                    std::string const& key);
void putObject(LyingServer const& store, std::string const& bucket, std::string const& key,
               std::string const& bytes);

} // namespace remote_faults
