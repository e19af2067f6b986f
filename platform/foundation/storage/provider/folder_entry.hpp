#pragma once

#include <fl/i18n/ustring.hpp>
#include <foundation/export.hpp>
#include <foundation/storage/provider/attributes.hpp>

#include <boost/optional/optional.hpp>

#include <utility>

namespace foundation::storage::provider {

/// One result of a listing. The attributes are empty where the listing was one of names only, or
/// the item vanished before they were read.
class FOUNDATION_EXPORT FolderEntry {
  public:
    FolderEntry(fl::i18n::ustring name, bool isFile) : name_(std::move(name)), isFile_(isFile) {}
    FolderEntry(fl::i18n::ustring name, FileAttributes const& attributes)
        : name_(std::move(name)),
          isFile_(true),
          fileAttributes_(attributes) {}
    FolderEntry(fl::i18n::ustring name, FolderAttributes const& attributes)
        : name_(std::move(name)),
          isFile_(false),
          folderAttributes_(attributes) {}

    /// The name; of a recursive listing the path below the listed folder.
    fl::i18n::ustring const& getName() const noexcept { return name_; }
    /// Moves the name out of an entry that is used up.
    fl::i18n::ustring takeName() noexcept { return std::move(name_); }
    bool isFile() const noexcept { return isFile_; }
    boost::optional<FileAttributes> const& getFileAttributes() const noexcept {
        return fileAttributes_;
    }
    boost::optional<FolderAttributes> const& getFolderAttributes() const noexcept {
        return folderAttributes_;
    }

  private:
    fl::i18n::ustring name_;
    bool isFile_;
    boost::optional<FileAttributes> fileAttributes_;
    boost::optional<FolderAttributes> folderAttributes_;
};

} // namespace foundation::storage::provider
