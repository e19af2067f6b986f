#include "../commands.hpp"
#include "../display.hpp"
#include "../interruption.hpp"
#include "../iso_time.hpp"
#include "../json_text.hpp"
#include "../tree_comparison.hpp"

#include <foundation/storage/vfs/storage_system/exists.hpp>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <array>
#include <optional>
#include <string_view>

namespace cli {

namespace vfs = foundation::storage::vfs;

using foundation::storage::provider::ExtendedExistsResult;
using foundation::storage::provider::Timestamp;

namespace {

CompareBy comparisonNamed(std::optional<std::string> const& word) {
    if (!word || *word == "content" || *word == "digest") {
        return CompareBy::Content;
    }
    if (*word == "size") {
        return CompareBy::Size;
    }
    if (*word == "time") {
        return CompareBy::Time;
    }
    throw UsageError("--by takes size, time, content or digest");
}

// What is at an operand, links followed; throws Refusal where it is nothing that can be compared.
ExtendedExistsResult comparableKind(vfs::StorageSystemReference const& system,
                                    Location const& location) {
    switch (existsExtended(location.iri, system)) {
    case ExtendedExistsResult::Folder:
    case ExtendedExistsResult::LinkToFolder:
        return ExtendedExistsResult::Folder;
    case ExtendedExistsResult::File:
    case ExtendedExistsResult::LinkToFile:
        if (location.wantsFolder()) {
            throw Refusal("is not a folder");
        }
        return ExtendedExistsResult::File;
    case ExtendedExistsResult::DanglingLink:
        throw Refusal("is a link that leads nowhere");
    case ExtendedExistsResult::Other:
        throw Refusal("is not a regular file");
    case ExtendedExistsResult::Nothing:
        break;
    }
    throw Refusal(wordsFor(vfs::ErrorCode::ResourceNotFound));
}

std::string_view nounFor(Difference what) {
    switch (what) {
    case Difference::OnlyInFirst:
        return "only-in-first";
    case Difference::OnlyInSecond:
        return "only-in-second";
    case Difference::Kind:
        return "kind";
    case Difference::Size:
        return "size";
    case Difference::Time:
        return "time";
    case Difference::Content:
        return "content";
    case Difference::Target:
        break;
    }
    return "target";
}

struct InWords {
    std::string operator()(std::monostate) const { return {}; }
    std::string operator()(ExtendedExistsResult kind) const { return kindInWords(kind); }
    std::string operator()(std::uint64_t size) const {
        return fmt::format("{} {}", size, size == 1 ? "byte" : "bytes");
    }
    std::string operator()(Timestamp time) const { return isoTime(time); }
    std::string operator()(std::string const& target) const { return onOneLine(target); }
};

struct AsJson {
    nlohmann::ordered_json operator()(std::monostate) const { return nullptr; }
    nlohmann::ordered_json operator()(ExtendedExistsResult kind) const {
        return kindForPrograms(kind);
    }
    nlohmann::ordered_json operator()(std::uint64_t size) const { return size; }
    nlohmann::ordered_json operator()(Timestamp time) const { return isoTime(time); }
    nlohmann::ordered_json operator()(std::string const& target) const {
        return bytesAsJson(target);
    }
};

class Printer {
  public:
    Printer(Output& output, std::array<Location, 2> const& tops, bool json)
        : output_(output),
          tops_(tops),
          json_(json) {}

    void print(FoundDifference const& found) {
        if (json_) {
            output_.print(jsonLine(asJson(found)));
        } else {
            output_.printLine(lineFor(found));
        }
        output_.flushBlock();
    }

    void printSum(WorkTally const& done, std::uint64_t differences, std::uint64_t failures) {
        if (json_) {
            output_.print(jsonLine({{"equal", differences == 0 && failures == 0},
                                    {"differences", differences},
                                    {"failures", failures},
                                    {"files", done.files},
                                    {"folders", done.folders},
                                    {"bytes", done.bytes}}));
            return;
        }
        std::string const found = differences == 0   ? "no difference"
                                  : differences == 1 ? "1 difference"
                                                     : fmt::format("{} differences", differences);
        output_.printLine(done.inWords("compared") + ", " + found +
                          (failures > 0 ? fmt::format(", {} failed", failures) : ""));
    }

