#pragma once

#include <foundation/storage/provider/container/selection.hpp>
#include <foundation/storage/provider/i_provider.hpp>

#include <memory>
#include <string>

namespace foundation::storage::provider::container {

/// A provider that has its directory in memory, and so makes all listings in one way.
class ArchiveProvider : public IProvider {
  public:
    std::unique_ptr<IFolderEntryIterator> listAll(StorageIRI const& location,
                                                  ustring const& filter) const final;
    std::unique_ptr<IFolderEntryIterator> listFiles(StorageIRI const& location,
                                                    ustring const& filter) const final;
    std::unique_ptr<IFolderEntryIterator> listFolders(StorageIRI const& location,
                                                      ustring const& filter) const final;
    std::unique_ptr<IFolderEntryIterator> listAllNamesOnly(StorageIRI const& location,
                                                           ustring const& filter) const final;
    std::unique_ptr<IFolderEntryIterator> listFilesNamesOnly(StorageIRI const& location,
                                                             ustring const& filter) const final;
    std::unique_ptr<IFolderEntryIterator> listFoldersNamesOnly(StorageIRI const& location,
                                                               ustring const& filter) const final;
    std::unique_ptr<IFolderEntryIterator> listAllRecursive(StorageIRI const& location,
                                                           ustring const& filter) const final;
    std::unique_ptr<IFolderEntryIterator>
    listAllRecursiveNamesOnly(StorageIRI const& location, ustring const& filter) const final;

  private:
    /// Throws provider::Exception with code ResourceNotFound where there is no such folder.
    virtual std::unique_ptr<IFolderEntryIterator> list(StorageIRI const& location,
                                                       Selection selection) const = 0;
};

/// Permission bits as an extended attribute has them, `0644` for example.
std::string octal(unsigned mode);

} // namespace foundation::storage::provider::container
