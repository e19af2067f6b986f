#include "entry_line.hpp"

#include "display.hpp"
#include "iso_time.hpp"
#include "json_text.hpp"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace cli {

using foundation::storage::provider::AttributeValues;
using foundation::storage::provider::ExtendedExistsResult;

namespace {

constexpr char const* unknownMode = "?????????";

char letterOf(ExtendedExistsResult kind) {
    switch (kind) {
    case ExtendedExistsResult::Folder:
        return 'd';
    case ExtendedExistsResult::LinkToFile:
    case ExtendedExistsResult::LinkToFolder:
    case ExtendedExistsResult::DanglingLink:
        return 'l';
    case ExtendedExistsResult::Other:
        return 'o';
    case ExtendedExistsResult::File:
    case ExtendedExistsResult::Nothing:
        break;
    }
    return '-';
}

std::string columns(char letter, std::string const& mode, std::string const& size,
                    std::string const& modified) {
    return fmt::format("{}{:<9}  {:>10}  {:<20}  ", letter, mode, size, modified);
}

std::string modeColumn(AttributeValues const& values) {
    if (values.mode) {
        return modeInWords(*values.mode).substr(0, 9);
    }
    return values.writable ? "rw" : "r-";
}

} // namespace

std::string detailColumns(EntryFacts const& facts) {
    char const letter = letterOf(facts.kind);
    if (!facts.values) {
        return columns(letter, unknownMode, "?", "?");
    }
    AttributeValues const& values = *facts.values;
    // Some storages tell of a folder how much they spend on its list of names, which helps nobody.
    bool const sized = values.size && facts.kind != ExtendedExistsResult::Folder;
    return columns(letter, modeColumn(values),
                   sized ? shortSize(static_cast<double>(*values.size)) : "-",
                   isoTimeToSecond(values.lastModified));
}

std::string unknownColumns(bool folder) {
    return columns(folder ? 'd' : '-', unknownMode, "?", "?");
}

std::string shownName(std::string const& name, bool folder,
                      std::optional<std::string> const& target) {
    std::string text = onOneLine(name);
    if (folder) {
        text += '/';
    }
    return target ? text + " -> " + onOneLine(*target) : text;
}

std::string entryAsJson(EntryFacts const& facts) {
    std::string const name = facts.path.substr(facts.path.rfind('/') + 1);
    nlohmann::ordered_json object{{"name", bytesAsJson(name)},
                                  {"path", bytesAsJson(facts.path)},
                                  {"location", locationForPrograms(facts.location.toString())},
                                  {"kind", kindForPrograms(facts.kind)}};
    if (facts.target) {
        object["target"] = bytesAsJson(*facts.target);
    }
    if (facts.values) {
        AttributeValues const& values = *facts.values;
        if (values.size) {
            object["size"] = *values.size;
        }
        object["modified"] = isoTime(values.lastModified);
        if (values.mode) {
            object["mode"] = fmt::format("{:04o}", *values.mode);
        }
        object["writable"] = values.writable;
    }
    return jsonLine(object);
}

} // namespace cli
