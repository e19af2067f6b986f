#include "../commands.hpp"

#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>
#include <foundation/storage/vfs/storage_system/exists.hpp>

namespace cli {

namespace vfs = foundation::storage::vfs;

namespace {

void removeEmptyFolder(vfs::Folder const& folder) {
    try {
        folder.removeFolder(vfs::FolderRemovalPolicy::NonRecursive);
    } catch (vfs::Exception const& failure) {
        if (failure.getErrorCode() == vfs::ErrorCode::FolderNotEmpty) {
            throw Refusal("folder not empty; only empty folders are removed");
        }
        throw;
    }
}

} // namespace

int runRm(Host& host, Words const& words) {
    bool folders = false;
    bool force = false;
    Arguments arguments(
        {"rm",
         "Removes files, and empty folders with -d. A folder that holds anything is "
         "refused. Of a link, the link itself is removed.",
         {"vfs rm old.log", "vfs rm -d empty", "vfs rm -f old.log missing.log"}});
    arguments.flag("-d,--dir", folders, "Remove empty folders too")
        .flag("-f,--force", force, "A missing file is no error")
        .takes("LOCATION", 1, Arguments::unlimited);
    if (!arguments.read(words)) {
        return printHelp(host, arguments);
    }
    Invocation invocation(host, "rm");
    invocation.forEach(arguments.operands(), [&](Location const& location) {
        using foundation::storage::provider::ExistsResult;
        switch (exists(location.iri, invocation.system())) {
        case ExistsResult::File:
            vfs::File(location.iri, invocation.system()).removeFile();
            break;
        case ExistsResult::Folder:
            if (!folders) {
                throw Refusal("is a folder (-d removes an empty one)");
            }
            removeEmptyFolder(vfs::Folder(location.iri, invocation.system()));
            break;
        case ExistsResult::Nothing:
            if (!force) {
                throw Refusal(wordsFor(vfs::ErrorCode::ResourceNotFound));
            }
            return;
        }
        invocation.changed(location);
    });
    return invocation.finish();
}

} // namespace cli