  private:
    std::string lineFor(FoundDifference const& found) const {
        std::string line = found.path.empty() ? tops_[0].shown() : onOneLine(found.path);
        line += found.folder ? "/: " : ": ";
        if (found.what == Difference::OnlyInFirst || found.what == Difference::OnlyInSecond) {
            return line + "only in " + tops_[found.what == Difference::OnlyInFirst ? 0 : 1].shown();
        }
        line += nounFor(found.what);
        line += " differs";
        if (found.what == Difference::Content) {
            return line;
        }
        return line + " (" + std::visit(InWords(), found.facts[0]) + ", " +
               std::visit(InWords(), found.facts[1]) + ")";
    }

    static nlohmann::ordered_json asJson(FoundDifference const& found) {
        nlohmann::ordered_json object{{"path", bytesAsJson(found.path)},
                                      {"difference", nounFor(found.what)}};
        if (found.what == Difference::OnlyInFirst || found.what == Difference::OnlyInSecond) {
            object["kind"] = found.folder ? "folder" : "file";
        } else if (found.what != Difference::Content) {
            object["first"] = std::visit(AsJson(), found.facts[0]);
            object["second"] = std::visit(AsJson(), found.facts[1]);
        }
        return object;
    }

    Output& output_;
    std::array<Location, 2> const& tops_;
    bool json_;
};

void compareTrees(Invocation& invocation, std::array<Location, 2> const& tops,
                  TreeComparison::Kinds const& kinds, CompareBy by, LinksBelow links, bool json) {
    Printer printer(invocation.output(), tops, json);
    TreeComparison comparison(invocation, tops, by, links,
                              [&](FoundDifference const& found) { printer.print(found); });
    try {
        comparison.compare(kinds);
    } catch (Interrupted const&) {
        invocation.output().flush();
        invocation.sumUp(comparison.done(), "compared");
        throw;
    }
    if (comparison.differences() > 0) {
        invocation.failQuietly();
    }
    printer.printSum(comparison.done(), comparison.differences(), invocation.failures().count());
}

} // namespace

int runCheck(Host& host, Words const& words) {
    std::optional<std::string> by;
    bool dereference = false;
    bool json = false;
    Arguments arguments(
        {"check",
         "Compares two trees, or two files, in any two storages, and prints what differs: what is "
         "in one of them alone, the kind of an item, where links lead, and of files the size and, "
         "unless told otherwise, the content, which is read from both and compared byte for byte. "
         "Links are not followed, unless they are A or B, or -L is given. Ends with code 0 where "
         "nothing differs, "
         "otherwise with 1.",
         {"vfs check notes.txt same.txt", "vfs check docs backup",
          "vfs check --by time docs backup", "vfs check -L docs backup",
          "vfs check --json docs mem:"}});
    arguments
        .option("--by", by, "WHAT",
                "Compare of files the size alone (size), the size and the time of modification "
                "(time), or the size and the content (content, or digest)")
        .flag("-L,--dereference", dereference,
              "Compare what links lead to; otherwise where they lead is compared")
        .flag("--json", json, "Print a JSON object for each difference and for the sum, on a line")
        .takes("A B", 2, 2);
    if (!arguments.read(words)) {
        return printHelp(host, arguments);
    }
    CompareBy const compareBy = comparisonNamed(by);
    LinksBelow const links = dereference ? LinksBelow::Followed : LinksBelow::Compared;
    InterruptionGuard const guard;
    Invocation invocation(host, "check");
    std::vector<Location> tops;
    TreeComparison::Kinds kinds{};
    invocation.forEach(arguments.operands(), [&](Location const& location) {
        ExtendedExistsResult const kind = comparableKind(invocation.system(), location);
        kinds[tops.size()] = kind;
        tops.push_back(location);
    });
    if (tops.size() == 2) {
        std::array const both{tops[0], tops[1]};
        invocation.attempt(both,
                           [&] { compareTrees(invocation, both, kinds, compareBy, links, json); });
    }
    return invocation.finish();
}

} // namespace cli
