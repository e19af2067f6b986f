#include "../commands.hpp"

#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/streams/io_device.hpp>

namespace cli {

namespace {

// Large enough that calls cost nothing beside the bytes, small enough to stay in the cache.
constexpr std::size_t bufferSize = 128 * 1024;

} // namespace

int runCat(Host& host, Words const& words) {
    Arguments arguments({"cat",
                         "Writes the bytes of files to standard output, one behind the other.",
                         {"vfs cat notes.txt", "vfs cat notes.txt file:///etc/hostname"}});
    arguments.takes("LOCATION", 1, Arguments::unlimited);
    if (!arguments.read(words)) {
        return printHelp(host, arguments);
    }
    Invocation invocation(host, "cat");
    std::vector<char> buffer(bufferSize);
    invocation.forEach(arguments.operands(), [&](Location const& location) {
        using foundation::storage::vfs::File;
        foundation::storage::vfs::IODevice device(File(location.iri, invocation.system()));
        long const size = static_cast<long>(buffer.size());
        long count = 0;
        while ((count = device.read(buffer.data(), size)) > 0) {
            invocation.output().writeBytes(buffer.data(), static_cast<std::size_t>(count));
        }
        device.close();
    });
    return invocation.finish();
}

} // namespace cli
