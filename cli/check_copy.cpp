#include "content_comparison.hpp"
#include "failure.hpp"
#include "interruption.hpp"
#include "progress.hpp"
#include "transfer.hpp"

#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/storage_system/exists.hpp>

#include <optional>

namespace cli {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;

using provider::ExtendedExistsResult;

namespace {

[[noreturn]] void refuse() {
    throw Refusal("the copy differs from the source; both are kept");
}

void compareBytes(vfs::File const& source, vfs::File const& copy, std::string const& shown) {
    ProgressLine line("checking " + shown);
    std::optional<std::uint64_t> const total = source.getAttributes().values().size;
    std::uint64_t done = 0;
    throwIfInterrupted();
    bool const same = ContentComparison().isSame(source, copy, [&](std::uint64_t count) {
        throwIfInterrupted();
        done += count;
        line.update(done, total);
    });
    if (!same) {
        refuse();
    }
}

// The text of the link at a location; empty where there is none.
std::optional<fl::i18n::ustring> linkAt(vfs::StorageSystemReference const& system,
                                        Location const& location) {
    ExtendedExistsResult const kind = existsExtended(location.iri, system);
    bool const isLink = kind == ExtendedExistsResult::LinkToFile ||
                        kind == ExtendedExistsResult::LinkToFolder ||
                        kind == ExtendedExistsResult::DanglingLink;
    provider::StorageIRI const iri = location.iri.toStorageIRI();
    auto const owner = system.buildProvider(iri);
    auto const* const links = dynamic_cast<provider::extensions::ILinks const*>(owner.get());
    return isLink && links != nullptr ? std::optional(links->readLink(iri)) : std::nullopt;
}

} // namespace

void checkCopy(vfs::StorageSystemReference const& system, Location const& source,
               Location const& destination) {
    if (auto const copied = linkAt(system, destination)) {
        if (linkAt(system, source) != copied) {
            refuse();
        }
        return;
    }
    compareBytes(vfs::File(source.iri, system), vfs::File(destination.iri, system), source.shown());
}

} // namespace cli
