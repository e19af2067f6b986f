#pragma once

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/extensions/i_flushable_filesystem.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/iri/absolute_iri.hpp>
#include <foundation/storage/vfs/storage_system/storage_system.hpp>
#include <foundation/storage/vfs/storage_system/storage_system_reference.hpp>

#include <boost/property_tree/ptree.hpp>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
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
    std::function<void(StorageIRI const&, StorageIRI const&, provider::ReplacementPolicy)>
        onMoveFolder;
    std::function<std::unique_ptr<provider::ByteStream>(StorageIRI const&,
                                                        provider::ByteStreamOpenOptions const&)>
        onOpenStream;
    std::function<std::unique_ptr<provider::ByteStream>(StorageIRI const&)> onOpenReadOnlyStream;
    std::function<provider::PathComparatorFunction()> onGetPathComparator;
    std::function<provider::FilenameSensitivity()> onGetFilenameSensitivity;
    std::function<provider::ExtendedAttributes(StorageIRI const&)> onGetExtendedAttributes;
    std::function<void(StorageIRI const&)> onStopPublishing;
    /// Both publish operations; a file's has no answer to the last question.
    std::function<void(StorageIRI const&, provider::ChangeCallback, provider::ChangeKinds const&,
                       std::optional<provider::RecursiveFileWatching>)>
        onPublish;
    /// All eight list operations, told apart by their names: "listFilesNamesOnly".
    std::function<std::unique_ptr<provider::IFolderEntryIterator>(
        std::string const& operation, StorageIRI const&, fl::i18n::ustring const& filter)>
        onList;

    /// The operations asked so far, in order: "copyFile", "setWritable true".
    std::vector<std::string> calls() const {
        std::lock_guard const lock(mutex_);
        return calls_;
    }

    /// The same with what each was asked: "setWritable true mem:/a", "moveFile mem:/a mem:/b 1",
    /// "listAll mem:/a <*.txt>".
    std::vector<std::string> log() const {
        std::lock_guard const lock(mutex_);
        return log_;
    }

    provider::ExistsResult exists(StorageIRI const& location) const override {
        note("exists", text(location));
        return onExists ? onExists(location) : provider::ExistsResult::Nothing;
    }
    provider::ExtendedExistsResult existsExtended(StorageIRI const& location) const override {
        note("existsExtended", text(location));
        return onExistsExtended ? onExistsExtended(location) : IProvider::existsExtended(location);
    }
    bool fileExists(StorageIRI const& location) const override {
        note("fileExists", text(location));
        return onFileExists ? onFileExists(location) : IProvider::fileExists(location);
    }
    bool folderExists(StorageIRI const& location) const override {
        note("folderExists", text(location));
        return onFolderExists ? onFolderExists(location) : IProvider::folderExists(location);
    }
    bool hasFeature(StorageIRI const& location,
                    provider::ExtendedFeature const& feature) const override {
        note("hasFeature", text(location) + number(feature));
        return onHasFeature && onHasFeature(feature);
    }
    StorageIRI getCanonicalLocation(StorageIRI const& location) const override {
        note("getCanonicalLocation", text(location));
        return onGetCanonicalLocation ? onGetCanonicalLocation(location)
                                      : IProvider::getCanonicalLocation(location);
    }
    provider::PathComparatorFunction getPathComparator(StorageIRI const& location) const override {
        note("getPathComparator", text(location));
        return onGetPathComparator ? onGetPathComparator() : IProvider::getPathComparator(location);
    }
    provider::FilenameSensitivity
    getFilenameSensitivity(StorageIRI const& location) const override {
        note("getFilenameSensitivity", text(location));
        return onGetFilenameSensitivity ? onGetFilenameSensitivity()
                                        : IProvider::getFilenameSensitivity(location);
    }
    provider::FileAttributes getFileAttributes(StorageIRI const& location) const override {
        note("getFileAttributes", text(location));
        return onGetFileAttributes ? onGetFileAttributes(location)
                                   : IProvider::getFileAttributes(location);
    }
    provider::FolderAttributes getFolderAttributes(StorageIRI const& location) const override {
        note("getFolderAttributes", text(location));
        return onGetFolderAttributes ? onGetFolderAttributes(location)
                                     : IProvider::getFolderAttributes(location);
    }
    provider::ExtendedAttributes getExtendedAttributes(StorageIRI const& location) const override {
        note("getExtendedAttributes", text(location));
        return onGetExtendedAttributes ? onGetExtendedAttributes(location)
                                       : IProvider::getExtendedAttributes(location);
    }
    void setLastModified(StorageIRI const& location,
                         boost::posix_time::ptime const& time) override {
        note("setLastModified",
             text(location) + ' ' + std::to_string(provider::toTimestamp(time).seconds));
        onSetLastModified ? onSetLastModified(location, time)
                          : IProvider::setLastModified(location, time);
    }
    void setWritable(StorageIRI const& location, bool writable) override {
        note(writable ? "setWritable true" : "setWritable false", text(location));
        onSetWritable ? onSetWritable(location, writable)
                      : IProvider::setWritable(location, writable);
    }
    void createFile(StorageIRI const& location) override {
        note("createFile", text(location));
        onCreateFile ? onCreateFile(location) : IProvider::createFile(location);
    }
    void createFolder(StorageIRI const& location) override {
        note("createFolder", text(location));
        onCreateFolder ? onCreateFolder(location) : IProvider::createFolder(location);
    }
    void createFolderRecursive(StorageIRI const& location) override {
        note("createFolderRecursive", text(location));
        onCreateFolder ? onCreateFolder(location) : IProvider::createFolderRecursive(location);
    }
    void removeFile(StorageIRI const& location) override {
        note("removeFile", text(location));
        onRemoveFile ? onRemoveFile(location) : IProvider::removeFile(location);
    }
    void removeFolder(StorageIRI const& location) override {
        note("removeFolder", text(location));
        onRemoveFolder ? onRemoveFolder(location) : IProvider::removeFolder(location);
    }
    void removeFolderRecursively(StorageIRI const& location) override {
        note("removeFolderRecursively", text(location));
        onRemoveFolderRecursively ? onRemoveFolderRecursively(location)
                                  : IProvider::removeFolderRecursively(location);
    }
    provider::CopyStatus copyFile(StorageIRI const& source,
                                  provider::StorageItem const& destination,
                                  provider::CopyFileOptions const& options) override {
        note("copyFile", text(source) + ' ' + text(destination.getLocation()) +
                             number(options.policy) + (options.progress ? " progress" : ""));
        return onCopyFile ? onCopyFile(source, destination, options)
                          : IProvider::copyFile(source, destination, options);
    }
    void moveFile(StorageIRI const& source, StorageIRI const& destination,
                  provider::ReplacementPolicy const& policy) override {
        note("moveFile", text(source) + ' ' + text(destination) + number(policy));
        onMoveFile ? onMoveFile(source, destination, policy)
                   : IProvider::moveFile(source, destination, policy);
    }
    void moveFolder(StorageIRI const& source, StorageIRI const& destination,
                    provider::ReplacementPolicy const& policy) override {
        note("moveFolder", text(source) + ' ' + text(destination) + number(policy));
        onMoveFolder ? onMoveFolder(source, destination, policy)
                     : IProvider::moveFolder(source, destination, policy);
    }
    std::unique_ptr<provider::ByteStream>
    openStream(StorageIRI const& location,
               provider::ByteStreamOpenOptions const& options) override {
        note("openStream", text(location) + number(options.access) + number(options.creation) +
                               ' ' + std::to_string(options.withoutTruncate) + ' ' +
                               std::to_string(options.withoutAppend));
        return onOpenStream ? onOpenStream(location, options)
                            : IProvider::openStream(location, options);
    }
    std::unique_ptr<provider::ByteStream>
    openReadOnlyStream(StorageIRI const& location) const override {
        note("openReadOnlyStream", text(location));
        return onOpenReadOnlyStream ? onOpenReadOnlyStream(location)
                                    : IProvider::openReadOnlyStream(location);
    }
    std::unique_ptr<provider::IFolderEntryIterator>
    listAll(StorageIRI const& location, fl::i18n::ustring const& filter) const override {
        return list("listAll", location, filter);
    }
    std::unique_ptr<provider::IFolderEntryIterator>
    listFiles(StorageIRI const& location, fl::i18n::ustring const& filter) const override {
        return list("listFiles", location, filter);
    }
    std::unique_ptr<provider::IFolderEntryIterator>
    listFolders(StorageIRI const& location, fl::i18n::ustring const& filter) const override {
        return list("listFolders", location, filter);
    }
    std::unique_ptr<provider::IFolderEntryIterator>
    listAllNamesOnly(StorageIRI const& location, fl::i18n::ustring const& filter) const override {
        return list("listAllNamesOnly", location, filter);
    }
    std::unique_ptr<provider::IFolderEntryIterator>
    listFilesNamesOnly(StorageIRI const& location, fl::i18n::ustring const& filter) const override {
        return list("listFilesNamesOnly", location, filter);
    }
    std::unique_ptr<provider::IFolderEntryIterator>
    listFoldersNamesOnly(StorageIRI const& location,
                         fl::i18n::ustring const& filter) const override {
        return list("listFoldersNamesOnly", location, filter);
    }
    std::unique_ptr<provider::IFolderEntryIterator>
    listAllRecursive(StorageIRI const& location, fl::i18n::ustring const& filter) const override {
        return list("listAllRecursive", location, filter);
    }
    std::unique_ptr<provider::IFolderEntryIterator>
    listAllRecursiveNamesOnly(StorageIRI const& location,
                              fl::i18n::ustring const& filter) const override {
        return list("listAllRecursiveNamesOnly", location, filter);
    }
    void publishFileEvents(StorageIRI const& location, provider::ChangeCallback callback,
                           provider::ChangeKinds const& kinds) override {
        note("publishFileEvents", text(location));
        onPublish ? onPublish(location, std::move(callback), kinds, std::nullopt)
                  : IProvider::publishFileEvents(location, std::move(callback), kinds);
    }
    void publishFolderEvents(StorageIRI const& location, provider::ChangeCallback callback,
                             provider::ChangeKinds const& kinds,
                             provider::RecursiveFileWatching recursive) override {
        note("publishFolderEvents", text(location) + number(recursive));
        onPublish ? onPublish(location, std::move(callback), kinds, recursive)
                  : IProvider::publishFolderEvents(location, std::move(callback), kinds, recursive);
    }
    void stopPublishingFileEvents(StorageIRI const& location) override {
        note("stopPublishingFileEvents", text(location));
        onStopPublishing ? onStopPublishing(location)
                         : IProvider::stopPublishingFileEvents(location);
    }
    void stopPublishingFolderEvents(StorageIRI const& location) override {
        note("stopPublishingFolderEvents", text(location));
        onStopPublishing ? onStopPublishing(location)
                         : IProvider::stopPublishingFolderEvents(location);
    }

  private:
    static std::string text(StorageIRI const& location) {
        return fl::i18n::toDisplayString(location.toString());
    }
    template<class Enumeration>
    static std::string number(Enumeration value) {
        return ' ' + std::to_string(static_cast<std::uint32_t>(value));
    }
    void note(std::string const& call, std::string const& asked) const {
        std::lock_guard const lock(mutex_);
        calls_.push_back(call);
        log_.push_back(call + ' ' + asked);
    }

    std::unique_ptr<provider::IFolderEntryIterator> list(std::string const& operation,
                                                         StorageIRI const& location,
                                                         fl::i18n::ustring const& filter) const {
        note(operation, text(location) + " <" + fl::i18n::toDisplayString(filter) + '>');
        if (!onList) {
            throw provider::Exception(provider::ErrorCode::UnsupportedOperation, location);
        }
        return onList(operation, location, filter);
    }

    mutable std::mutex mutex_;
    mutable std::vector<std::string> calls_;
    mutable std::vector<std::string> log_;
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

/// What the system makes of a provider's code.
inline vfs::ErrorCode translatedCode(std::uint32_t code) {
    switch (code) {
    case 5:
        return vfs::ErrorCode::FileTooLarge;
    case 6:
        return vfs::ErrorCode::ResourceInUse;
    case 7:
        return vfs::ErrorCode::ReadOnlyProvider;
    default:
        return static_cast<vfs::ErrorCode>(code);
    }
}

/// The code of the provider::Exception that an operation lets through; any other outcome fails the
/// test.
template<class Operation>
std::uint32_t rawCodeOf(Operation operation) {
    try {
        operation();
    } catch (provider::Exception const& e) {
        return static_cast<std::uint32_t>(e.getErrorCode());
    }
    throw std::logic_error("nothing was thrown");
}

} // namespace vfs_test
