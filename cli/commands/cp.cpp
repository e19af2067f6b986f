#include "../commands.hpp"
#include "../interruption.hpp"
#include "../transfer.hpp"
#include "../tree_copy.hpp"

namespace cli {

namespace vfs = foundation::storage::vfs;

using foundation::storage::provider::ExtendedExistsResult;

namespace {

// What is to be read for a source that is no folder.
vfs::File fileAt(TransferRun const& run, Transfer const& transfer) {
    vfs::File file(transfer.source.iri, run.system());
    if (!run.wishes().followLinks) {
        return file;
    }
    switch (transfer.kind) {
    case ExtendedExistsResult::LinkToFile:
        return {file.getCanonicalLocation(), run.system()};
    case ExtendedExistsResult::DanglingLink:
        throw Refusal("is a link that leads nowhere");
    default:
        return file;
    }
}

bool copyItem(TransferRun& run, Transfer const& transfer) {
    if (transfer.ofTree) {
        TreeCopy(run, transfer.source, transfer.destination, nullptr).copy();
        return true;
    }
    PlacesOf const places = [&] { return transfer.places(); };
    PlacesOf const source = [&] { return Places{transfer.source, transfer.source}; };
    std::optional<vfs::File> file;
    std::optional<vfs::File> destination;
    return run.attempt(source, [&] { file = fileAt(run, transfer); }) && run.attempt(places, [&] {
        destination.emplace(transfer.destination.iri, run.system());
    }) && run.copyFile({*file, *destination, std::nullopt, false}, places) == Transferred::Done;
}

} // namespace

int runCp(Host& host, Words const& words) {
    TransferOptions options;
    Arguments arguments(
        {"cp",
         "Copies files, and with -r folders with all that is in them: to a new name, or into a "
         "folder that exists. Folders that are there already are merged into. A file that is there "
         "is replaced, as a whole, unless it is read-only. Goes on after a failure, and sums up at "
         "the end. On a terminal a line shows the progress; to know the total, trees are counted "
         "before they are copied.",
         {"vfs cp notes.txt copy.txt", "vfs cp notes.txt photo.jpg docs",
          "vfs cp file:///etc/hostname mem:/hostname", "vfs cp -r docs copy",
          "vfs cp -r -T --policy keep docs empty", "vfs cp -r --dry-run docs mem:/docs"}});
    arguments.flag("-r,-R,--recursive", options.wishes.recursive, "Copy folders too")
        .flag("-L,--dereference", options.wishes.followLinks,
              "Copy what links lead to; otherwise they are copied as links");
    options.declare(arguments);
    if (!arguments.read(words)) {
        return printHelp(host, arguments);
    }
    InterruptionGuard const guard;
    Invocation invocation(host, "cp");
    TransferRun run(invocation, options.read(host), "copied");
    bool ofTrees = false;
    try {
        run.foresee(arguments.operands());
        forEachTransfer(run, arguments.operands(), [&](Transfer const& transfer) {
            ofTrees = ofTrees || transfer.ofTree;
            return copyItem(run, transfer);
        });
    } catch (Interrupted const&) {
        run.finish(ofTrees);
        throw;
    }
    run.finish(ofTrees);
    return invocation.finish();
}

} // namespace cli
