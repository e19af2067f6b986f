#include "../commands.hpp"
#include "../display.hpp"
#include "../json_text.hpp"

#include <foundation/storage/vfs/storage_system/exists.hpp>

#include <nlohmann/json.hpp>

namespace cli {

int runExists(Host& host, Words const& words) {
    bool verbose = false;
    bool json = false;
    Arguments arguments(
        {"exists",
         "Ends with code 0 if something is at every location, otherwise with 1. Prints "
         "nothing unless asked to. A link is something, wherever it leads.",
         {"vfs exists notes.txt", "vfs exists -v notes.txt docs",
          "vfs exists --json file:///etc/hostname"}});
    arguments.flag("-v,--verbose", verbose, "Print for each location what is there")
        .flag("--json", json, "Print a JSON object for each location")
        .takes("LOCATION", 1, Arguments::unlimited);
    if (!arguments.read(words)) {
        return printHelp(host, arguments);
    }
    Invocation invocation(host, "exists");
    invocation.forEach(arguments.operands(), [&](Location const& location) {
        using foundation::storage::provider::ExtendedExistsResult;
        ExtendedExistsResult const kind = existsExtended(location.iri, invocation.system());
        bool const there = kind != ExtendedExistsResult::Nothing;
        if (!there) {
            invocation.failQuietly();
        }
        if (json) {
            nlohmann::ordered_json const object{
                {"location", locationForPrograms(location.iri.toString())},
                {"exists", there},
                {"kind", kindForPrograms(kind)}};
            invocation.output().print(jsonLine(object));
        } else if (verbose) {
            invocation.output().printLine(location.shown() + ": " + kindInWords(kind));
        }
    });
    return invocation.finish();
}

} // namespace cli
