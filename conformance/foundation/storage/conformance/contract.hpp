#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/conformance/ability.hpp>
#include <foundation/storage/provider/fwd.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <chrono>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace foundation::storage::conformance {

/// An item that a place holds before anything is done.
struct DeclaredItem {
    enum class Kind : std::uint32_t { File, Folder, Link };

    provider::ustring path; ///< below the place, with `/` between names
    Kind kind = Kind::File;
    std::string bytes =
        {}; ///< of a file, or a link's target; not looked at where it cannot be read
};

/// Where a provider is tried: a folder of its own for every case.
struct Place {
    std::shared_ptr<provider::IProvider> provider;
    /// There, writable and empty; where nothing can be written, with what `content` says.
    provider::StorageIRI folder;
    /// All that is in the folder, folders before what is in them.
    std::vector<DeclaredItem> content = {};
    /// Whatever must live as long as the place; let go of behind the provider.
    std::shared_ptr<void> keeper = nullptr;
};

/// What a provider is held to: everything that docs/providers.md says, but for what is declared
/// here. A plain value.
struct Contract {
    std::string name; ///< of the provider, for people
    /// Called once for each case, on the thread that asks for the case.
    std::function<Place()> makePlace;
    /// What the provider cannot do. It must refuse that; what works all the same is reported.
    AbilitySet unsupported = {};
    /// Cases, by name, that the provider does not keep to, and why. One that it keeps to all the
    /// same is reported.
    std::map<std::string, std::string, std::less<>> deviations = {};
    /// How long a change event may take to come.
    std::chrono::milliseconds patience{10'000};
};

enum class Outcome : std::uint32_t {
    Kept,     ///< as docs/providers.md says
    Broken,   ///< not so, or a declaration that is wrong
    Deviates, ///< not so, as declared
    LeftOut,  ///< does not apply: whyLeftOut()
};

FOUNDATION_EXPORT std::ostream& operator<<(std::ostream& out, Outcome outcome);

struct CaseReport {
    std::string name;
    Outcome outcome = Outcome::Kept;
    /// Everything that is wrong, not only the first; of Deviates with the reason declared, of
    /// LeftOut why.
    std::vector<std::string> remarks;
};

struct FOUNDATION_EXPORT Report {
    std::string provider;
    std::vector<CaseReport> cases;

    std::size_t count(Outcome outcome) const;
    bool isKept() const { return count(Outcome::Broken) == 0; }
};

/// Writes what is broken and what deviates, and a line with the numbers.
FOUNDATION_EXPORT std::ostream& operator<<(std::ostream& out, Report const& report);

/// The names of all cases, as `Family.WhatIsPromised`.
FOUNDATION_EXPORT std::vector<std::string> allCases();

/// Why a case does not apply: it needs what the contract declares unsupported, or checks the
/// refusal of what is supported. Nothing where it applies. Throws std::out_of_range where there is
/// no such case.
FOUNDATION_EXPORT std::optional<std::string> whyLeftOut(Contract const& contract,
                                                        std::string_view caseName);

/// Checks one case in a place of its own. Does not throw what the provider throws. Throws
/// std::out_of_range where there is no such case.
FOUNDATION_EXPORT CaseReport checkCase(Contract const& contract, std::string_view caseName);

/// Checks all cases, one after the other.
FOUNDATION_EXPORT Report checkContract(Contract const& contract);

} // namespace foundation::storage::conformance
