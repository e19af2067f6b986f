#include "../commands.hpp"
#include "../display.hpp"
#include "../entry_line.hpp"
#include "../walked_path.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/vfs/listing/folder_listing.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>
#include <foundation/storage/vfs/storage_system/exists.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <langinfo.h>
#include <limits>
#include <locale.h>
#include <optional>
#include <string_view>
#include <utility>

namespace cli {

namespace vfs = foundation::storage::vfs;

using foundation::storage::provider::ExtendedExistsResult;
using vfs::FileOrFolderEntry;

namespace {

struct Strokes {
    std::string_view branch;
    std::string_view lastBranch;
    std::string_view trunk;
    std::string_view blank;
};

// What the terminal shows is for the locale to say.
Strokes strokesForLocale() {
    locale_t const locale = ::newlocale(LC_CTYPE_MASK, "", nullptr);
    bool const utf8 =
        locale != nullptr && std::string_view(::nl_langinfo_l(CODESET, locale)) == "UTF-8";
    if (locale != nullptr) {
        ::freelocale(locale);
    }
    return utf8 ? Strokes{"├── ", "└── ", "│   ", "    "} : Strokes{"|-- ", "`-- ", "|   ", "    "};
}

struct Wishes {
    bool hidden = false;
    std::size_t depth = std::numeric_limits<std::size_t>::max();
};

std::size_t depthNamed(std::string const& text) {
    std::optional<std::size_t> const depth = wholeNumber(text);
    if (!depth || *depth == 0) {
        throw UsageError("-L takes a whole number, 1 or more");
    }
    return *depth;
}

struct Row {
    std::string name;
    bool folder = false;
    std::optional<std::string> target;
    std::string problem; // why less than everything is known
};

// A folder whose rows are being drawn.
struct Level {
    std::size_t depth;
    std::size_t pathLength;
    std::size_t indentLength;
    std::vector<Row> rows;
    std::size_t next = 0;
};

std::string counted(std::size_t count, std::string_view noun) {
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

class Drawer {
  public:
    Drawer(Invocation& invocation, Location const& root, Wishes const& wishes)
        : invocation_(invocation),
          output_(invocation.output()),
          wishes_(wishes),
          strokes_(strokesForLocale()),
          root_(root),
          path_(root) {}

    void draw() {
        std::vector<Row> rows;
        bool const complete =
            invocation_.attempt(std::span(&root_, 1), [&] { readInto(rows, root_); });
        if (!complete && rows.empty()) {
            return;
        }
        output_.printLine(output_.heading(root_.shown()));
        open(1, std::move(rows));
        while (!open_.empty()) {
            drawNext();
        }
        output_.print("\n" + counted(folders_, "folder") + ", " + counted(files_, "file"));
        output_.printLine(unreadable_ > 0 ? fmt::format(", {} unreadable", unreadable_) : "");
    }

  private:
    // Only folders with rows to come are kept: that is what makes a deep and narrow tree cheap.
    void open(std::size_t depth, std::vector<Row> rows) {
        if (!rows.empty()) {
            open_.push_back({depth, path_.length(), indent_.size(), std::move(rows)});
        }
    }

    void drawNext() {
        Level& level = open_.back();
        Row row = std::move(level.rows[level.next++]);
        bool const last = level.next == level.rows.size();
        std::size_t const depth = level.depth;
        path_.returnTo(level.pathLength);
        indent_.resize(level.indentLength);
        ++(row.folder ? folders_ : files_);
        std::string line = indent_;
        line += last ? strokes_.lastBranch : strokes_.branch;
        line += shownName(row.name, row.folder, row.target);
        std::vector<Row> inner;
        // A folder is read before its own line ends, where a failure is noted.
        if (row.folder && depth < wishes_.depth) {
            path_.enter(row.name);
            Location const folder = path_.location();
            row.problem = reasonFor(folder, [&] { readInto(inner, folder); });
        }
        if (!row.problem.empty()) {
            line += " [" + row.problem + "]";
            ++unreadable_;
            invocation_.failQuietly();
        }
        output_.printLine(line);
        output_.flushBlock();
        if (last) {
            open_.pop_back();
        }
        indent_ += last ? strokes_.blank : strokes_.trunk;
        open(depth + 1, std::move(inner));
    }

    // Rows that were read before a failure stay.
    void readInto(std::vector<Row>& rows, Location const& location) {
        vfs::Folder const folder(location.iri, invocation_.system());
        EntryReader const reader(invocation_.system(), location.iri);
        auto const byName = [](Row const& a, Row const& b) { return a.name < b.name; };
        try {
            for (FileOrFolderEntry const& entry : folder.listAllEntries()) {
                if (wishes_.hidden || !nameOf(entry).starts_with(u'.')) {
                    rows.push_back(rowOf(reader, entry));
                }
            }
        } catch (...) {
            std::sort(rows.begin(), rows.end(), byName);
            throw;
        }
        std::sort(rows.begin(), rows.end(), byName);
    }

    Row rowOf(EntryReader const& reader, FileOrFolderEntry const& entry) {
        Row row{fl::i18n::toDisplayString(nameOf(entry)), isFolder(entry), std::nullopt, ""};
        try {
            row.target = reader.targetOf(entry);
        } catch (...) {
            // A link that is gone by now stays a name.
            if (codeOfCurrentFailure() != vfs::ErrorCode::ResourceNotFound) {
                row.problem = reasonOfCurrentFailure();
            }
        }
        return row;
    }

    // Why `action` failed; empty where it did not.
    template<class Action>
    std::string reasonFor(Location const& location, Action const& action) {
        try {
            action();
            return {};
        } catch (...) {
            return describeCurrentFailure(invocation_.system(), std::span(&location, 1)).reason;
        }
    }

    Invocation& invocation_;
    Output& output_;
    Wishes const& wishes_;
    Strokes strokes_;
    Location const& root_;
    WalkedPath path_;
    std::string indent_;
    std::vector<Level> open_;
    std::size_t folders_ = 0;
    std::size_t files_ = 0;
    std::size_t unreadable_ = 0;
};

} // namespace

int runTree(Host& host, Words const& words) {
    Wishes wishes;
    std::optional<std::string> depth;
    Arguments arguments(
        {"tree",
         "Draws the tree below a folder, sorted by name. Without LOCATION it is the working "
         "directory. Links are shown with where they lead, and not followed. For programs there "
         "is 'vfs find --json'.",
         {"vfs tree", "vfs tree -L 1 docs", "vfs tree -a mem:"}});
    arguments.flag("-a,--all", wishes.hidden, "Show names that begin with a dot too")
        .option("-L,--level", depth, "DEPTH", "Show no more than so many levels")
        .takes("[LOCATION]", 0, 1);
    if (!arguments.read(words)) {
        return printHelp(host, arguments);
    }
    if (depth) {
        wishes.depth = depthNamed(*depth);
    }
    Invocation invocation(host, "tree");
    bool const named = !arguments.operands().empty();
    invocation.forEach(named ? arguments.operands() : Words{"."}, [&](Location const& location) {
        switch (existsExtended(location.iri, invocation.system())) {
        case ExtendedExistsResult::Nothing:
            throw Refusal(wordsFor(vfs::ErrorCode::ResourceNotFound));
        case ExtendedExistsResult::File:
        case ExtendedExistsResult::LinkToFile:
        case ExtendedExistsResult::Other:
            throw Refusal("is not a folder");
        default:
            Drawer(invocation, location, wishes).draw();
        }
    });
    return invocation.finish();
}

} // namespace cli
