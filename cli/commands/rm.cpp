#include "../commands.hpp"
#include "../interruption.hpp"
#include "../link_target.hpp"
#include "../tree_removal.hpp"

#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/storage_system/exists.hpp>

#include <fmt/format.h>

#include <cstdio>
#include <string_view>

namespace cli {

namespace vfs = foundation::storage::vfs;

using foundation::storage::provider::ExtendedExistsResult;

namespace {

struct Wishes {
    RemovalWishes items;
    bool trees = false;
    bool emptyFolders = false;
    bool missingIsFine = false;
};

template<class Text>
bool endsInADotSegment(Text text) {
    while (!text.empty() && text.back() == '/') {
        text.remove_suffix(1);
    }
    Text const last = text.substr(text.rfind('/') + 1); // npos + 1 is 0
    return (last.size() == 1 || last.size() == 2) && last.front() == '.' && last.back() == '.';
}

// What is never meant, or too much to lose by a slip.
void refuseDangerous(Location const& location) {
    auto const iri = location.iri.toStorageIRI();
    if (endsInADotSegment(std::string_view(location.typed)) ||
        endsInADotSegment(std::u16string_view(iri.getPath()))) {
        throw Refusal("is not removed, because it ends in '.' or '..'");
    }
    if (iri.getResolvedPath() == u"/") {
        throw Refusal("is not removed, because it is the root of its storage");
    }
}

// One run of rm.
class Removal {
  public:
    Removal(Invocation& invocation, Wishes const& wishes, std::size_t locations)
        : invocation_(invocation),
          wishes_(wishes),
          items_(invocation, wishes.items),
          locations_(locations) {}

    void remove(Location const& location) {
        refuseDangerous(location);
        ExtendedExistsResult const kind = existsExtended(location.iri, invocation_.system());
        if (kind == ExtendedExistsResult::Nothing) {
            if (!wishes_.missingIsFine) {
                throw Refusal(wordsFor(vfs::ErrorCode::ResourceNotFound));
            }
            ++removed_;
            return;
        }
        if (kind == ExtendedExistsResult::Folder) {
            removeFolder(location);
        } else {
            removeFile(location, kind);
        }
        if (!wishes_.items.dryRun) {
            invocation_.changed(location);
        }
    }

    /// Where a tree was among the locations, for those that ended in a failure or a signal.
    void sumUp() {
        bool const interrupted = interruptingSignal() != 0;
        if (ofTrees_ && (interrupted || invocation_.failures().count() > 0)) {
            invocation_.output().flush();
            std::string line = "vfs: rm: ";
            line += (interrupted ? "interrupted; " : "") + doneInWords();
            line += invocation_.failures().count() > 0
                        ? ", " + invocation_.failures().inWords() + "\n"
                        : "\n";
            std::fwrite(line.data(), 1, line.size(), stderr);
        }
    }

  private:
    void removeFile(Location const& location, ExtendedExistsResult kind) {
        if (location.wantsFolder()) {
            throw Refusal(isLink(kind) ? "is a link, which is removed without the slash"
                                       : "is not a folder");
        }
        try {
            removed_ += items_.removeFile(location) ? 1 : 0;
        } catch (vfs::Exception const& failure) {
            // Somebody else was faster.
            if (failure.getErrorCode() != vfs::ErrorCode::ResourceNotFound ||
                !wishes_.missingIsFine) {
                throw;
            }
        }
    }

    void removeFolder(Location const& location) {
        if (wishes_.trees) {
            ofTrees_ = true;
            std::string const notice = "vfs: rm: interrupted; " + doneInWords() + ", " +
                                       location.shown() + " perhaps in part\n";
            TreeRemoval removal(invocation_, wishes_.items, location);
            removed_ += removal.remove(notice) ? 1 : 0;
            return;
        }
        if (!wishes_.emptyFolders) {
            throw Refusal("is a folder (-r removes it with what is in it, -d an empty one)");
        }
        try {
            removed_ += items_.removeEmptyFolder(location) ? 1 : 0;
        } catch (vfs::Exception const& failure) {
            if (failure.getErrorCode() == vfs::ErrorCode::FolderNotEmpty) {
                throw Refusal("folder not empty (-r removes it with what is in it)");
            }
            throw;
        }
    }

    std::string doneInWords() const {
        return fmt::format("{} of {} {} {}removed", removed_, locations_,
                           locations_ == 1 ? "location" : "locations",
                           wishes_.items.dryRun ? "would be " : "");
    }

    Invocation& invocation_;
    Wishes const& wishes_;
    ItemRemoval const items_;
    std::size_t const locations_;
    std::size_t removed_ = 0;
    bool ofTrees_ = false;
};

} // namespace

int runRm(Host& host, Words const& words) {
    Wishes wishes;
    Arguments arguments(
        {"rm",
         "Removes files, and with -r folders with everything in them. Of a link, the link itself "
         "is removed, and no link is followed. Goes on after a failure. The root of a storage, and "
         "what ends in '.' or '..', is refused.",
         {"vfs rm old.log", "vfs rm -r docs", "vfs rm -d empty", "vfs rm -f old.log missing.log",
          "vfs rm -r --dry-run docs empty"}});
    arguments.flag("-d,--dir", wishes.emptyFolders, "Remove empty folders too")
        .flag("-f,--force", wishes.missingIsFine, "A missing file is no error")
        .flag("-i,--interactive", wishes.items.ask, "Ask before each removal")
        .flag("-r,-R,--recursive", wishes.trees, "Remove folders with everything in them")
        .flag("-v,--verbose", wishes.items.verbose, "Print each item that was removed")
        .flag("--dry-run", wishes.items.dryRun, "Print what would be removed, and remove nothing")
        .takes("LOCATION", 1, Arguments::unlimited);
    if (!arguments.read(words)) {
        return printHelp(host, arguments);
    }
    if (wishes.items.ask && wishes.missingIsFine) {
        throw UsageError("-f and -i exclude each other");
    }
    if (wishes.items.ask && host.inputIsScript()) {
        throw UsageError("-i asks on standard input, which holds the commands here");
    }
    InterruptionGuard const guard;
    Invocation invocation(host, "rm");
    Removal removal(invocation, wishes, arguments.operands().size());
    try {
        invocation.forEach(arguments.operands(),
                           [&](Location const& location) { removal.remove(location); });
    } catch (Interrupted const&) {
        removal.sumUp();
        throw;
    }
    removal.sumUp();
    return invocation.finish();
}

} // namespace cli
