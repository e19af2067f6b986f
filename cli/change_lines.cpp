#include "change_lines.hpp"

#include "arguments.hpp"
#include "display.hpp"
#include "json_text.hpp"

#include <fl/i18n/conversion.hpp>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace cli {

namespace vfs = foundation::storage::vfs;

using foundation::storage::events::Kind;
using foundation::storage::provider::StorageIRI;

namespace {

struct Word {
    Kind kind;
    char const* word;
};

constexpr std::array words{Word{Kind::Created, "created"}, Word{Kind::Modified, "modified"},
                           Word{Kind::AttributesChanged, "attributes"},
                           Word{Kind::Removed, "removed"}};

char const* wordFor(Kind kind) noexcept {
    for (Word const& each : words) {
        if (each.kind == kind) {
            return each.word;
        }
    }
    return "overflow";
}

} // namespace

struct ChangeLines::Change {
    Kind kind;
    StorageIRI item;
    bool isFolder;
    std::optional<StorageIRI> movedTo;
    std::optional<StorageIRI> movedFrom;
};

ChangeLines::ChangeLines(Location watched, std::set<Kind> kinds, bool json)
    : watched_(std::move(watched)),
      kinds_(std::move(kinds)),
      json_(json) {}

std::string ChangeLines::lineFor(vfs::Event const& event) const {
    vfs::FileOrFolder const resource = event.getEventData().getFileOrFolder();
    Change change{event.getEventData().getKind(),
                  getLocation(resource).toStorageIRI(),
                  boost::get<vfs::Folder>(&resource) != nullptr,
                  {},
                  {}};
    if (event.hasExtendedEventData()) {
        auto const extended = event.getExtendedEventData().getData();
        for (auto const& [key, end] :
             {std::pair{"movedTo", &change.movedTo}, std::pair{"movedFrom", &change.movedFrom}}) {
            if (auto const text = extended.get_optional<std::string>(key)) {
                *end = StorageIRI(fl::i18n::storageNameToUstring(*text));
            }
        }
    }
    return json_ ? forPrograms(change) : forPeople(change);
}

std::string ChangeLines::forPrograms(Change const& change) const {
    std::string const path =
        fl::i18n::toDisplayString(change.item.makePathRelativeTo(watched_.iri.toStorageIRI()));
    nlohmann::ordered_json object{{"event", wordFor(change.kind)},
                                  {"location", locationForPrograms(change.item.toString())},
                                  {"path", bytesAsJson(path)},
                                  {"type", change.isFolder ? "folder" : "file"}};
    if (change.movedTo) {
        object["movedTo"] = locationForPrograms(change.movedTo->toString());
    }
    if (change.movedFrom) {
        object["movedFrom"] = locationForPrograms(change.movedFrom->toString());
    }
    return jsonLine(object);
}

std::string ChangeLines::forPeople(Change const& change) const {
    std::string const item = shown(change.item, change.isFolder);
    if (change.movedTo) {
        return "moved " + item + " -> " + shown(*change.movedTo, change.isFolder) + "\n";
    }
    if (change.movedFrom) {
        // The removal has told of it, where removals are wanted.
        return kinds_.contains(Kind::Removed)
                   ? ""
                   : "moved " + shown(*change.movedFrom, change.isFolder) + " -> " + item + "\n";
    }
    std::string const lost = change.kind == Kind::Overflow ? " (changes were lost)" : "";
    return std::string(wordFor(change.kind)) + ' ' + item + lost + "\n";
}

std::string ChangeLines::shown(StorageIRI const& item, bool isFolder) const {
    StorageIRI const top = watched_.iri.toStorageIRI();
    std::string text;
    if (item == top) {
        text = watched_.shown();
    } else if (top.isAncestorOf(item)) {
        text = childLocation(watched_, item.makePathRelativeTo(top)).shown();
    } else {
        text = shownLocation(fl::i18n::toDisplayString(fromStorageIRI(item)));
    }
    return isFolder && !text.ends_with('/') ? text + '/' : text;
}

std::set<Kind> everyKind() {
    std::set<Kind> kinds;
    for (Word const& each : words) {
        kinds.insert(each.kind);
    }
    return kinds;
}

std::set<Kind> kindsNamed(std::string const& list) {
    std::set<Kind> kinds;
    for (std::size_t at = 0; at <= list.size();) {
        std::size_t const end = std::min(list.find(',', at), list.size());
        std::string const name = list.substr(at, end - at);
        auto const* const word = std::find_if(words.begin(), words.end(),
                                              [&](Word const& each) { return each.word == name; });
        if (word == words.end()) {
            throw UsageError("--events takes created, modified, attributes and removed, with "
                             "commas between them");
        }
        kinds.insert(word->kind);
        at = end + 1;
    }
    return kinds;
}

} // namespace cli
