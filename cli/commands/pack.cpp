#include "../commands.hpp"
#include "../interruption.hpp"
#include "../transfer.hpp"
#include "../tree_copy.hpp"

#include <foundation/storage/vfs/listing/entries.hpp>
#include <foundation/storage/vfs/listing/folder_listing.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>
#include <foundation/storage/vfs/resources/folder_removal_policy.hpp>
#include <foundation/storage/vfs/storage_system/exists.hpp>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <algorithm>
#include <span>
#include <string_view>

namespace cli {

namespace vfs = foundation::storage::vfs;

using foundation::storage::provider::ExtendedExistsResult;
using foundation::storage::provider::ReplacementPolicy;
using foundation::storage::provider::StorageIRI;

namespace {

enum class IfThere { Refuse, Replace, Add };

Location rootOf(Location const& archive) {
    return {"zip:" + archive.typed + "!/", vfs::AbsoluteIRI(u"zip", archive.iri, u"/")};
}

// What there was goes with the flush that brings the new content, and not before.
void removeAll(vfs::Folder const& root) {
    for (vfs::FileOrFolderEntry const& entry : root.listAllEntries()) {
        if (auto const* const folder = boost::get<vfs::FolderEntry>(&entry)) {
            folder->getFolder().removeFolder(vfs::FolderRemovalPolicy::Recursive);
        } else {
            boost::get<vfs::FileEntry>(entry).getFile().removeFile();
        }
    }
}

void checkSource(Invocation const& invocation, Location const& source) {
    if (!vfs::Folder(source.iri, invocation.system()).folderExists()) {
        throw Refusal(existsExtended(source.iri, invocation.system()) ==
                              ExtendedExistsResult::Nothing
                          ? wordsFor(vfs::ErrorCode::ResourceNotFound)
                          : "is not a folder");
    }
}

/// Whoever names an archive like this would take it for what it is not.
bool isNamedForAnotherKind(std::string_view name) {
    constexpr std::string_view endings[] = {".tar", ".tgz", ".gz",   ".bz2", ".xz",
                                            ".zst", ".7z",  ".cpio", ".iso", ".ar"};
    return std::any_of(std::begin(endings), std::end(endings),
                       [&](std::string_view ending) { return name.ends_with(ending); });
}

void prepare(Invocation& invocation, Location const& source, Location const& archive,
             Location const& root, IfThere ifThere) {
    if (isNamedForAnotherKind(archive.typed)) {
        throw Refusal("has the name of another kind of archive, and zip is what is made");
    }
    invocation.aboutToWrite(archive); // it may be to lie in one that is new too
    std::optional<StorageIRI> const packed = placeOf(invocation.system(), source);
    std::optional<StorageIRI> const place = placeOf(invocation.system(), archive);
    if (packed && place && packed->isAncestorOf(*place)) {
        throw Refusal("would lie in the folder that is packed");
    }
    bool const isThere =
        existsExtended(archive.iri, invocation.system()) != ExtendedExistsResult::Nothing;
    if (isThere && ifThere == IfThere::Refuse) {
        throw Refusal(wordsFor(vfs::ErrorCode::ResourceAlreadyExists) +
                      std::string(" (-f replaces it, -a adds to it)"));
    }
    invocation.aboutToWrite(root);
    vfs::Folder const inside(root.iri, invocation.system());
    if (isThere && ifThere == IfThere::Replace) {
        removeAll(inside);
    }
    vfs::Folder const folder(source.iri, invocation.system());
    inside.setLastModified(folder.getAttributes().getLastModified()); // an empty one is one too
    invocation.changed(root);
}

} // namespace

int runPack(Host& host, Words const& words) {
    bool replace = false;
    bool add = false;
    TransferWishes wishes;
    wishes.policy = ReplacementPolicy::ReplaceExisting;
    wishes.recursive = true;
    wishes.asNamed = true;
    Arguments arguments(
        {"pack",
         "Makes a zip archive of what is in a folder, with modes, times and links. It appears "
         "under "
         "its name when it is complete, on storages that replace files as a whole. Goes on after a "
         "failure, and sums up at the end. On a terminal a line shows the progress.",
         {"vfs pack docs docs.zip", "vfs pack -v docs mem:/docs.zip",
          "vfs pack docs zip:all.zip!/docs.zip"}});
    arguments.flag("-f,--force", replace, "Replace an archive that is there")
        .flag("-a,--add", add, "Add to an archive that is there, replacing files of the same name")
        .flag("-v,--verbose", wishes.verbose, "Print a line for each file")
        .takes("FOLDER ARCHIVE", 2, 2);
    if (!arguments.read(words)) {
        return printHelp(host, arguments);
    }
    if (replace && add) {
        throw UsageError("-f and -a exclude each other");
    }
    IfThere const ifThere = replace ? IfThere::Replace : add ? IfThere::Add : IfThere::Refuse;
    InterruptionGuard const guard;
    Invocation invocation(host, "pack");
    std::optional<Location> const source = invocation.locate(arguments.operands()[0]);
    std::optional<Location> const archive = invocation.locate(arguments.operands()[1]);
    if (!source || !archive) {
        return invocation.finish();
    }
    Location const root = rootOf(*archive);
    TransferRun run(invocation, wishes, "packed");
    try {
        run.foresee(arguments.operands());
        if (invocation.attempt(std::span(&*source, 1), [&] { checkSource(invocation, *source); }) &&
            invocation.attempt(std::span(&*archive, 1),
                               [&] { prepare(invocation, *source, *archive, root, ifThere); })) {
            TreeCopy(run, *source, root, nullptr).copy();
        }
    } catch (Interrupted const&) {
        run.finish(true);
        throw;
    }
    run.finish(true);
    return invocation.finish();
}

} // namespace cli
