#include "../commands.hpp"
#include "../entry_line.hpp"
#include "../tree_listing.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/wildcard.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/listing/folder_listing.hpp>
#include <foundation/storage/vfs/listing/list_entry.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>
#include <foundation/storage/vfs/storage_system/exists.hpp>

#include <optional>
#include <span>
#include <string_view>
#include <utility>

namespace cli {

namespace vfs = foundation::storage::vfs;

using fl::i18n::ustring;
using foundation::storage::provider::ExtendedExistsResult;
using vfs::FileOrFolderEntry;

namespace {

enum class Kind { Any, File, Folder };

struct Wishes {
    ustring pattern;
    Kind kind = Kind::Any;
    char end = '\n';
    bool json = false;
};

Kind kindNamed(std::optional<std::string> const& letter) {
    if (!letter) {
        return Kind::Any;
    }
    if (*letter != "f" && *letter != "d") {
        throw UsageError("-t takes f for files or d for folders");
    }
    return *letter == "f" ? Kind::File : Kind::Folder;
}

// One entry exists at a time, so that memory does not grow with the tree.
class Finder {
  public:
    Finder(Invocation& invocation, Location const& root, Wishes const& wishes)
        : invocation_(invocation),
          output_(invocation.output()),
          root_(root),
          wishes_(wishes),
          folder_(root.iri, invocation.system()),
          walksByItself_(listsTrees(invocation.system(), root.iri)) {}

    void find() {
        if (wishes_.json) {
            printFacts();
        } else if (wishes_.kind == Kind::Any && walksByItself_) {
            printNames();
        } else {
            printPaths();
        }
    }

  private:
    // What comes from a storage that walks by itself is named by its path. For any other storage
    // the names alone would cost it a question for each entry.
    void printNames() {
        forEach(&vfs::Folder::listAllRecursive, [&](vfs::ListEntry const& entry) {
            if (matches(entry.getName())) {
                print(entry.getName());
            }
        });
    }

    void printPaths() {
        forEach(&vfs::Folder::listAllEntriesRecursive, [&](FileOrFolderEntry const& entry) {
            if (isWanted(entry)) {
                print(pathOf(entry));
            }
        });
    }

    void printFacts() {
        EntryReader const reader(invocation_.system(), root_.iri);
        forEach(&vfs::Folder::listAllEntriesRecursive, [&](FileOrFolderEntry const& entry) {
            if (isWanted(entry)) {
                printFactsOf(entry, reader);
            }
        });
    }

    void printFactsOf(FileOrFolderEntry const& entry, EntryReader const& reader) {
        ustring const path = pathOf(entry);
        Location const location = childLocation(root_, path);
        invocation_.attempt(std::span(&location, 1), [&] {
            EntryFacts const facts =
                reader.factsOf(entry, location.iri, fl::i18n::toDisplayString(path));
            if (facts.kind != ExtendedExistsResult::Nothing) {
                output_.print(entryAsJson(facts));
            }
        });
        output_.flushBlock();
    }

    template<class Entry, class Take>
    void forEach(vfs::FolderListing<Entry> (vfs::Folder::*listing)(ustring) const,
                 Take const& take) {
        vfs::FolderListing<Entry> const entries = listed(listing);
        auto const end = entries.end();
        auto position = entries.begin();
        while (position != end) {
            take(*position);
            if (!moveOn(position)) {
                return;
            }
        }
    }

    // A listing begins at its first match. Where a folder that fails stands before that, all is
    // listed instead, and the pattern held against it here, so that what is behind comes too.
    template<class Entry>
    vfs::FolderListing<Entry> listed(vfs::FolderListing<Entry> (vfs::Folder::*listing)(ustring)
                                         const) {
        if (!wishes_.pattern.empty()) {
            try {
                return (folder_.*listing)(wishes_.pattern);
            } catch (vfs::Exception const&) {
                matchesHere_ = true;
            }
        }
        return (folder_.*listing)(ustring());
    }

    // Reports what fails. False where there is no going on: a walk by the system would try the same
    // step again, perhaps for ever.
    template<class Iterator>
    bool moveOn(Iterator& position) {
        if (walksByItself_) {
            return moveBehindFailures(invocation_, root_, position) != Step::Ended;
        }
        try {
            ++position;
            return true;
        } catch (...) {
            FailureText const failure = describeFailureBelow(invocation_.system(), root_);
            invocation_.fail(failure.subject, failure.reason);
            return false;
        }
    }

    bool isWanted(FileOrFolderEntry const& entry) const {
        bool const rightKind =
            wishes_.kind == Kind::Any || (wishes_.kind == Kind::Folder) == isFolder(entry);
        return rightKind && matches(nameOf(entry));
    }

    bool matches(std::u16string_view path) const {
        using foundation::storage::provider::matchesWildcard;
        return !matchesHere_ ||
               matchesWildcard(wishes_.pattern, path.substr(path.rfind(u'/') + 1)); // npos + 1 is 0
    }

    ustring pathOf(FileOrFolderEntry const& entry) const {
        return walksByItself_ ? nameOf(entry) : getLocation(entry).makePathRelativeTo(root_.iri);
    }

    void print(ustring const& path) {
        output_.print(fl::i18n::toDisplayString(path));
        output_.print(std::string_view(&wishes_.end, 1));
        output_.flushBlock();
    }

    Invocation& invocation_;
    Output& output_;
    Location const& root_;
    Wishes const& wishes_;
    vfs::Folder folder_;
    bool walksByItself_;
    bool matchesHere_ = false;
};

} // namespace

int runFind(Host& host, Words const& words) {
    bool nul = false;
    Wishes wishes;
    std::optional<std::string> letter;
    Arguments arguments(
        {"find",
         "Prints the path below LOCATION of everything there, as it comes and unsorted. With "
         "PATTERN only names that match it: * is any number of characters, ? is one UTF-16 code "
         "unit (a character beyond U+FFFF counts as two). Links are not followed, and folders "
         "inside that cannot be read are passed over.",
         {"vfs find docs", "vfs find . '*.txt'", "vfs find -0 . '*.log' | xargs -0 ls",
          "vfs find --json -t f file:///etc/ssl"}});
    arguments.flag("-0,--null", nul, "End each path with a NUL byte instead of a line break")
        .option("-t,--type", letter, "KIND", "Only files (f) or folders (d); a link is a file")
        .flag("--json", wishes.json, "Print a JSON object for each entry, on a line")
        .takes("LOCATION [PATTERN]", 1, 2);
    if (!arguments.read(words)) {
        return printHelp(host, arguments);
    }
    wishes.kind = kindNamed(letter);
    wishes.end = nul ? '\0' : '\n';
    if (arguments.operands().size() > 1) {
        wishes.pattern = fl::i18n::storageNameToUstring(arguments.operands()[1]);
    }
    Invocation invocation(host, "find");
    invocation.forEach({arguments.operands().front()}, [&](Location const& location) {
        switch (existsExtended(location.iri, invocation.system())) {
        case ExtendedExistsResult::Nothing:
            throw Refusal(wordsFor(vfs::ErrorCode::ResourceNotFound));
        case ExtendedExistsResult::Folder:
        case ExtendedExistsResult::LinkToFolder:
        case ExtendedExistsResult::DanglingLink: // which the listing reports
            Finder(invocation, location, wishes).find();
            break;
        default: // nothing is below a file
            if (location.wantsFolder()) {
                throw Refusal("is not a folder");
            }
        }
    });
    return invocation.finish();
}

} // namespace cli
