#include "../change_lines.hpp"
#include "../commands.hpp"
#include "../interruption.hpp"
#include "../line_queue.hpp"

#include <foundation/msg_svc/eventmgr/connection.hpp>
#include <foundation/storage/provider/extended_feature.hpp>
#include <foundation/storage/vfs/events/change_watcher.hpp>
#include <foundation/storage/vfs/storage_system/exists.hpp>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <optional>
#include <unistd.h>
#include <utility>

namespace cli {

namespace vfs = foundation::storage::vfs;

using foundation::msg_svc::eventmgr::ScopedConnection;
using foundation::storage::events::Kind;
using foundation::storage::provider::ExtendedExistsResult;
using foundation::storage::provider::ExtendedFeature;
using foundation::storage::provider::StorageIRI;

namespace {

struct Wishes {
    std::set<Kind> kinds = everyKind();
    bool trees = false;
    bool json = false;
};

void refuseMemory(Location const& location) {
    StorageIRI innermost = location.iri.toStorageIRI();
    while (innermost.hasInnerIRI()) {
        innermost = innermost.getInnerIRI();
    }
    if (innermost.getScheme() == u"mem") {
        throw Refusal("the memory of this process is changed by nobody while it watches");
    }
}

// The watches of one run, and the lines that come of them. Changes are heard on threads of the
// storages, and printed by the one that runs the command.
class Watches {
  public:
    Watches(Invocation& invocation, Wishes const& wishes)
        : invocation_(invocation),
          wishes_(wishes) {}
    ~Watches() { end(); }
    Watches(Watches const&) = delete;
    Watches& operator=(Watches const&) = delete;

    void begin(Location const& location) {
        refuseMemory(location);
        switch (existsExtended(location.iri, invocation_.system())) {
        case ExtendedExistsResult::Nothing:
            throw Refusal(wordsFor(vfs::ErrorCode::ResourceNotFound));
        case ExtendedExistsResult::Folder:
        case ExtendedExistsResult::LinkToFolder:
            watchFolder(location);
            break;
        default:
            if (location.wantsFolder()) {
                throw Refusal("is not a folder");
            }
            watch(location, vfs::File(location.iri, invocation_.system()),
                  vfs::WithRecursiveChangeEvents::No);
        }
    }

    /// Prints until a signal or a failure.
    void print() {
        for (;;) {
            waitForLines();
            printHeard();
        }
    }

    /// Prints what was heard up to now, and hears no more.
    void finish() {
        end();
        printHeard();
    }

  private:
    void watchFolder(Location const& location) {
        StorageIRI const iri = location.iri.toStorageIRI();
        if (wishes_.trees && !invocation_.system().buildProvider(iri)->hasFeature(
                                 iri, ExtendedFeature::RecursiveChangeEvents)) {
            throw Refusal("the storage does not tell of changes deeper in a folder (without -r it "
                          "may)");
        }
        watch(location, vfs::Folder(location.iri, invocation_.system()),
              wishes_.trees ? vfs::WithRecursiveChangeEvents::Yes
                            : vfs::WithRecursiveChangeEvents::No);
    }

    void watch(Location const& location, vfs::FileOrFolder const& resource,
               vfs::WithRecursiveChangeEvents recursive) {
        std::vector<Kind> const kinds(wishes_.kinds.begin(), wishes_.kinds.end());
        auto handler = [lines = ChangeLines(location, wishes_.kinds, wishes_.json),
                        this](vfs::Event const& event) {
            try {
                queue_.add(lines.lineFor(event));
            } catch (...) {
                queue_.fail(std::current_exception());
            }
        };
        connections_.push_back(watcher_.watch(resource, kinds, recursive, std::move(handler)));
    }

    // Also ends where nobody reads standard output any more, and not at the next change only.
    void waitForLines() {
        std::array wanted{pollfd{queue_.descriptor(), POLLIN, 0}, pollfd{STDOUT_FILENO, 0, 0}};
        waitForAny(wanted);
        if ((wanted[1].revents & (POLLERR | POLLHUP)) != 0) {
            static_cast<void>(std::raise(SIGPIPE));
            throw OutputFailure(systemReason(EPIPE));
        }
    }

    void printHeard() {
        invocation_.output().print(queue_.take());
        invocation_.output().flush();
    }

    void end() {
        queue_.letAllIn(); // a handler that waits for room would be waited for
        connections_.clear();
    }

    Invocation& invocation_;
    Wishes const& wishes_;
    LineQueue queue_;
    vfs::ChangeWatcher watcher_;
    std::vector<ScopedConnection> connections_;
};

void sayThatWatchingHasBegun(std::vector<Location> const& locations) {
    std::string const what = locations.size() == 1
                                 ? locations.front().shown()
                                 : std::to_string(locations.size()) + " locations";
    std::fprintf(stderr, "vfs: watch: watching %s\n", what.c_str());
}

int watchUntilTheEnd(Invocation& invocation, Wishes const& wishes, Words const& operands,
                     bool saysSo) {
    InterruptionGuard const guard;
    Watches watches(invocation, wishes);
    std::vector<Location> locations;
    try {
        invocation.forEach(operands, [&](Location const& location) {
            watches.begin(location);
            locations.push_back(location);
        });
        if (invocation.failures().count() > 0) {
            return exitFailed;
        }
        if (saysSo) {
            sayThatWatchingHasBegun(locations);
        }
        watches.print();
    } catch (Interrupted const&) {
        // That is how watching ends, and no failure.
        watches.finish();
    }
    return exitDone;
}

} // namespace

int runWatch(Host& host, Words const& words) {
    Wishes wishes;
    bool verbose = false;
    std::optional<std::string> events;
    Arguments arguments(
        {"watch",
         "Prints a line for each change of files, and of folders and what is in them, until it is "
         "ended by Ctrl-C or a signal, which is no failure. Nothing is printed unless everything "
         "can be watched. Where changes came faster than they could be followed, a line says that "
         "some were lost.",
         {"vfs watch docs", "vfs watch -r --json docs",
          "vfs watch --events created,removed docs notes.txt"}});
    arguments.flag("-r,--recursive", wishes.trees, "Watch everything below folders too")
        .flag("-v,--verbose", verbose,
              "Say on standard error when watching has begun, as is done on a terminal")
        .option("--events", events, "LIST",
                "Print these alone: created, modified, attributes, removed, with commas between")
        .flag("--json", wishes.json, "Print a JSON object for each change")
        .takes("LOCATION...", 1, Arguments::unlimited);
    if (!arguments.read(words)) {
        return printHelp(host, arguments);
    }
    if (events) {
        wishes.kinds = kindsNamed(*events);
    }
    if (host.inputIsScript()) {
        throw UsageError("a script cannot watch: the commands behind it would never run");
    }
    Invocation invocation(host, "watch");
    bool const saysSo = verbose || ::isatty(STDERR_FILENO) == 1;
    try {
        return watchUntilTheEnd(invocation, wishes, arguments.operands(), saysSo);
    } catch (OutputFailure const&) {
        throw;
    } catch (...) {
        invocation.fail("changes", reasonOfCurrentFailure());
        return exitFailed;
    }
}

} // namespace cli
