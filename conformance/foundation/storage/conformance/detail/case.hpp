#pragma once

#include <foundation/storage/conformance/ability.hpp>

#include <span>

namespace foundation::storage::conformance::detail {

class Trial;

/// One promise of docs/providers.md, and how it is checked.
struct Case {
    char const* name; ///< within its family
    void (*check)(Trial&);
    /// Without one of these the case is left out. What `exists` alone can show needs nothing.
    AbilitySet needs = {};
    /// With one of these too: the case checks that they are refused.
    AbilitySet refusals = {};
};

struct Family {
    char const* name;
    std::span<Case const> cases;
};

// One source in cases/ each.
Family declarationFamily();
Family existenceFamily();
Family fileFamily();
Family refusalFamily();
Family nameFamily();
Family folderFamily();
Family streamFamily();
Family openingFamily();
Family replacementFamily();
Family listingFamily();
Family cursorFamily();
Family treeFamily();
Family attributeFamily();
Family copyFamily();
Family moveFamily();
Family linkFamily();
Family concurrencyFamily();
Family changeEventFamily();
Family publicationFamily();

} // namespace foundation::storage::conformance::detail
