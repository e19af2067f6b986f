#pragma once

#include <foundation/export.hpp>

#include <cstdint>
#include <initializer_list>
#include <iosfwd>

namespace foundation::storage::conformance {

/// What a provider may be unable to do. Only `exists` is no ability: every provider has it.
enum class Ability : std::uint32_t {
    FileAttributes,        ///< getFileAttributes
    FolderAttributes,      ///< getFolderAttributes
    ExtendedAttributes,    ///< getExtendedAttributes
    Times,                 ///< setLastModified
    ReadOnlyItems,         ///< setWritable
    FileCreation,          ///< createFile
    FolderCreation,        ///< createFolder
    FolderChainCreation,   ///< createFolderRecursive
    FileRemoval,           ///< removeFile
    FolderRemoval,         ///< removeFolder
    TreeRemoval,           ///< removeFolderRecursively, and the feature RecursiveFolderRemoval
    FileCopies,            ///< copyFile within the storage
    FileMoves,             ///< moveFile
    FolderMoves,           ///< moveFolder
    Reading,               ///< openReadOnlyStream
    Writing,               ///< openStream
    Listing,               ///< the six listings of one folder
    RecursiveListing,      ///< the two listings of a tree, and the feature of this name
    FlatWildcards,         ///< the feature FlatWildcardListing
    RecursiveWildcards,    ///< the feature RecursiveWildcardListing
    ChangeEvents,          ///< publishing of files and folders, and stopping
    RecursiveChangeEvents, ///< the feature of this name
    Links,                 ///< extensions::ILinks
    LinkCreation,          ///< createLink of that extension
    Replacement,           ///< extensions::IReplacingStreams
    FolderAttributeChange, ///< extensions::IFolderAttributes
    Flushing,              ///< extensions::IFlushableFilesystem
};

inline constexpr std::uint32_t abilityCount = static_cast<std::uint32_t>(Ability::Flushing) + 1;

/// Writes the name as it stands above.
FOUNDATION_EXPORT std::ostream& operator<<(std::ostream& out, Ability ability);

/// A set of abilities: `Ability::Links | Ability::Flushing`. A plain value.
class AbilitySet {
  public:
    constexpr AbilitySet() = default;
    constexpr AbilitySet(Ability ability) // NOLINT(google-explicit-constructor): a set of one
        : bits_(std::uint32_t{1} << static_cast<std::uint32_t>(ability)) {}

    constexpr bool contains(Ability ability) const { return (*this & ability) != AbilitySet(); }
    constexpr bool empty() const { return bits_ == 0; }

    friend constexpr AbilitySet operator|(AbilitySet a, AbilitySet b) {
        return AbilitySet(a.bits_ | b.bits_);
    }
    friend constexpr AbilitySet operator&(AbilitySet a, AbilitySet b) {
        return AbilitySet(a.bits_ & b.bits_);
    }
    /// What is in `a` and not in `b`.
    friend constexpr AbilitySet operator-(AbilitySet a, AbilitySet b) {
        return AbilitySet(a.bits_ & ~b.bits_);
    }
    friend constexpr bool operator==(AbilitySet, AbilitySet) = default;

  private:
    constexpr explicit AbilitySet(std::uint32_t bits) : bits_(bits) {}

    std::uint32_t bits_ = 0;
};

constexpr AbilitySet operator|(Ability a, Ability b) {
    return AbilitySet(a) | AbilitySet(b);
}

/// Writes the names, with a comma and a space between them.
FOUNDATION_EXPORT std::ostream& operator<<(std::ostream& out, AbilitySet abilities);

/// What changes a storage; a storage that cannot be written has none of these.
inline constexpr AbilitySet changingAbilities =
    Ability::Times | Ability::ReadOnlyItems | Ability::FileCreation | Ability::FolderCreation |
    Ability::FolderChainCreation | Ability::FileRemoval | Ability::FolderRemoval |
    Ability::TreeRemoval | Ability::FileCopies | Ability::FileMoves | Ability::FolderMoves |
    Ability::Writing | Ability::LinkCreation | Ability::Replacement |
    Ability::FolderAttributeChange;

/// Everything that a provider of `exists` alone lacks.
inline constexpr AbilitySet allAbilities =
    changingAbilities | Ability::FileAttributes | Ability::FolderAttributes |
    Ability::ExtendedAttributes | Ability::Reading | Ability::Listing | Ability::RecursiveListing |
    Ability::FlatWildcards | Ability::RecursiveWildcards | Ability::ChangeEvents |
    Ability::RecursiveChangeEvents | Ability::Links | Ability::Flushing;

} // namespace foundation::storage::conformance
