#include "transfer.hpp"

#include "replacement.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/local_path.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>
#include <foundation/storage/vfs/storage_system/exists.hpp>

#include <filesystem>
#include <set>
#include <string_view>
#include <sys/stat.h>
#include <utility>

namespace cli {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;

using provider::ExtendedExistsResult;
using provider::StorageIRI;

namespace {

// Whether the words name what a folder holds rather than the folder: `.`, `a/..`, `a/./`.
bool endsInDots(std::string_view typed) {
    while (typed.ends_with('/')) {
        typed.remove_suffix(1);
    }
    std::size_t const slash = typed.rfind('/');
    std::string_view const last = typed.substr(slash == std::string_view::npos ? 0 : slash + 1);
    return last == "." || last == "..";
}

// Where the last operand is a folder, each source goes into it under its own name.
Location destinationFor(Location const& source, Location const& last, bool isFolder) {
    if (!isFolder || endsInDots(source.typed)) {
        return last;
    }
    return childLocation(last, source.iri.getName());
}

Transfer transferOf(TransferRun const& run, Location const& source, Location const& last,
                    bool isFolder) {
    ExtendedExistsResult const kind = existsExtended(source.iri, run.system());
    if (kind == ExtendedExistsResult::Nothing) {
        throw Refusal(wordsFor(vfs::ErrorCode::ResourceNotFound));
    }
    bool const follows = run.wishes().followLinks || source.wantsFolder();
    bool const ofTree = kind == ExtendedExistsResult::Folder ||
                        (kind == ExtendedExistsResult::LinkToFolder && follows);
    if (ofTree && !run.wishes().recursive) {
        throw Refusal("is a folder (-r copies it)");
    }
    if (!ofTree && source.wantsFolder()) {
        throw Refusal("is not a folder");
    }
    if (source.iri.getName().empty() && isFolder && !endsInDots(source.typed)) {
        // A root has no name of its own.
        return {source, last, kind, ofTree};
    }
    return {source, destinationFor(source, last, isFolder), kind, ofTree};
}

// Whether a folder of the local disk is the other, or lies in it, under another name: one place may
// be mounted on several.
bool liesInUnderAnotherName(StorageIRI const& inner, StorageIRI const& outer) {
    struct stat wanted {};
    if (inner.getScheme() != u"file" || ::stat(toLocalPath(outer).c_str(), &wanted) != 0) {
        return false;
    }
    std::filesystem::path path = toLocalPath(inner);
    while (true) {
        struct stat found {};
        if (::stat(path.c_str(), &found) == 0 && found.st_dev == wanted.st_dev &&
            found.st_ino == wanted.st_ino) {
            return true;
        }
        if (!path.has_relative_path()) {
            return false;
        }
        path = path.parent_path();
    }
}

// By canonical locations, so that neither another spelling nor a link on the way hides it.
void refuseIntoItself(TransferRun const& run, Transfer const& transfer) {
    if (!transfer.ofTree ||
        transfer.source.iri.getScheme() != transfer.destination.iri.getScheme()) {
        return;
    }
    std::optional<StorageIRI> const from = placeOf(run.system(), transfer.source);
    std::optional<StorageIRI> const to = placeOf(run.system(), transfer.destination);
    if (!from || !to) {
        return; // what is missing holds nothing
    }
    if (*from == *to) {
        throw Refusal("source and destination are the same folder");
    }
    if (from->isAncestorOf(*to) || liesInUnderAnotherName(*to, *from)) {
        throw Refusal("a folder cannot be " + run.verb() + " into itself");
    }
}

} // namespace

void TransferOptions::declare(Arguments& arguments) {
    declareWishes(arguments);
    arguments
        .flag("-T,--no-target-directory", wishes.asNamed,
              "DESTINATION is the new name, also where a folder has it")
        .takes("SOURCE... DESTINATION", 2, Arguments::unlimited);
}

void TransferOptions::declareWishes(Arguments& arguments) {
    arguments
        .option("--policy", policy, "NAME",
                "What becomes of files that are there: replace (unless told otherwise), force "
                "(read-only ones too), keep (leave them), fail (refuse them), defer (as replace, "
                "what is denied is told at the end)")
        .flag("-n,--no-clobber", keep, "The same as --policy keep")
        .flag("-f,--force", force, "The same as --policy force")
        .flag("-i,--interactive", wishes.ask, "Ask before each replacement")
        .flag("-v,--verbose", wishes.verbose, "Print a line for each file")
        .flag("--dry-run", wishes.dryRun, "Print what would be done, and change nothing");
}

TransferWishes const& TransferOptions::read(Host const& host) {
    wishes.policy = chosenPolicy(policy, keep, force, wishes.ask);
    if (wishes.ask && host.inputIsScript()) {
        throw UsageError("-i asks on standard input, which holds the commands here");
    }
    return wishes;
}

std::optional<StorageIRI> placeOf(vfs::StorageSystemReference const& system,
                                  Location const& location) {
    try {
        return vfs::Folder(location.iri, system).getCanonicalLocation().toStorageIRI();
    } catch (vfs::Exception const& failure) {
        bool const absent = failure.getErrorCode() == vfs::ErrorCode::ResourceNotFound ||
                            failure.getErrorCode() == vfs::ErrorCode::InvalidLocation;
        if (!absent || !location.iri.hasParent()) {
            throw;
        }
    }
    vfs::Folder const above(location.iri.getParent(), system);
    if (!above.folderExists()) {
        return std::nullopt;
    }
    return StorageIRI(above.getCanonicalLocation().toStorageIRI(), location.iri.getName());
}

void forEachTransfer(TransferRun& run, std::vector<std::string> const& operands,
                     std::function<bool(Transfer const&)> const& action) {
    Invocation& invocation = run.invocation();
    if (run.wishes().asNamed && operands.size() > 2) {
        throw UsageError("-T takes one source");
    }
    std::optional<Location> const last = invocation.locate(operands.back());
    if (!last) {
        return;
    }
    bool isFolder = false;
    bool const usable = invocation.attempt(std::span(&*last, 1), [&] {
        run.aboutToWrite(*last);
        isFolder =
            !run.wishes().asNamed && vfs::Folder(last->iri, invocation.system()).folderExists();
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
        if (run.isFull()) {
            return;
        }
        Transfer const transfer = transferOf(run, source, *last, isFolder);
        Location const& destination = transfer.destination;
        if (written.contains(destination.iri)) {
            throw Refusal("another source has this name; it would be lost");
        }
        Places const places = transfer.places();
        bool const allowed = invocation.attempt(places, [&] {
            if (!isFolder && !transfer.ofTree && last->wantsFolder()) {
                throw Refusal("no such folder");
            }
            refuseIntoItself(run, transfer);
        });
        if (allowed && action(transfer)) {
            written.insert(destination.iri);
            if (!run.wishes().dryRun) {
                invocation.changed(destination);
            }
        }
    });
}

} // namespace cli
