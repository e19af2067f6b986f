#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace remote_faults {

/// Contents by paths. An empty folder, or the marker of one, is a path that ends in a slash.
using Files = std::map<std::string, std::string>;

/// What a server has in a folder, seen and changed past the provider and the faults. Paths are
/// below that folder.
class ServerSide {
  public:
    ServerSide() = default;
    ServerSide(ServerSide const&) = delete;
    ServerSide& operator=(ServerSide const&) = delete;
    virtual ~ServerSide() = default;

    virtual void put(std::string const& path, std::string const& content) = 0;
    virtual void remove(std::string const& path) = 0;
    /// All below a folder, which ends in a slash.
    virtual Files files(std::string const& folder) = 0;
    /// Uploads, anywhere on the server, that were begun and neither completed nor aborted; they are
    /// aborted.
    virtual std::vector<std::string> takeUploads() { return {}; }

    /// Makes the folder hold these and nothing else.
    void restore(std::string const& folder, Files const& wanted);
};

/// A folder of the disk that a server serves. Everybody may change what is made.
std::unique_ptr<ServerSide> makeFolderSide(std::string const& root);

/// A folder of a bucket that everybody may read and change without a signature; `prefix` ends in a
/// slash.
std::unique_ptr<ServerSide> makeBucketSide(std::string const& endpoint, std::string const& bucket,
                                           std::string const& prefix);

} // namespace remote_faults
