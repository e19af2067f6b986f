#include <foundation/storage/conformance/detail/case.hpp>
#include <foundation/storage/conformance/detail/trial.hpp>
#include <foundation/storage/provider/extensions/i_flushable_filesystem.hpp>
#include <foundation/storage/provider/extensions/i_folder_attributes.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>

#include <algorithm>

namespace foundation::storage::conformance::detail {

namespace {

void expectFeature(Trial& t, Ability ability, ExtendedFeature feature, char const* name) {
    bool const offered = t.provider().hasFeature(t.at({}), feature);
    if (offered != t.has(ability)) {
        t.remark(std::string("the feature ") + name +
                 (offered ? " is offered, though it is declared unsupported"
                          : " is not offered, though it is not declared unsupported"));
    }
}

template<class Extension>
void expectExtension(Trial& t, Ability ability, char const* name) {
    bool const offered = dynamic_cast<Extension*>(&t.provider()) != nullptr;
    if (offered != t.has(ability)) {
        t.remark(std::string("the extension ") + name +
                 (offered ? " is there, though it is declared unsupported"
                          : " is missing, though it is not declared unsupported"));
    }
}

constexpr Case cases[] = {
    {"EveryDeviationNamesACaseThatApplies",
     [](Trial& t) {
         std::vector<std::string> const known = allCases();
         for (auto const& [name, reason] : t.contract().deviations) {
             if (std::find(known.begin(), known.end(), name) == known.end()) {
                 t.remark("a deviation is declared from " + name + ", which is no case");
             } else if (auto const why = whyLeftOut(t.contract(), name)) {
                 t.remark("a deviation is declared from " + name + ", which " + *why);
             }
         }
     }},
    {"TheFeaturesAreThoseDeclared",
     [](Trial& t) {
         using enum ExtendedFeature;
         expectFeature(t, Ability::TreeRemoval, RecursiveFolderRemoval, "RecursiveFolderRemoval");
         expectFeature(t, Ability::RecursiveListing, RecursiveListing, "RecursiveListing");
         expectFeature(t, Ability::FlatWildcards, FlatWildcardListing, "FlatWildcardListing");
         expectFeature(t, Ability::RecursiveChangeEvents, RecursiveChangeEvents,
                       "RecursiveChangeEvents");
         expectFeature(t, Ability::RecursiveWildcards, RecursiveWildcardListing,
                       "RecursiveWildcardListing");
     }},
    {"TheExtensionsAreThoseDeclared",
     [](Trial& t) {
         expectExtension<extensions::ILinks>(t, Ability::Links, "ILinks");
         expectExtension<extensions::IReplacingStreams>(t, Ability::Replacement,
                                                        "IReplacingStreams");
         expectExtension<extensions::IFolderAttributes>(t, Ability::FolderAttributeChange,
                                                        "IFolderAttributes");
         expectExtension<extensions::IFlushableFilesystem>(t, Ability::Flushing,
                                                           "IFlushableFilesystem");
     }},
    {"FlushingIsDone",
     [](Trial& t) { t.extension<extensions::IFlushableFilesystem>().flushFilesystem(); },
     Ability::Flushing},
};

} // namespace

Family declarationFamily() {
    return {"Declarations", cases};
}

} // namespace foundation::storage::conformance::detail
