#include "../commands.hpp"
#include "../display.hpp"
#include "../entry_facts.hpp"
#include "../json_text.hpp"
#include "../link_target.hpp"
#include "../tree_listing.hpp"
#include "../tree_walk.hpp"
#include "../walked_path.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/vfs/listing/folder_listing.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>
#include <foundation/storage/vfs/storage_system/exists.hpp>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <limits>
#include <optional>
#include <utility>

namespace cli {

namespace vfs = foundation::storage::vfs;

using fl::i18n::ustring;
using foundation::storage::provider::ExtendedExistsResult;
using vfs::FileOrFolderEntry;

namespace {

struct Wishes {
    bool files = false;
    bool human = false;
    bool json = false;
    std::size_t depth = std::numeric_limits<std::size_t>::max();
};

// What a folder holds, with everything below it.
struct Sum {
    std::uint64_t bytes = 0;
    std::uint64_t files = 0;
    std::uint64_t folders = 0;
    std::uint64_t unsizedFiles = 0; // files of which the storage does not tell the size
    bool complete = true;

    Sum& operator+=(Sum const& other) {
        bytes += other.bytes;
        files += other.files;
        folders += other.folders;
        unsizedFiles += other.unsizedFiles;
        complete = complete && other.complete;
        return *this;
    }
};

Sum sumOfFile(std::optional<std::uint64_t> size) {
    return {size.value_or(0), 1, 0, size ? 0u : 1u, true};
}

void printSum(Output& output, Wishes const& wishes, std::string const& pathBelow,
              Location const& location, bool folder, Sum const& sum) {
    if (!wishes.json) {
        std::string const size =
            wishes.human ? shortSize(static_cast<double>(sum.bytes)) : std::to_string(sum.bytes);
        output.printLine(size + '\t' + location.shown());
        output.flushBlock();
        return;
    }
    nlohmann::ordered_json object{{"path", bytesAsJson(pathBelow)},
                                  {"location", locationForPrograms(location.iri.toString())},
                                  {"kind", folder ? "folder" : "file"},
                                  {"size", sum.bytes}};
    if (folder) {
        object["files"] = sum.files;
        object["folders"] = sum.folders;
    }
    object["complete"] = sum.complete && sum.unsizedFiles == 0;
    output.print(jsonLine(object));
    output.flushBlock();
}

// The sums of the folders that a walk is in. Of each one it keeps a few numbers.
class OpenFolders {
  public:
    OpenFolders(Output& output, Location const& top, Wishes const& wishes)
        : output_(output),
          wishes_(wishes),
          path_(top) {}

    WalkedPath& path() noexcept { return path_; }

    /// The folder where the path is.
    void open() { sums_.emplace_back(); }
    void addFile(ustring const& name, std::optional<std::uint64_t> size) {
        Sum const sum = sumOfFile(size);
        sums_.back() += sum;
        if (wishes_.files && sums_.size() <= wishes_.depth) {
            std::string const below = path_.pathOf(fl::i18n::toDisplayString(name));
            printSum(output_, wishes_, below, childLocation(path_.location(), name), false, sum);
        }
    }
    void markIncomplete() { sums_.back().complete = false; }
    /// REQUIRES: the path is where it was for open(). Gives the sum.
    Sum close() {
        Sum sum = sums_.back();
        sums_.pop_back();
        if (sums_.size() <= wishes_.depth) {
            printSum(output_, wishes_, path_.belowTop(), path_.location(), true, sum);
        }
        if (!sums_.empty()) {
            sums_.back() += sum;
            ++sums_.back().folders;
        }
        return sum;
    }

  private:
    Output& output_;
    Wishes const& wishes_;
    WalkedPath path_;
    std::vector<Sum> sums_;
};

// Adds one tree up.
class Sizer {
  public:
    Sizer(Invocation& invocation, Location const& top, Wishes const& wishes)
        : invocation_(invocation),
          top_(top),
          folders_(invocation.output(), top, wishes) {}

