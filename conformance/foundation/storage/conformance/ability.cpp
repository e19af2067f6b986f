#include <foundation/storage/conformance/ability.hpp>

#include <array>
#include <ostream>

namespace foundation::storage::conformance {

namespace {

constexpr std::array<char const*, abilityCount> names = {
    "FileAttributes",
    "FolderAttributes",
    "ExtendedAttributes",
    "Times",
    "ReadOnlyItems",
    "FileCreation",
    "FolderCreation",
    "FolderChainCreation",
    "FileRemoval",
    "FolderRemoval",
    "TreeRemoval",
    "FileCopies",
    "FileMoves",
    "FolderMoves",
    "Reading",
    "Writing",
    "Listing",
    "RecursiveListing",
    "FlatWildcards",
    "RecursiveWildcards",
    "ChangeEvents",
    "RecursiveChangeEvents",
    "Links",
    "LinkCreation",
    "Replacement",
    "FolderAttributeChange",
    "Flushing",
};

} // namespace

std::ostream& operator<<(std::ostream& out, Ability ability) {
    auto const number = static_cast<std::size_t>(ability);
    return out << (number < names.size() ? names[number] : "Unhandled Ability");
}

std::ostream& operator<<(std::ostream& out, AbilitySet abilities) {
    char const* separator = "";
    for (std::uint32_t number = 0; number < abilityCount; ++number) {
        auto const ability = static_cast<Ability>(number);
        if (abilities.contains(ability)) {
            out << separator << ability;
            separator = ", ";
        }
    }
    return out;
}

} // namespace foundation::storage::conformance
