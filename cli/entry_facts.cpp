#include "entry_facts.hpp"

#include "failure.hpp"
#include "link_target.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/vfs/storage_system/exists.hpp>

#include <utility>

namespace cli {

namespace vfs = foundation::storage::vfs;

using fl::i18n::ustring;
using foundation::storage::provider::AttributeValues;
using foundation::storage::provider::ExtendedExistsResult;
using vfs::FileOrFolderEntry;

namespace {

AttributeValues const& valuesOf(FileOrFolderEntry const& entry) {
    if (auto const* const file = boost::get<vfs::FileEntry>(&entry)) {
        return file->getAttributes().values();
    }
    return boost::get<vfs::FolderEntry>(entry).getAttributes().values();
}

} // namespace

ustring const& nameOf(FileOrFolderEntry const& entry) noexcept {
    auto const* const file = boost::get<vfs::FileEntry>(&entry);
    return file != nullptr ? file->getName() : boost::get<vfs::FolderEntry>(&entry)->getName();
}

bool isFolder(FileOrFolderEntry const& entry) noexcept {
    return boost::get<vfs::FolderEntry>(&entry) != nullptr;
}

EntryReader::EntryReader(vfs::StorageSystemReference system, vfs::AbsoluteIRI folder)
    : system_(std::move(system)),
      folder_(std::move(folder)),
      hasLinks_(hasLinks(system_, folder_)) {}

ExtendedExistsResult EntryReader::kindOf(FileOrFolderEntry const& entry,
                                         vfs::AbsoluteIRI const& location) const {
    if (isFolder(entry)) {
        return ExtendedExistsResult::Folder;
    }
    return hasLinks_ ? existsExtended(location, system_) : ExtendedExistsResult::File;
}

std::optional<std::string> EntryReader::targetOf(FileOrFolderEntry const& entry) const {
    if (!hasLinks_ || isFolder(entry)) {
        return std::nullopt;
    }
    vfs::AbsoluteIRI const location(folder_, nameOf(entry));
    return isLink(kindOf(entry, location)) ? linkTarget(system_, location) : std::nullopt;
}

EntryFacts EntryReader::factsOf(FileOrFolderEntry const& entry, vfs::AbsoluteIRI const& location,
                                std::string path) const {
    EntryFacts facts{std::move(path), location, ExtendedExistsResult::Nothing, std::nullopt,
                     std::nullopt};
    try {
        ExtendedExistsResult const kind = kindOf(entry, facts.location);
        if (isLink(kind)) {
            facts.target = linkTarget(system_, facts.location);
        }
        if (kind != ExtendedExistsResult::Nothing) {
            facts.values = valuesOf(entry);
        }
        facts.kind = kind;
    } catch (...) {
        if (codeOfCurrentFailure() != vfs::ErrorCode::ResourceNotFound) {
            throw;
        }
    }
    return facts;
}

EntryFacts factsOfFile(vfs::StorageSystemReference const& system, Location const& location,
                       ExtendedExistsResult kind) {
    EntryFacts facts{fl::i18n::toDisplayString(location.iri.getName()), location.iri, kind,
                     std::nullopt, std::nullopt};
    if (isLink(kind)) {
        facts.target = linkTarget(system, location.iri);
    }
    facts.values = vfs::File(location.iri, system).getAttributes().values();
    return facts;
}

} // namespace cli
