#include "../commands.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/extensions/i_flushable_filesystem.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/standard/standard_storage_system.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <array>
#include <memory>
#include <string_view>
#include <utility>

namespace cli {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;

namespace {

constexpr std::array features{
    std::pair{provider::ExtendedFeature::RecursiveFolderRemoval, "tree-removal"},
    std::pair{provider::ExtendedFeature::RecursiveListing, "tree-listing"},
    std::pair{provider::ExtendedFeature::FlatWildcardListing, "folder-filter"},
    std::pair{provider::ExtendedFeature::RecursiveWildcardListing, "tree-filter"},
    std::pair{provider::ExtendedFeature::RecursiveChangeEvents, "tree-events"},
};

/// What a container without anything in it is made of.
constexpr std::string_view emptyItem = "mem:/empty";

struct Abilities {
    std::string scheme;
    std::string description;
    bool links;
    bool replaces;
    bool flushes;
    std::vector<std::string> features;
};

Abilities abilitiesOf(vfs::StorageSystemReference const& system,
                      provider::standard::StandardProvider const& listed) {
    std::string const where = listed.isContainer    ? std::string(emptyItem) + '!'
                              : listed.namesServers ? "//localhost" // which is not asked
                                                    : "";
    provider::StorageIRI const root(
        fl::i18n::to_ustring(std::string(listed.scheme) + ':' + where + '/'));
    std::shared_ptr<provider::IProvider> const found = system.buildProvider(root);
    namespace extensions = provider::extensions;
    Abilities abilities{std::string(listed.scheme),
                        std::string(listed.description),
                        dynamic_cast<extensions::ILinks const*>(found.get()) != nullptr,
                        dynamic_cast<extensions::IReplacingStreams const*>(found.get()) != nullptr,
                        dynamic_cast<extensions::IFlushableFilesystem const*>(found.get()) !=
                            nullptr,
                        {}};
    for (auto const& [feature, name] : features) {
        if (found->hasFeature(root, feature)) {
            abilities.features.emplace_back(name);
        }
    }
    return abilities;
}

std::string asRow(Abilities const& abilities) {
    auto const word = [](bool yes) { return yes ? "yes" : "no"; };
    return fmt::format(
        "{:<8}{:<7}{:<10}{:<9}{}", abilities.scheme, word(abilities.links),
        word(abilities.replaces), word(abilities.flushes),
        abilities.features.empty() ? "-" : fmt::format("{}", fmt::join(abilities.features, " ")));
}

std::string asJson(Abilities const& abilities) {
    return nlohmann::ordered_json{
        {"scheme", abilities.scheme},   {"description", abilities.description},
        {"links", abilities.links},     {"replaces", abilities.replaces},
        {"flushes", abilities.flushes}, {"features", abilities.features}}
        .dump();
}

} // namespace

int runProviders(Host& host, Words const& words) {
    bool json = false;
    Arguments arguments(
        {"providers",
         "Lists the schemes that locations may have, and what their storages can do: "
         "whether they have links, replace files as a whole, and keep changes back "
         "until they are flushed, and which features they bring themselves.",
         {"vfs providers", "vfs providers --json"}});
    arguments.flag("--json", json, "Print a JSON object for each scheme, on a line")
        .takes("", 0, 0);
    if (!arguments.read(words)) {
        return printHelp(host, arguments);
    }
    Invocation invocation(host, "providers");
    // Of its own, since what containers are asked about is made in it.
    std::shared_ptr<vfs::StorageSystem> const asked =
        provider::standard::makeStandardStorageSystem();
    vfs::StorageSystemReference const system(asked);
    vfs::File(vfs::AbsoluteIRI(fl::i18n::to_ustring(std::string(emptyItem))), system).createFile();
    if (!json) {
        Output& output = invocation.output();
        output.printLine(output.heading("scheme  links  replaces  flushes  features"));
    }
    for (auto const& listed : provider::standard::standardProviders()) {
        Abilities const abilities = abilitiesOf(system, listed);
        invocation.output().printLine(json ? asJson(abilities) : asRow(abilities));
    }
    return invocation.finish();
}

} // namespace cli
