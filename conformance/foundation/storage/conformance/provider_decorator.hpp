#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/conformance/operation.hpp>
#include <foundation/storage/provider/i_provider.hpp>

#include <memory>

namespace foundation::storage::conformance {

/// A provider that hands every operation to another one, and tells a derived class before. The
/// cursors of listings and the streams of files are wrapped, so that what is asked of them is told
/// too. A copy that the inner provider makes reads and writes by itself, and is one operation.
///
/// Made by decorate() (decorate.hpp), which adds the extensions that the inner provider has; so a
/// derived class has a protected constructor that takes the inner provider first, and is derived
/// from once more.
///
/// A copy to an item of the decorator goes to the inner provider as a copy to its own item, so that
/// what is native stays native. Safe on any number of threads as far as the inner provider and the
/// derived class are.
class FOUNDATION_EXPORT ProviderDecorator : public provider::IProvider,
                                            public std::enable_shared_from_this<ProviderDecorator> {
  public:
    ~ProviderDecorator() override;

    /// Whether decorate() adds an extension that the inner provider has; a derived class that keeps
    /// one back has a `handsOn` of its own.
    template<class Extension>
    static constexpr bool handsOn = true;

    std::shared_ptr<provider::IProvider> const& getInner() const noexcept { return inner_; }

    provider::ExistsResult exists(provider::StorageIRI const& location) const override;
    provider::ExtendedExistsResult
    existsExtended(provider::StorageIRI const& location) const override;
    bool fileExists(provider::StorageIRI const& location) const override;
    bool folderExists(provider::StorageIRI const& location) const override;

    bool hasFeature(provider::StorageIRI const& location,
                    provider::ExtendedFeature const& feature) const override;
    provider::StorageIRI getCanonicalLocation(provider::StorageIRI const& location) const override;
    provider::PathComparatorFunction
    getPathComparator(provider::StorageIRI const& location) const override;
    provider::FilenameSensitivity
    getFilenameSensitivity(provider::StorageIRI const& location) const override;

    provider::FileAttributes getFileAttributes(provider::StorageIRI const& location) const override;
    provider::FolderAttributes
    getFolderAttributes(provider::StorageIRI const& location) const override;
    provider::ExtendedAttributes
    getExtendedAttributes(provider::StorageIRI const& location) const override;
    void setLastModified(provider::StorageIRI const& location,
                         boost::posix_time::ptime const& time) override;
    void setWritable(provider::StorageIRI const& location, bool writable) override;

    void createFile(provider::StorageIRI const& location) override;
    void createFolder(provider::StorageIRI const& location) override;
    void createFolderRecursive(provider::StorageIRI const& location) override;
    void removeFile(provider::StorageIRI const& location) override;
    void removeFolder(provider::StorageIRI const& location) override;
    void removeFolderRecursively(provider::StorageIRI const& location) override;

    provider::CopyStatus copyFile(provider::StorageIRI const& source,
                                  provider::StorageItem const& destination,
                                  provider::CopyFileOptions const& options) override;
    void moveFile(provider::StorageIRI const& source, provider::StorageIRI const& destination,
                  provider::ReplacementPolicy const& policy) override;
    void moveFolder(provider::StorageIRI const& source, provider::StorageIRI const& destination,
                    provider::ReplacementPolicy const& policy) override;

    std::unique_ptr<provider::ByteStream>
    openStream(provider::StorageIRI const& location,
               provider::ByteStreamOpenOptions const& options) override;
    std::unique_ptr<provider::ByteStream>
    openReadOnlyStream(provider::StorageIRI const& location) const override;

    std::unique_ptr<provider::IFolderEntryIterator>
    listAll(provider::StorageIRI const& location, provider::ustring const& filter) const override;
    std::unique_ptr<provider::IFolderEntryIterator>
    listFiles(provider::StorageIRI const& location, provider::ustring const& filter) const override;
    std::unique_ptr<provider::IFolderEntryIterator>
    listFolders(provider::StorageIRI const& location,
                provider::ustring const& filter) const override;
    std::unique_ptr<provider::IFolderEntryIterator>
    listAllNamesOnly(provider::StorageIRI const& location,
                     provider::ustring const& filter) const override;
    std::unique_ptr<provider::IFolderEntryIterator>
    listFilesNamesOnly(provider::StorageIRI const& location,
                       provider::ustring const& filter) const override;
    std::unique_ptr<provider::IFolderEntryIterator>
    listFoldersNamesOnly(provider::StorageIRI const& location,
                         provider::ustring const& filter) const override;
    std::unique_ptr<provider::IFolderEntryIterator>
    listAllRecursive(provider::StorageIRI const& location,
                     provider::ustring const& filter) const override;
    std::unique_ptr<provider::IFolderEntryIterator>
    listAllRecursiveNamesOnly(provider::StorageIRI const& location,
                              provider::ustring const& filter) const override;

    void publishFileEvents(provider::StorageIRI const& location, provider::ChangeCallback callback,
                           provider::ChangeKinds const& kinds) override;
    void publishFolderEvents(provider::StorageIRI const& location,
                             provider::ChangeCallback callback, provider::ChangeKinds const& kinds,
                             provider::RecursiveFileWatching recursive) override;
    void stopPublishingFileEvents(provider::StorageIRI const& location) override;
    void stopPublishingFolderEvents(provider::StorageIRI const& location) override;

  protected:
    /// Throws std::invalid_argument where there is no inner provider.
    explicit ProviderDecorator(std::shared_ptr<provider::IProvider> inner);

    /// Called before each operation, on the thread that asks. What it throws reaches the caller,
    /// and the inner provider is not asked. The location is that of the operation, for a cursor
    /// the listed one, for a stream that of the file, for two locations the source; null for
    /// FlushFilesystem, which has none.
    ///
    /// What is thrown of a Write, or of a Close that is not of a replacement, poisons the stream.
    virtual void before(Operation operation, provider::StorageIRI const* location) const;

    /// One of the eight listings of a provider.
    using Listing = std::unique_ptr<provider::IFolderEntryIterator> (provider::IProvider::*)(
        provider::StorageIRI const&, provider::ustring const&) const;
    /// Called for each of the eight listings, behind before(); hands it to the inner provider. The
    /// cursor that this returns is the one that is wrapped.
    virtual std::unique_ptr<provider::IFolderEntryIterator>
    doList(Operation operation, Listing listing, provider::StorageIRI const& location,
           provider::ustring const& filter) const;

    /// Called for reads and writes of a stream, behind before(); hand them to the inner stream. A
    /// failure of doWrite() poisons the stream.
    virtual long doRead(provider::ByteStream& inner, char* buffer, long count) const;
    virtual long doWrite(provider::ByteStream& inner, char const* buffer, long count) const;

    /// A replacement is published by close(), which may be tried again.
    enum class StreamKind { Plain, Replacement };
    /// Wraps a stream of the inner provider; null stays null.
    std::unique_ptr<provider::ByteStream>
    decorateStream(provider::StorageIRI const& location,
                   std::unique_ptr<provider::ByteStream> inner, StreamKind kind) const;

  private:
    friend class DecoratedCursor;
    friend class DecoratedStream;

    std::unique_ptr<provider::IFolderEntryIterator> list(Operation operation, Listing listing,
                                                         provider::StorageIRI const& location,
                                                         provider::ustring const& filter) const;

    std::shared_ptr<provider::IProvider> const inner_;
};

} // namespace foundation::storage::conformance
