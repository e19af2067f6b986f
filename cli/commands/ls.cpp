#include "../commands.hpp"
#include "../display.hpp"
#include "../entry_line.hpp"
#include "../walked_path.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/wildcard.hpp>
#include <foundation/storage/vfs/listing/folder_listing.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>
#include <foundation/storage/vfs/storage_system/exists.hpp>

#include <algorithm>
#include <optional>
#include <utility>

namespace cli {

namespace vfs = foundation::storage::vfs;

using foundation::storage::provider::ExtendedExistsResult;
using vfs::FileOrFolderEntry;

namespace {

struct Wishes {
    bool details = false;
    bool hidden = false;
    bool recursive = false;
    bool json = false;
    fl::i18n::ustring pattern; // empty for all
};

// The folders inside of one that are still to be listed.
struct Level {
    std::size_t pathLength; // of the one that they are in
    std::vector<std::string> names;
    std::size_t next = 0;
};

// An entry as it will be shown once its folder is complete and sorted.
struct Row {
    std::string name;
    std::string columns;
    std::optional<std::string> target;
    bool folder = false;
};

class Lister {
  public:
    Lister(Invocation& invocation, Wishes wishes)
        : invocation_(invocation),
          output_(invocation.output()),
          wishes_(std::move(wishes)) {}

    void list(std::vector<std::string> const& operands) {
        headings_ = operands.size() > 1 || wishes_.recursive;
        // Files come first, as one block without a heading.
        std::vector<Location> folders;
        invocation_.forEach(operands, [&](Location const& location) {
            ExtendedExistsResult const kind = existsExtended(location.iri, invocation_.system());
            if (kind == ExtendedExistsResult::Nothing) {
                throw Refusal(wordsFor(vfs::ErrorCode::ResourceNotFound));
            }
            if (kind == ExtendedExistsResult::Folder ||
                kind == ExtendedExistsResult::LinkToFolder) {
                folders.push_back(location);
                return;
            }
            if (location.wantsFolder()) {
                throw Refusal("is not a folder");
            }
            showFile(location, kind);
        });
        for (Location const& folder : folders) {
            walk(folder);
        }
    }

  private:
    void showFile(Location const& location, ExtendedExistsResult kind) {
        blocks_ = 1;
        if (!wishes_.json && !wishes_.details) {
            output_.printLine(location.shown());
            return;
        }
        EntryFacts const facts = factsOfFile(invocation_.system(), location, kind);
        if (wishes_.json) {
            output_.print(entryAsJson(facts));
            return;
        }
        std::string const target = facts.target ? " -> " + onOneLine(*facts.target) : "";
        output_.printLine(detailColumns(facts) + location.shown() + target);
    }

    // One folder at a time: what is kept are the names of the folders to come.
    void walk(Location const& top) {
        WalkedPath path(top);
        std::vector<Level> open;
        listFolder(path, open);
        while (!open.empty()) {
            Level& level = open.back();
            path.returnTo(level.pathLength);
            path.enter(level.names[level.next++]);
            if (level.next == level.names.size()) {
                open.pop_back();
            }
            listFolder(path, open);
        }
    }

    void listFolder(WalkedPath const& path, std::vector<Level>& open) {
        Location const location = path.location();
        std::vector<Row> rows;
        std::vector<std::string> folders;
        bool opened = false;
        invocation_.attempt(std::span(&location, 1), [&] {
            vfs::Folder const folder(location.iri, invocation_.system());
            // What a pattern leaves out is entered all the same, so it must be seen.
            auto const listing = folder.listAllEntries(wishes_.recursive ? u"" : wishes_.pattern);
            opened = true;
            EntryReader const reader(invocation_.system(), location.iri);
            for (FileOrFolderEntry const& entry : listing) {
                take(path, location, reader, entry, rows);
                if (wishes_.recursive && isFolder(entry) && !isHidden(entry)) {
                    folders.push_back(fl::i18n::toDisplayString(nameOf(entry)));
                }
            }
        });
        if (opened && !wishes_.json) {
            showBlock(location, rows);
        }
        output_.flushBlock();
        if (!folders.empty()) {
            if (!wishes_.json) {
                std::sort(folders.begin(), folders.end());
            }
            open.push_back({path.length(), std::move(folders)});
        }
    }

