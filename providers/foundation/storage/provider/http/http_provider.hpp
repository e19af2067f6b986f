#pragma once

#include <foundation/storage/provider/http/detail/description_memory.hpp>
#include <foundation/storage/provider/http/http_options.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/web/client.hpp>

#include <atomic>
#include <memory>

namespace foundation::storage::provider::http {

/// The files of one server, to be read. The web knows no folders: what the server answers for is a
/// file, also where its location ends in a slash. What is remembered between calls are open
/// connections, whether the server takes HEAD, and for a moment what it has told of a file.
///
/// Safe on any thread. Failures are provider::Exception; changes are refused with code
/// ReadOnlyProvider, listings with UnsupportedOperation.
class HttpProvider final : public IProvider {
  public:
    HttpProvider(StorageIRI const& location, HttpOptions const& options);

    ExistsResult exists(StorageIRI const& location) const override;

    FileAttributes getFileAttributes(StorageIRI const& location) const override;
    FolderAttributes getFolderAttributes(StorageIRI const& location) const override;
    ExtendedAttributes getExtendedAttributes(StorageIRI const& location) const override;
    void setLastModified(StorageIRI const& location, boost::posix_time::ptime const& time) override;
    void setWritable(StorageIRI const& location, bool writable) override;

    void createFile(StorageIRI const& location) override;
    void createFolder(StorageIRI const& location) override;
    void createFolderRecursive(StorageIRI const& location) override;
    void removeFile(StorageIRI const& location) override;
    void removeFolder(StorageIRI const& location) override;
    void removeFolderRecursively(StorageIRI const& location) override;
    CopyStatus copyFile(StorageIRI const& source, StorageItem const& destination,
                        CopyFileOptions const& options) override;
    void moveFile(StorageIRI const& source, StorageIRI const& destination,
                  ReplacementPolicy const& policy) override;
    void moveFolder(StorageIRI const& source, StorageIRI const& destination,
                    ReplacementPolicy const& policy) override;

    std::unique_ptr<ByteStream> openStream(StorageIRI const& location,
                                           ByteStreamOpenOptions const& options) override;
    std::unique_ptr<ByteStream> openReadOnlyStream(StorageIRI const& location) const override;

  private:
    using Description = detail::Description;

    web::Url urlOf(StorageIRI const& location) const;
    /// With a status of success, or of absence. Throws provider::Exception for every other.
    Description describe(StorageIRI const& location) const;
    Description ask(web::Url const& url) const;
    Description existing(StorageIRI const& location) const;

    StorageIRI const home_;
    HttpOptions const options_;
    std::shared_ptr<web::Client const> const client_;
    mutable std::atomic<bool> isHeadRefused_{false};
    mutable detail::DescriptionMemory known_;
};

} // namespace foundation::storage::provider::http
