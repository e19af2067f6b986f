#include "../commands.hpp"
#include "../display.hpp"
#include "../iso_time.hpp"
#include "../json_text.hpp"
#include "../link_target.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>
#include <foundation/storage/vfs/storage_system/exists.hpp>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <optional>

namespace cli {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;

using provider::ExtendedExistsResult;

namespace {

struct Facts {
    fl::i18n::ustring location;
    fl::i18n::ustring canonical;
    ExtendedExistsResult kind;
    std::optional<std::string> target; // of a link
    provider::AttributeValues values;
    provider::ExtendedAttributes attributes;
};

template<class Resource>
void readFrom(Resource const& resource, bool withAttributes, Facts& facts) {
    facts.values = resource.getAttributes().values();
    facts.canonical = resource.getCanonicalLocation().toString();
    if (withAttributes) {
        facts.attributes = resource.getExtendedAttributes();
    }
}

Facts factsOf(vfs::StorageSystemReference const& system, Location const& location,
              bool withAttributes) {
    Facts facts;
    facts.location = location.iri.toString();
    facts.kind = existsExtended(location.iri, system);
    if (facts.kind == ExtendedExistsResult::Nothing) {
        throw Refusal(wordsFor(vfs::ErrorCode::ResourceNotFound));
    }
    if (isLink(facts.kind)) {
        facts.target = linkTarget(system, location.iri);
    }
    if (facts.kind == ExtendedExistsResult::Folder ||
        facts.kind == ExtendedExistsResult::LinkToFolder) {
        readFrom(vfs::Folder(location.iri, system), withAttributes, facts);
    } else {
        readFrom(vfs::File(location.iri, system), withAttributes, facts);
    }
    return facts;
}

std::string asText(Facts const& facts, Output const& output) {
    std::string text;
    auto const add = [&](std::string const& label, std::string const& value) {
        text += output.heading(fmt::format("{:<11}", label + ":")) + value + "\n";
    };
    add("location", onOneLine(fl::i18n::toDisplayString(facts.location)));
    add("canonical", onOneLine(fl::i18n::toDisplayString(facts.canonical)));
    add("kind", kindInWords(facts.kind));
    if (facts.target) {
        add("target", onOneLine(*facts.target));
    }
    if (facts.values.size) {
        add("size", sizeInWords(*facts.values.size));
    }
    add("modified", isoTime(facts.values.lastModified));
    if (facts.values.mode) {
        add("mode", modeInWords(*facts.values.mode));
    }
    add("writable", facts.values.writable ? "yes" : "no");
    for (auto const& [key, value] : facts.attributes) {
        add("attribute", onOneLine(key) + " = " + onOneLine(value));
    }
    return text;
}

std::string asJson(Facts const& facts, bool withAttributes) {
    nlohmann::ordered_json object{{"location", locationForPrograms(facts.location)},
                                  {"canonical", locationForPrograms(facts.canonical)},
                                  {"kind", kindForPrograms(facts.kind)}};
    if (facts.target) {
        object["target"] = bytesAsJson(*facts.target);
    }
    if (facts.values.size) {
        object["size"] = *facts.values.size;
    }
    object["modified"] = isoTime(facts.values.lastModified);
    if (facts.values.mode) {
        object["mode"] = fmt::format("{:04o}", *facts.values.mode);
    }
    object["writable"] = facts.values.writable;
    if (withAttributes) {
        object["attributes"] = nlohmann::ordered_json::object();
        for (auto const& [key, value] : facts.attributes) {
            object["attributes"][onOneLine(key)] = bytesAsJson(value);
        }
    }
    return jsonLine(object);
}

} // namespace

int runStat(Host& host, Words const& words) {
    bool json = false;
    bool extended = false;
    Arguments arguments(
        {"stat",
         "Shows what is known of files and folders. Of a link it shows where the link "
         "leads, and the attributes of what is there.",
         {"vfs stat notes.txt", "vfs stat --json notes.txt docs", "vfs stat -x notes.txt"}});
    arguments.flag("-x,--extended", extended, "Show extended attributes too")
        .flag("--json", json, "Print a JSON object for each location, on a line")
        .takes("LOCATION", 1, Arguments::unlimited);
    if (!arguments.read(words)) {
        return printHelp(host, arguments);
    }
    Invocation invocation(host, "stat");
    bool first = true;
    invocation.forEach(arguments.operands(), [&](Location const& location) {
        Facts const facts = factsOf(invocation.system(), location, extended);
        if (json) {
            invocation.output().print(asJson(facts, extended));
            return;
        }
        if (!first) {
            invocation.output().printLine("");
        }
        first = false;
        invocation.output().print(asText(facts, invocation.output()));
    });
    return invocation.finish();
}

} // namespace cli
