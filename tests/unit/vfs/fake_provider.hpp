#pragma once

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/extensions/i_flushable_filesystem.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/iri/absolute_iri.hpp>
#include <foundation/storage/vfs/storage_system/storage_system.hpp>
#include <foundation/storage/vfs/storage_system/storage_system_reference.hpp>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace vfs_test {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;
using provider::StorageIRI;

/// A provider whose answers a test sets, and which remembers what it was asked. What is not set is
/// the interface's default.
class FakeProvider : public provider::IProvider {
  public:
    using Progress = provider::CopyProgress;

    std::function<provider::ExistsResult(StorageIRI const&)> onExists;
    std::function<provider::ExtendedExistsResult(StorageIRI const&)> onExistsExtended;
    std::function<bool(StorageIRI const&)> onFileExists;
    std::function<bool(StorageIRI const&)> onFolderExists;
    std::function<bool(provider::ExtendedFeature)> onHasFeature;
    std::function<StorageIRI(StorageIRI const&)> onGetCanonicalLocation;
    std::function<provider::FileAttributes(StorageIRI const&)> onGetFileAttributes;
    std::function<provider::FolderAttributes(StorageIRI const&)> onGetFolderAttributes;
    std::function<void(StorageIRI const&, boost::posix_time::ptime const&)> onSetLastModified;
    std::function<void(StorageIRI const&, bool)> onSetWritable;
    std::function<void(StorageIRI const&)> onCreateFile;
    std::function<void(StorageIRI const&)> onCreateFolder;
    std::function<void(StorageIRI const&)> onRemoveFile;
    std::function<void(StorageIRI const&)> onRemoveFolder;
    std::function<void(StorageIRI const&)> onRemoveFolderRecursively;
    std::function<provider::CopyStatus(StorageIRI const&, provider::StorageItem const&,
                                       provider::CopyFileOptions const&)>
        onCopyFile;
    std::function<void(StorageIRI const&, StorageIRI const&, provider::ReplacementPolicy)>
        onMoveFile;
    std::function<std::unique_ptr<provider::ByteStream>(StorageIRI const&,
                                                        provider::ByteStreamOpenOptions const&)>
        onOpenStream;
    std::function<std::unique_ptr<provider::ByteStream>(StorageIRI const&)> onOpenReadOnlyStream;
    std::function<provider::PathComparatorFunction()> onGetPathComparator;

    /// The operations asked so far, in order: "copyFile", "setWritable true".
    std::vector<std::string> calls() const {
        std::lock_guard const lock(mutex_);
        return calls_;
    }

