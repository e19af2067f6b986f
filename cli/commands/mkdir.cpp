#include "../commands.hpp"

#include <foundation/storage/vfs/resources/folder.hpp>

namespace cli {

int runMkdir(Host& host, Words const& words) {
    bool parents = false;
    Arguments arguments(
        {"mkdir", "Creates folders.", {"vfs mkdir reports", "vfs mkdir -p reports/2024/may"}});
    arguments
        .flag("-p,--parents", parents,
              "Create missing folders above too; a folder that exists is no error")
        .takes("LOCATION", 1, Arguments::unlimited);
    if (!arguments.read(words)) {
        return printHelp(host, arguments);
    }
    Invocation invocation(host, "mkdir");
    invocation.forEach(arguments.operands(), [&](Location const& location) {
        invocation.aboutToWrite(location);
        foundation::storage::vfs::Folder const folder(location.iri, invocation.system());
        if (parents) {
            folder.createFolderRecursive();
        } else {
            folder.createFolder();
        }
        invocation.changed(location);
    });
    return invocation.finish();
}

} // namespace cli
