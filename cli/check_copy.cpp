#include "failure.hpp"
#include "interruption.hpp"
#include "progress.hpp"
#include "transfer.hpp"

#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/storage_system/exists.hpp>
#include <foundation/storage/vfs/streams/io_device.hpp>

#include <cstring>
#include <optional>

namespace cli {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;

using provider::ExtendedExistsResult;

namespace {

constexpr std::size_t bufferSize = 256 * 1024;

[[noreturn]] void refuse() {
    throw Refusal("the copy differs from the source; both are kept");
}

// A storage may deliver less than was asked for; both sides must be filled alike to be compared.
std::size_t fill(vfs::IODevice const& device, std::vector<char>& buffer) {
    std::size_t filled = 0;
    while (filled < buffer.size()) {
        long const count =
            device.read(buffer.data() + filled, static_cast<long>(buffer.size() - filled));
        if (count <= 0) {
            break;
        }
        filled += static_cast<std::size_t>(count);
    }
    return filled;
}

void compareBytes(vfs::File const& source, vfs::File const& copy, std::string const& shown) {
    ProgressLine line("checking " + shown);
    std::optional<std::uint64_t> const total = source.getAttributes().values().size;
    vfs::IODevice const left(source);
    vfs::IODevice const right(copy);
    std::vector<char> leftBytes(bufferSize);
    std::vector<char> rightBytes(bufferSize);
    std::uint64_t done = 0;
    std::size_t count = 0;
    do {
        throwIfInterrupted();
        count = fill(left, leftBytes);
        if (fill(right, rightBytes) != count ||
            std::memcmp(leftBytes.data(), rightBytes.data(), count) != 0) {
            refuse();
        }
        done += count;
        line.update(done, total);
    } while (count == bufferSize);
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
