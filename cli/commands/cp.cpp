#include "../commands.hpp"
#include "../interruption.hpp"
#include "../transfer.hpp"

namespace cli {

int runCp(Host& host, Words const& words) {
    bool noClobber = false;
    bool force = false;
    Arguments arguments(
        {"cp",
         "Copies single files: to a new name, or into a folder that exists. A file that is already "
         "there is replaced, as a whole, unless it is read-only.",
         {"vfs cp notes.txt copy.txt", "vfs cp notes.txt photo.jpg docs",
          "vfs cp file:///etc/hostname mem:/hostname"}});
    arguments.flag("-n,--no-clobber", noClobber, "Refuse to replace a file")
        .flag("-f,--force", force, "Replace read-only files too")
        .takes("SOURCE... DESTINATION", 2, Arguments::unlimited);
    if (!arguments.read(words)) {
        return printHelp(host, arguments);
    }
    auto const policy = replacementPolicy(noClobber, force);
    InterruptionGuard const guard;
    Invocation invocation(host, "cp");
    forEachTransfer(invocation, arguments.operands(), policy, "copied",
                    [&](Transfer const& transfer) { copyFile(invocation.system(), transfer); });
    return invocation.finish();
}

} // namespace cli
