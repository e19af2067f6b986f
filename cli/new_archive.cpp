#include "new_archive.hpp"

#include "schemes.hpp"

#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/storage_system/exists.hpp>

#include <exception>

namespace cli {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;

void NewArchives::begin(System const& system, Location const& location) {
    begin(system, location.iri);
}

void NewArchives::begin(System const& system, vfs::AbsoluteIRI const& location) {
    provider::StorageIRI const inside = location.toStorageIRI();
    if (!inside.hasInnerIRI() || !isWrittenArchive(inside.getScheme())) {
        return;
    }
    vfs::AbsoluteIRI const item(inside.getInnerIRI(), true);
    begin(system, item); // outermost first
    if (existsExtended(item, system) == provider::ExtendedExistsResult::Nothing) {
        vfs::File(item, system).createFile();
        begun_.push_back({system, item});
    }
}

void NewArchives::removeEmpty() noexcept {
    for (; !begun_.empty(); begun_.pop_back()) {
        try {
            vfs::File const item(begun_.back().location, begun_.back().system);
            if (item.fileExists() && item.getAttributes().values().size == 0) {
                item.removeFile();
            }
        } catch (std::exception const&) { // NOLINT(bugprone-empty-catch)
            // An empty file that stays does no harm.
        }
    }
}

} // namespace cli
