#pragma once

#include <foundation/export.hpp>
#include <foundation/msg_svc/eventmgr/fwd.hpp>
#include <foundation/storage/provider/http/http_options.hpp>
#include <foundation/storage/provider/local/local_options.hpp>
#include <foundation/storage/provider/memory/memory_options.hpp>
#include <foundation/storage/provider/s3/s3_options.hpp>
#include <foundation/storage/provider/tar/tar_options.hpp>
#include <foundation/storage/provider/zip/zip_options.hpp>

#include <boost/shared_ptr.hpp>

#include <memory>
#include <span>
#include <string_view>

namespace foundation::storage::vfs {
class PluggableStorageSystem;
}

namespace foundation::storage::provider::standard {

/// What a ready storage system is made with. A plain value.
struct StandardOptions {
    /// Where change events go; may be null.
    boost::shared_ptr<foundation::msg_svc::eventmgr::EventMgr> eventMgr;
    http::HttpOptions http;
    local::LocalOptions local;
    memory::MemoryOptions memory;
    s3::S3Options s3;
    tar::TarOptions tar;
    zip::ZipOptions zip;
};

/// A storage system with every provider of this build registered under its usual scheme; others may
/// be added before it is shared. Its files in memory are its own, and live as long as it does or an
/// item holds them.
FOUNDATION_EXPORT std::shared_ptr<vfs::PluggableStorageSystem>
makeStandardStorageSystem(StandardOptions const& options = {});

struct StandardProvider {
    std::string_view scheme;
    std::string_view description; ///< one line for people
    bool isContainer = false;     ///< its locations lie inside an item: `scheme:ITEM!/PATH`
    bool namesServers = false;    ///< its locations name a server: `scheme://HOST/PATH`
};

/// What makeStandardStorageSystem registers, in the order of the schemes.
FOUNDATION_EXPORT std::span<StandardProvider const> standardProviders() noexcept;

} // namespace foundation::storage::provider::standard