    void run() {
        bool const whole = listsTrees(invocation_.system(), top_.iri);
        Sum const sum = whole ? addListing() : addByWalk();
        if (sum.unsizedFiles > 0) {
            invocation_.fail(top_.shown(),
                             fmt::format("the storage does not tell the size of {} {}, which {} "
                                         "as nothing",
                                         sum.unsizedFiles, sum.unsizedFiles == 1 ? "file" : "files",
                                         sum.unsizedFiles == 1 ? "counts" : "count"));
        }
    }

  private:
    // Of a tree that its storage lists, each folder before what is in it. That is much faster at
    // great depth, as no folder is looked up by its path.
    Sum addListing() {
        folders_.open();
        level_.push_back({0, 0});
        if (!invocation_.attempt(std::span(&top_, 1), [&] { takeAll(); })) {
            folders_.markIncomplete();
        }
        while (level_.size() > 1) {
            leave();
        }
        return folders_.close();
    }

    void takeAll() {
        auto const listing = vfs::Folder(top_.iri, invocation_.system()).listAllEntriesRecursive();
        auto const end = listing.end();
        auto position = listing.begin();
        while (position != end) {
            take(*position);
            if (!moveOn(position)) {
                return;
            }
        }
    }

    void take(FileOrFolderEntry const& entry) {
        ustring const& path = nameOf(entry);
        std::size_t const slash = path.rfind(u'/');
        std::size_t const parent = slash == ustring::npos ? 0 : slash;
        while (level_.size() > 1 && level_.back().length > parent) {
            leave();
        }
        level_.back().childless = false;
        ustring const name = slash == ustring::npos ? path : path.substr(slash + 1);
        if (!isFolder(entry)) {
            addFile(name, entry);
            return;
        }
        level_.push_back({path.size(), folders_.path().length()});
        folders_.path().enter(fl::i18n::toDisplayString(name));
        folders_.open();
    }

    void leave() {
        // A listing passes over a folder that denies access as if it were empty.
        if (level_.back().childless) {
            checkReadable();
        }
        folders_.close();
        folders_.path().returnTo(level_.back().parentLength);
        level_.pop_back();
    }

    void checkReadable() {
        Location const folder = folders_.path().location();
        try {
            vfs::Folder(folder.iri, invocation_.system()).listAll();
        } catch (...) {
            report(folder);
        }
    }

    template<class Iterator>
    bool moveOn(Iterator& position) {
        Step const step = moveBehindFailures(invocation_, top_, position);
        if (step != Step::Moved) {
            folders_.markIncomplete();
            level_.back().childless = false; // what is wrong with it was told
        }
        return step != Step::Ended;
    }

    // The exception that is being handled. What vanishes while it is counted does not count.
    void report(Location const& location) {
        if (codeOfCurrentFailure() != vfs::ErrorCode::ResourceNotFound) {
            invocation_.attempt(std::span(&location, 1), [] { throw; });
            folders_.markIncomplete();
        }
    }

    Sum addByWalk() {
        Sum sum;
        walkTree(
            folders_.path(), [&] { return addFolder(); }, [&] { sum = folders_.close(); });
        return sum;
    }

    std::vector<std::string> addFolder() {
        folders_.open();
        std::vector<std::string> inner;
        Location const folder = folders_.path().location();
        try {
            auto const entries = vfs::Folder(folder.iri, invocation_.system()).listAllEntries();
            for (FileOrFolderEntry const& entry : entries) {
                if (isFolder(entry)) {
                    inner.push_back(fl::i18n::toDisplayString(nameOf(entry)));
                } else {
                    addFile(nameOf(entry), entry);
                }
            }
        } catch (...) {
            report(folder);
        }
        return inner;
    }

