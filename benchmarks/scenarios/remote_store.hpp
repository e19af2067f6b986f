#pragma once

#include <foundation/storage/provider/s3/s3_options.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>
#include <foundation/storage/vfs/storage_system/storage_system.hpp>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace bench {

/// The ways to the store.
enum class Way {
    Direct,
    Delayed, ///< over the delay line
    Counted, ///< over the proxy that counts requests
};

/// The bucket that is used. What is in it is left there: the store is a throw-away.
std::string bucketName();
std::string endpoint(Way way);
/// The value of a variable that with-servers sets. Throws std::runtime_error without it.
std::string told(char const* variable);

foundation::storage::provider::s3::S3Options storeOptions(Way way);
std::shared_ptr<foundation::storage::vfs::StorageSystem> makeStoreSystem(Way way);
foundation::storage::vfs::Folder
storeFolder(std::shared_ptr<foundation::storage::vfs::StorageSystem> const& system,
            std::string const& path);

/// Sets the variables by which the command and rclone find the store over the delay line; rclone
/// knows it as the remote "store".
void tellPrograms();

/// Puts objects into the bucket, by many connections and without a delay.
void putObjects(std::size_t count,
                std::function<std::pair<std::string, std::string>(std::size_t)> const& object);

/// Requests since the last time.
std::size_t takeRequestCount();

class Handle;

/// One connection that is asked for a range after the other.
class PlainConnection {
  public:
    explicit PlainConnection(std::string const& url);
    PlainConnection(PlainConnection const&) = delete;
    PlainConnection& operator=(PlainConnection const&) = delete;
    ~PlainConnection();

    /// Returns how many bytes came.
    std::size_t read(std::size_t offset, std::size_t count);

  private:
    std::string const url_;
    std::unique_ptr<Handle> const handle_;
};

} // namespace bench
