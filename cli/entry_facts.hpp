#pragma once

#include "location.hpp"

#include <foundation/storage/provider/attributes.hpp>
#include <foundation/storage/provider/exists_result.hpp>
#include <foundation/storage/vfs/listing/file_or_folder_entry.hpp>
#include <foundation/storage/vfs/storage_system/storage_system_reference.hpp>

#include <optional>
#include <string>

/// Entries of listings, and what a listing leaves open about them.
namespace cli {

/// What is known of an entry; what the storage does not tell is empty.
struct EntryFacts {
    std::string path; ///< bytes: the name, or the path below the folder that was asked for
    foundation::storage::vfs::AbsoluteIRI location;
    foundation::storage::provider::ExtendedExistsResult kind;
    std::optional<std::string> target; ///< of a link
    std::optional<foundation::storage::provider::AttributeValues> values;
};

/// The name as the listing gave it. No copy, and no handle is made.
fl::i18n::ustring const& nameOf(foundation::storage::vfs::FileOrFolderEntry const& entry) noexcept;

/// A link is none, wherever it leads.
bool isFolder(foundation::storage::vfs::FileOrFolderEntry const& entry) noexcept;

/// Asks for what the entries of listings of one storage leave open. A listing knows files and
/// folders; whether a file is a link, or nothing that can be read, only a storage with links is
/// asked. For one thread. Everything throws what the storage throws.
class EntryReader {
  public:
    /// `folder` is the one that is listed, or the top of the tree.
    EntryReader(foundation::storage::vfs::StorageSystemReference system,
                foundation::storage::vfs::AbsoluteIRI folder);

    /// Where an entry of the folder leads; empty for what is no link.
    std::optional<std::string>
    targetOf(foundation::storage::vfs::FileOrFolderEntry const& entry) const;
    /// Everything. Attributes that the listing brought are those of a link itself. Of an entry that
    /// is gone the kind is Nothing.
    EntryFacts factsOf(foundation::storage::vfs::FileOrFolderEntry const& entry,
                       foundation::storage::vfs::AbsoluteIRI const& location,
                       std::string path) const;

  private:
    foundation::storage::provider::ExtendedExistsResult
    kindOf(foundation::storage::vfs::FileOrFolderEntry const& entry,
           foundation::storage::vfs::AbsoluteIRI const& location) const;

    foundation::storage::vfs::StorageSystemReference system_;
    foundation::storage::vfs::AbsoluteIRI folder_;
    bool hasLinks_;
};

/// The facts about what is at a location by itself, where that is no folder. Attributes are those
/// of what a link leads to, and its own where it leads nowhere.
EntryFacts factsOfFile(foundation::storage::vfs::StorageSystemReference const& system,
                       Location const& location,
                       foundation::storage::provider::ExtendedExistsResult kind);

} // namespace cli
