#pragma once

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/extensions/i_flushable_filesystem.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <foundation/storage/conformance/operation.hpp>

#include <boost/property_tree/ptree.hpp>

#include <memory>
#include <vector>

namespace conformance_test {

using namespace foundation::storage::conformance;
using namespace foundation::storage::provider;

inline StorageIRI at(char16_t const* path) {
    return StorageIRI(std::u16string(u"fake:") + path);
}

/// A provider that does nothing but write down what it is asked.
class RecordingProvider : public IProvider {
  public:
    struct Call {
        Operation operation;
        StorageIRI location;
    };
    mutable std::vector<Call> calls;
    mutable ustring lastFilter;
    AttributeValues values;
    std::weak_ptr<IProvider> copiedTo;

    ExistsResult exists(StorageIRI const& location) const override {
        record(Operation::Exists, location);
        return ExistsResult::Folder;
    }
    ExtendedExistsResult existsExtended(StorageIRI const& location) const override {
        record(Operation::ExistsExtended, location);
        return ExtendedExistsResult::Other;
    }
    bool fileExists(StorageIRI const& location) const override {
        record(Operation::FileExists, location);
        return true;
    }
    bool folderExists(StorageIRI const& location) const override {
        record(Operation::FolderExists, location);
        return true;
    }
    bool hasFeature(StorageIRI const& location, ExtendedFeature const&) const override {
        record(Operation::HasFeature, location);
        return true;
    }
    StorageIRI getCanonicalLocation(StorageIRI const& location) const override {
        record(Operation::GetCanonicalLocation, location);
        return at(u"/canonical");
    }
    PathComparatorFunction getPathComparator(StorageIRI const& location) const override {
        record(Operation::GetPathComparator, location);
        return nullptr;
    }
    FilenameSensitivity getFilenameSensitivity(StorageIRI const& location) const override {
        record(Operation::GetFilenameSensitivity, location);
        return FilenameSensitivity::Insensitive;
    }
    FileAttributes getFileAttributes(StorageIRI const& location) const override {
        record(Operation::GetFileAttributes, location);
        return FileAttributes(values);
    }
    FolderAttributes getFolderAttributes(StorageIRI const& location) const override {
        record(Operation::GetFolderAttributes, location);
        return FolderAttributes(values);
    }
    ExtendedAttributes getExtendedAttributes(StorageIRI const& location) const override {
        record(Operation::GetExtendedAttributes, location);
        return {{"key", "value"}};
    }
    void setLastModified(StorageIRI const& location, boost::posix_time::ptime const&) override {
        record(Operation::SetLastModified, location);
    }
    void setWritable(StorageIRI const& location, bool) override {
        record(Operation::SetWritable, location);
    }
    void createFile(StorageIRI const& location) override {
        record(Operation::CreateFile, location);
    }
    void createFolder(StorageIRI const& location) override {
        record(Operation::CreateFolder, location);
    }
    void createFolderRecursive(StorageIRI const& location) override {
        record(Operation::CreateFolderRecursive, location);
    }
    void removeFile(StorageIRI const& location) override {
        record(Operation::RemoveFile, location);
    }
    void removeFolder(StorageIRI const& location) override {
        record(Operation::RemoveFolder, location);
    }
    void removeFolderRecursively(StorageIRI const& location) override {
        record(Operation::RemoveFolderRecursively, location);
    }
    CopyStatus copyFile(StorageIRI const& source, StorageItem const& destination,
                        CopyFileOptions const&) override {
        record(Operation::CopyFile, source);
        copiedTo = destination.getProvider();
        return CopyStatus::CopiedWithTimes;
    }
    void moveFile(StorageIRI const& source, StorageIRI const&, ReplacementPolicy const&) override {
        record(Operation::MoveFile, source);
    }
    void moveFolder(StorageIRI const& source, StorageIRI const&,
                    ReplacementPolicy const&) override {
        record(Operation::MoveFolder, source);
    }
    std::unique_ptr<ByteStream> openStream(StorageIRI const& location,
                                           ByteStreamOpenOptions const&) override {
        record(Operation::OpenStream, location);
        return nullptr;
    }
    std::unique_ptr<ByteStream> openReadOnlyStream(StorageIRI const& location) const override {
        record(Operation::OpenReadOnlyStream, location);
        return nullptr;
    }
    std::unique_ptr<IFolderEntryIterator> listAll(StorageIRI const& location,
                                                  ustring const& filter) const override {
        return list(Operation::ListAll, location, filter);
    }
    std::unique_ptr<IFolderEntryIterator> listFiles(StorageIRI const& location,
                                                    ustring const& filter) const override {
        return list(Operation::ListFiles, location, filter);
    }
    std::unique_ptr<IFolderEntryIterator> listFolders(StorageIRI const& location,
                                                      ustring const& filter) const override {
        return list(Operation::ListFolders, location, filter);
    }
    std::unique_ptr<IFolderEntryIterator> listAllNamesOnly(StorageIRI const& location,
                                                           ustring const& filter) const override {
        return list(Operation::ListAllNamesOnly, location, filter);
    }
    std::unique_ptr<IFolderEntryIterator> listFilesNamesOnly(StorageIRI const& location,
                                                             ustring const& filter) const override {
        return list(Operation::ListFilesNamesOnly, location, filter);
    }
    std::unique_ptr<IFolderEntryIterator>
    listFoldersNamesOnly(StorageIRI const& location, ustring const& filter) const override {
        return list(Operation::ListFoldersNamesOnly, location, filter);
    }
    std::unique_ptr<IFolderEntryIterator> listAllRecursive(StorageIRI const& location,
                                                           ustring const& filter) const override {
        return list(Operation::ListAllRecursive, location, filter);
    }
    std::unique_ptr<IFolderEntryIterator>
    listAllRecursiveNamesOnly(StorageIRI const& location, ustring const& filter) const override {
        return list(Operation::ListAllRecursiveNamesOnly, location, filter);
    }
    void publishFileEvents(StorageIRI const& location, ChangeCallback,
                           ChangeKinds const&) override {
        record(Operation::PublishFileEvents, location);
    }
    void publishFolderEvents(StorageIRI const& location, ChangeCallback, ChangeKinds const&,
                             RecursiveFileWatching) override {
        record(Operation::PublishFolderEvents, location);
    }
    void stopPublishingFileEvents(StorageIRI const& location) override {
        record(Operation::StopPublishingFileEvents, location);
    }
    void stopPublishingFolderEvents(StorageIRI const& location) override {
        record(Operation::StopPublishingFolderEvents, location);
    }

  protected:
    void record(Operation operation, StorageIRI const& location) const {
        calls.push_back({operation, location});
    }

  private:
    /// Has three entries, as far as anybody asks.
    class Cursor final : public IFolderEntryIterator {
      public:
        FolderEntry currentEntry() const override { return FolderEntry(u"entry", true); }
        bool hasNext() const override { return position_ < 3; }
        void advance() override { ++position_; }
        Cursor* cloneIterator() const override { return new Cursor(*this); }

      private:
        int position_ = 0;
    };

    std::unique_ptr<IFolderEntryIterator> list(Operation operation, StorageIRI const& location,
                                               ustring const& filter) const {
        record(operation, location);
        lastFilter = filter;
        return std::make_unique<Cursor>();
    }
};

} // namespace conformance_test