    void addFile(ustring const& name, FileOrFolderEntry const& entry) {
        std::optional<std::uint64_t> size;
        try {
            // Attributes that the listing did not bring are asked for here.
            size = boost::get<vfs::FileEntry>(entry).getAttributes().values().size;
        } catch (...) {
            report(childLocation(folders_.path().location(), name));
            return;
        }
        folders_.addFile(name, size);
    }

    // A folder on the way down a listing.
    struct Level {
        std::size_t length;       // of its path as the listing spells it
        std::size_t parentLength; // of the path of the folder above, in bytes
        bool childless = true;
    };

    Invocation& invocation_;
    Location const& top_;
    OpenFolders folders_;
    std::vector<Level> level_;
};

// What is no folder, and a link that was not told to be followed by a slash behind it.
void sizeFile(Invocation& invocation, Location const& location, Wishes const& wishes,
              ExtendedExistsResult kind) {
    std::optional<std::string> const target =
        isLink(kind) ? linkTarget(invocation.system(), location.iri) : std::nullopt;
    std::optional<std::uint64_t> const size =
        target ? target->size()
               : vfs::File(location.iri, invocation.system()).getAttributes().values().size;
    if (!size) {
        throw Refusal("the storage does not tell the size");
    }
    printSum(invocation.output(), wishes, "", location, false, sumOfFile(size));
}

void sizeAt(Invocation& invocation, Location const& location, Wishes const& wishes) {
    ExtendedExistsResult const kind = existsExtended(location.iri, invocation.system());
    if (kind == ExtendedExistsResult::Nothing) {
        throw Refusal(wordsFor(vfs::ErrorCode::ResourceNotFound));
    }
    bool const followed = kind == ExtendedExistsResult::LinkToFolder && location.wantsFolder();
    if (kind == ExtendedExistsResult::Folder || followed) {
        Sizer(invocation, location, wishes).run();
    } else if (location.wantsFolder()) {
        throw Refusal("is not a folder");
    } else {
        sizeFile(invocation, location, wishes, kind);
    }
}

} // namespace

int runDu(Host& host, Words const& words) {
    Wishes wishes;
    bool sumOnly = false;
    std::optional<std::string> depth;
    Arguments arguments(
        {"du",
         "Adds up the sizes of everything below folders, and prints each folder behind what is in "
         "it: bytes, and the location. The size of a file is that of its content, not what it "
         "takes up on a disk, and a folder itself has none. A file with several names counts for "
         "each; a link counts as itself and is not followed, unless it is LOCATION and a slash "
         "stands behind it. Without LOCATION it is the working directory.",
         {"vfs du", "vfs du -sh docs notes.txt", "vfs du -a -d 1 .", "vfs du --json mem:"},
         "--help"});
    arguments.flag("-a,--all", wishes.files, "Print files too")
        .option("-d,--max-depth", depth, "DEPTH",
                "Print no more than so many levels below LOCATION; all are counted")
        .flag("-h,--human-readable", wishes.human, "Print sizes as in 1.5 MiB")
        .flag("-s,--summarize", sumOnly, "Print the sum for each LOCATION alone; the same as -d 0")
        .flag("--json", wishes.json, "Print a JSON object for each line")
        .takes("[LOCATION]", 0, Arguments::unlimited);
    if (!arguments.read(words)) {
        return printHelp(host, arguments);
    }
    if (depth) {
        std::optional<std::size_t> const number = wholeNumber(*depth);
        if (!number) {
            throw UsageError("-d takes a whole number");
        }
        wishes.depth = *number;
    }
    if (sumOnly) {
        if (wishes.files || (depth && wishes.depth > 0)) {
            throw UsageError("-s and " + std::string(wishes.files ? "-a" : "-d") +
                             " exclude each other");
        }
        wishes.depth = 0;
    }
    Invocation invocation(host, "du");
    bool const named = !arguments.operands().empty();
    invocation.forEach(named ? arguments.operands() : Words{"."},
                       [&](Location const& location) { sizeAt(invocation, location, wishes); });
    return invocation.finish();
}

} // namespace cli
