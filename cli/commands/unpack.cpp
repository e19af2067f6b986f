#include "../commands.hpp"
#include "../interruption.hpp"
#include "../schemes.hpp"
#include "../transfer.hpp"
#include "../tree_copy.hpp"

#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/storage_system/exists.hpp>

#include <fl/i18n/conversion.hpp>

namespace cli {

namespace vfs = foundation::storage::vfs;

using foundation::storage::provider::ExtendedExistsResult;

namespace {

Location rootOf(char16_t const* scheme, Location const& archive) {
    return {fl::i18n::toDisplayString(scheme) + ":" + archive.typed + "!/",
            vfs::AbsoluteIRI(scheme, archive.iri, u"/")};
}

// Of the kind that it turns out to be.
Location insideOf(Invocation const& invocation, Location const& archive) {
    if (existsExtended(archive.iri, invocation.system()) == ExtendedExistsResult::Folder) {
        throw Refusal("is a folder, and no archive");
    }
    Location zip = rootOf(u"zip", archive);
    try {
        existsExtended(zip.iri, invocation.system());
        return zip;
    } catch (vfs::Exception const& failure) {
        if (failure.getErrorCode() != vfs::ErrorCode::IOError || !kindOfScheme(u"tar")) {
            throw;
        }
    }
    Location tar = rootOf(u"tar", archive);
    try {
        existsExtended(tar.iri, invocation.system());
    } catch (vfs::Exception const& failure) {
        if (failure.getErrorCode() == vfs::ErrorCode::IOError) {
            throw Refusal("is no archive of a kind that can be read, or a damaged one");
        }
        throw;
    }
    return tar;
}

} // namespace

int runUnpack(Host& host, Words const& words) {
    TransferOptions options;
    Arguments arguments(
        {"unpack",
         "Copies all that is in an archive into a folder, which is made where it is missing, and "
         "merged into where it is there: zip, tar, and what else can be looked into. Nothing comes "
         "to lie outside of the folder. Goes on after a failure, and sums up at the end. On a "
         "terminal a line shows the progress.",
         {"vfs unpack archive.zip new", "vfs unpack --dry-run archive.zip new"}});
    options.wishes.recursive = true;
    options.declareWishes(arguments);
    arguments.takes("ARCHIVE FOLDER", 2, 2);
    if (!arguments.read(words)) {
        return printHelp(host, arguments);
    }
    options.wishes.asNamed = true;
    InterruptionGuard const guard;
    Invocation invocation(host, "unpack");
    TransferRun run(invocation, options.read(host), "unpacked");
    std::optional<Location> const archive = invocation.locate(arguments.operands()[0]);
    std::optional<Location> const folder = invocation.locate(arguments.operands()[1]);
    if (!archive || !folder) {
        return invocation.finish();
    }
    try {
        std::optional<Location> root;
        if (invocation.attempt(std::span(&*archive, 1),
                               [&] { root = insideOf(invocation, *archive); }) &&
            invocation.attempt(std::span(&*folder, 1), [&] { run.aboutToWrite(*folder); })) {
            run.foresee({root->typed, folder->typed});
            TreeCopy(run, *root, *folder, nullptr).copy();
            if (!run.wishes().dryRun) {
                invocation.attempt(std::span(&*folder, 1), [&] { invocation.changed(*folder); });
            }
        }
    } catch (Interrupted const&) {
        run.finish(true);
        throw;
    }
    run.finish(true);
    return invocation.finish();
}

} // namespace cli