    provider::ExistsResult exists(StorageIRI const& location) const override {
        return answer("exists", onExists, provider::ExistsResult::Nothing, location);
    }
    provider::ExtendedExistsResult existsExtended(StorageIRI const& location) const override {
        note("existsExtended");
        return onExistsExtended ? onExistsExtended(location) : IProvider::existsExtended(location);
    }
    bool fileExists(StorageIRI const& location) const override {
        note("fileExists");
        return onFileExists ? onFileExists(location) : IProvider::fileExists(location);
    }
    bool folderExists(StorageIRI const& location) const override {
        note("folderExists");
        return onFolderExists ? onFolderExists(location) : IProvider::folderExists(location);
    }
    bool hasFeature(StorageIRI const&, provider::ExtendedFeature const& feature) const override {
        return answer("hasFeature", onHasFeature, false, feature);
    }
    StorageIRI getCanonicalLocation(StorageIRI const& location) const override {
        note("getCanonicalLocation");
        return onGetCanonicalLocation ? onGetCanonicalLocation(location)
                                      : IProvider::getCanonicalLocation(location);
    }
    provider::PathComparatorFunction getPathComparator(StorageIRI const& location) const override {
        return onGetPathComparator ? onGetPathComparator() : IProvider::getPathComparator(location);
    }
    provider::FileAttributes getFileAttributes(StorageIRI const& location) const override {
        note("getFileAttributes");
        return onGetFileAttributes ? onGetFileAttributes(location)
                                   : IProvider::getFileAttributes(location);
    }
    provider::FolderAttributes getFolderAttributes(StorageIRI const& location) const override {
        note("getFolderAttributes");
        return onGetFolderAttributes ? onGetFolderAttributes(location)
                                     : IProvider::getFolderAttributes(location);
    }
    void setLastModified(StorageIRI const& location,
                         boost::posix_time::ptime const& time) override {
        note("setLastModified");
        onSetLastModified ? onSetLastModified(location, time)
                          : IProvider::setLastModified(location, time);
    }
    void setWritable(StorageIRI const& location, bool writable) override {
        note(writable ? "setWritable true" : "setWritable false");
        onSetWritable ? onSetWritable(location, writable)
                      : IProvider::setWritable(location, writable);
    }
    void createFile(StorageIRI const& location) override {
        note("createFile");
        onCreateFile ? onCreateFile(location) : IProvider::createFile(location);
    }
    void createFolder(StorageIRI const& location) override {
        note("createFolder");
        onCreateFolder ? onCreateFolder(location) : IProvider::createFolder(location);
    }
    void removeFile(StorageIRI const& location) override {
        note("removeFile");
        onRemoveFile ? onRemoveFile(location) : IProvider::removeFile(location);
    }
    void removeFolder(StorageIRI const& location) override {
        note("removeFolder");
        onRemoveFolder ? onRemoveFolder(location) : IProvider::removeFolder(location);
    }
    void removeFolderRecursively(StorageIRI const& location) override {
        note("removeFolderRecursively");
        onRemoveFolderRecursively ? onRemoveFolderRecursively(location)
                                  : IProvider::removeFolderRecursively(location);
    }
    provider::CopyStatus copyFile(StorageIRI const& source,
                                  provider::StorageItem const& destination,
                                  provider::CopyFileOptions const& options) override {
        note("copyFile");
        return onCopyFile ? onCopyFile(source, destination, options)
                          : IProvider::copyFile(source, destination, options);
    }
    void moveFile(StorageIRI const& source, StorageIRI const& destination,
                  provider::ReplacementPolicy const& policy) override {
        note("moveFile");
        onMoveFile ? onMoveFile(source, destination, policy)
                   : IProvider::moveFile(source, destination, policy);
    }
    std::unique_ptr<provider::ByteStream>
    openStream(StorageIRI const& location,
               provider::ByteStreamOpenOptions const& options) override {
        note("openStream");
        return onOpenStream ? onOpenStream(location, options)
                            : IProvider::openStream(location, options);
    }
    std::unique_ptr<provider::ByteStream>
    openReadOnlyStream(StorageIRI const& location) const override {
        note("openReadOnlyStream");
        return onOpenReadOnlyStream ? onOpenReadOnlyStream(location)
                                    : IProvider::openReadOnlyStream(location);
    }

  private:
    void note(char const* call) const {
        std::lock_guard const lock(mutex_);
        calls_.emplace_back(call);
    }
    template<class Hook, class Default, class Argument>
    Default answer(char const* call, Hook const& hook, Default standard,
                   Argument const& argument) const {
        note(call);
        return hook ? hook(argument) : standard;
    }

    mutable std::mutex mutex_;
    mutable std::vector<std::string> calls_;
};

/// A system that serves every location with one provider.
class OneProviderSystem : public vfs::StorageSystem {
  public:
    explicit OneProviderSystem(std::shared_ptr<provider::IProvider> served)
        : served_(std::move(served)) {}
    std::shared_ptr<provider::IProvider> buildProvider(StorageIRI const&) const override {
        ++built;
        return served_;
    }
    mutable std::atomic<int> built = 0;

  private:
    std::shared_ptr<provider::IProvider> served_;
};

/// A fake provider behind a system, and what a test mostly needs of them.
struct FakeStorage {
    std::shared_ptr<FakeProvider> fake = std::make_shared<FakeProvider>();
    std::shared_ptr<OneProviderSystem> system = std::make_shared<OneProviderSystem>(fake);
    vfs::StorageSystemReference reference{std::weak_ptr<vfs::StorageSystem>(system)};
};

[[noreturn]] inline void fail(std::uint32_t code, StorageIRI const& location) {
    throw provider::Exception(static_cast<provider::ErrorCode>(code), location);
}

/// The code of the vfs::Exception that an operation throws; any other outcome fails the test.
template<class Operation>
vfs::ErrorCode codeOf(Operation operation) {
    try {
        operation();
    } catch (vfs::Exception const& e) {
        return e.getErrorCode();
    }
    throw std::logic_error("nothing was thrown");
}

} // namespace vfs_test
