#include "transfer.hpp"

#include "arguments.hpp"
#include "interruption.hpp"
#include "progress.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>
#include <foundation/storage/vfs/storage_system/exists.hpp>

#include <array>
#include <exception>
#include <optional>
#include <set>
#include <utility>

namespace cli {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;

using provider::ExtendedExistsResult;
using provider::ReplacementPolicy;

namespace {

// Where the last operand is a folder, each file goes into it under its own name.
Location destinationFor(Location const& source, Location const& last, bool isFolder) {
    if (!isFolder) {
        return last;
    }
    std::string typed = last.typed;
    if (!last.wantsFolder()) {
        typed += '/';
    }
    fl::i18n::ustring const& name = source.iri.getName();
    return {typed + fl::i18n::toDisplayString(name), vfs::AbsoluteIRI(last.iri, name)};
}

void checkSource(vfs::StorageSystemReference const& system, Location const& source,
                 std::string const& verb) {
    switch (existsExtended(source.iri, system)) {
    case ExtendedExistsResult::Nothing:
        throw Refusal(wordsFor(vfs::ErrorCode::ResourceNotFound));
    case ExtendedExistsResult::Folder:
        throw Refusal("is a folder; only single files are " + verb);
    default:
        return;
    }
}

bool isSameItem(vfs::StorageSystemReference const& system, Transfer const& transfer) {
    if (transfer.source.iri == transfer.destination.iri) {
        return true;
    }
    vfs::File const destination(transfer.destination.iri, system);
    return destination.fileExists() &&
           vfs::File(transfer.source.iri, system).getCanonicalLocation() ==
               destination.getCanonicalLocation();
}

bool isReadOnlyFile(vfs::StorageSystemReference const& system, Location const& location) {
    vfs::File const file(location.iri, system);
    return file.fileExists() && !file.getAttributes().isWritable();
}

// The reason behind a code that the person can do something about; empty where there is none.
std::string plainerReason(vfs::StorageSystemReference const& system, Transfer const& transfer,
                          std::optional<vfs::ErrorCode> code) {
    try {
        if (code == vfs::ErrorCode::InvalidLocation && isSameItem(system, transfer)) {
            return "source and destination are the same file";
        }
        if (code == vfs::ErrorCode::PermissionDenied &&
            transfer.policy != ReplacementPolicy::ReplaceReadOnly &&
            isReadOnlyFile(system, transfer.destination)) {
            return "is read-only (-f replaces it)";
        }
    } catch (std::exception const&) { // NOLINT(bugprone-empty-catch)
        // The first failure is the one to tell of.
    }
    return {};
}

} // namespace

void forEachTransfer(Invocation& invocation, std::vector<std::string> const& operands,
                     ReplacementPolicy policy, std::string const& verb,
                     std::function<void(Transfer const&)> const& action) {
    std::optional<Location> const last = invocation.locate(operands.back());
    if (!last) {
        return;
    }
    bool isFolder = false;
    bool const usable = invocation.attempt(std::span(&*last, 1), [&] {
        isFolder = vfs::Folder(last->iri, invocation.system()).folderExists();
        if (!isFolder && last->wantsFolder()) {
            throw Refusal("no such folder");
        }
        if (!isFolder && operands.size() > 2) {
            throw Refusal("is not a folder, and there are several sources");
        }
    });
    if (!usable) {
        return;
    }
    std::set<vfs::AbsoluteIRI> written;
    std::vector<std::string> const sources(operands.begin(), operands.end() - 1);
    invocation.forEach(sources, [&](Location const& source) {
        checkSource(invocation.system(), source, verb);
        std::array const both{source, destinationFor(source, *last, isFolder)};
        if (written.contains(both[1].iri)) {
            throw Refusal("another source has this name; it would be lost");
        }
        Transfer const transfer{both[0], both[1], policy};
        bool const done = invocation.attempt(both, [&] {
            try {
                action(transfer);
            } catch (std::exception const&) {
                std::optional<vfs::ErrorCode> const code = codeOfCurrentFailure();
                throwIfInterrupted();
                std::string const reason = plainerReason(invocation.system(), transfer, code);
                if (!reason.empty()) {
                    throw Refusal(reason);
                }
                throw;
            }
        });
        if (done) {
            written.insert(transfer.destination.iri);
            invocation.changed(transfer.destination);
        }
    });
}

ReplacementPolicy replacementPolicy(bool noClobber, bool force) {
    if (noClobber && force) {
        throw UsageError("-n and -f exclude each other");
    }
    return noClobber ? ReplacementPolicy::FailIfExists
           : force   ? ReplacementPolicy::ReplaceReadOnly
                     : ReplacementPolicy::ReplaceExisting;
}

void copyFile(vfs::StorageSystemReference const& system, Transfer const& transfer) {
    ProgressLine line(transfer.source.shown());
    provider::CopyFileOptions options;
    options.policy = transfer.policy;
    options.progress = [&](std::uint64_t done, std::optional<std::uint64_t> total) {
        line.update(done, total);
        return interruptingSignal() == 0;
    };
    vfs::File const destination(transfer.destination.iri, system);
    vfs::File(transfer.source.iri, system).copyFile(destination, options);
}

} // namespace cli