    bool isHidden(FileOrFolderEntry const& entry) const {
        return !wishes_.hidden && nameOf(entry).starts_with(u'.');
    }

    bool isWanted(FileOrFolderEntry const& entry) const {
        // As in a shell, a pattern that begins with a dot asks for such names.
        if (isHidden(entry) && !wishes_.pattern.starts_with(u'.')) {
            return false;
        }
        using foundation::storage::provider::matchesWildcard;
        return !wishes_.recursive || wishes_.pattern.empty() ||
               matchesWildcard(wishes_.pattern, nameOf(entry));
    }

    void take(WalkedPath const& path, Location const& folder, EntryReader const& reader,
              FileOrFolderEntry const& entry, std::vector<Row>& rows) {
        if (!isWanted(entry)) {
            return;
        }
        std::string name = fl::i18n::toDisplayString(nameOf(entry));
        if (!wishes_.json && !wishes_.details) {
            rows.push_back({std::move(name), "", std::nullopt, isFolder(entry)});
            return;
        }
        std::optional<EntryFacts> facts;
        Location const location = childLocation(folder, nameOf(entry));
        invocation_.attempt(std::span(&location, 1), [&] {
            facts = reader.factsOf(entry, location.iri, path.pathOf(name));
        });
        if (facts && facts->kind == ExtendedExistsResult::Nothing) {
            return; // gone since it was listed
        }
        if (!wishes_.json) {
            rows.push_back({std::move(name),
                            facts ? detailColumns(*facts) : unknownColumns(isFolder(entry)),
                            facts ? std::move(facts->target) : std::nullopt, isFolder(entry)});
        } else if (facts) {
            output_.print(entryAsJson(*facts));
            output_.flushBlock();
        }
    }

    void showBlock(Location const& folder, std::vector<Row>& rows) {
        bool const filtered = wishes_.recursive && !wishes_.pattern.empty();
        if (filtered && rows.empty()) {
            return; // a heading for each folder without a match would hide the matches
        }
        if (headings_) {
            output_.print(blocks_ > 0 ? "\n" : "");
            output_.printLine(output_.heading(folder.shown() + ":"));
        }
        ++blocks_;
        std::sort(rows.begin(), rows.end(),
                  [](Row const& a, Row const& b) { return a.name < b.name; });
        for (Row const& row : rows) {
            output_.print(row.columns);
            output_.printLine(shownName(row.name, row.folder, row.target));
        }
    }

    Invocation& invocation_;
    Output& output_;
    Wishes wishes_;
    bool headings_ = false;
    std::size_t blocks_ = 0;
};

} // namespace

int runLs(Host& host, Words const& words) {
    Wishes wishes;
    std::optional<std::string> pattern;
    Arguments arguments(
        {"ls",
         "Lists what is in folders, sorted by name, a slash behind the names of folders. Without "
         "LOCATION it is the working directory. Names that begin with a dot are left out.",
         {"vfs ls", "vfs ls -l docs notes.txt", "vfs ls -R -p '*.txt' .",
          "vfs ls --json file:///etc"}});
    arguments.flag("-a,--all", wishes.hidden, "Show names that begin with a dot too")
        .flag("-l,--long", wishes.details,
              "Show kind and mode, size, time of modification, and where links lead")
        .option(
            "-p,--pattern", pattern, "PATTERN",
            "Show matching names only: * is any number of characters, ? is one UTF-16 code unit (a "
            "character beyond U+FFFF counts as two)")
        .flag("-R,--recursive", wishes.recursive,
              "List the folders inside too, whether they match or not; links are not followed")
        .flag("--json", wishes.json,
              "Print a JSON object for each entry, on a line, at once and unsorted")
        .takes("[LOCATION]", 0, Arguments::unlimited);
    if (!arguments.read(words)) {
        return printHelp(host, arguments);
    }
    if (pattern) {
        wishes.pattern = fl::i18n::storageNameToUstring(*pattern);
    }
    Invocation invocation(host, "ls");
    bool const named = !arguments.operands().empty();
    Lister(invocation, std::move(wishes)).list(named ? arguments.operands() : Words{"."});
    return invocation.finish();
}

} // namespace cli
