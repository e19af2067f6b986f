#pragma once

#include <fl/filesystem/basic_path.hpp>
#include <fl/i18n/ustring.hpp>
#include <foundation/export.hpp>

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string_view>

namespace foundation::network {
class IRI;
}

namespace foundation::storage::provider {

using fl::i18n::ustring;

/// The location of an item, as text and as parts (RFC 3987, with one form more for locations inside
/// an item): `scheme:/path`, `scheme://authority/path?query#fragment`, or nested
/// `scheme:INNER!/path`, where the scheme reads the path inside the item that INNER names.
///
/// A handle on shared immutable state: a copy is one reference count. Everything is worked out when
/// the value is made; no accessor parses or allocates (those that return by value excepted), and
/// references stay valid while any handle on the value lives. Values may be read from any number of
/// threads. A moved-from value may only be assigned to or destroyed.
///
/// Equality, order and hash work on the decoded parts: two spellings of one location are equal.
/// docs/locations.md states the rules. Constructors throw MalformedIRIException.
class FOUNDATION_EXPORT StorageIRI {
  public:
    /// Parses a complete location.
    explicit StorageIRI(ustring const& text);
    /// Wraps a location given in parts.
    explicit StorageIRI(foundation::network::IRI const& iri);
    /// The item `name` in the folder `base`: a decoded name, or a relative path with `/`; a name
    /// that starts with `/` replaces the path, an empty one gives `base`. Query and fragment of
    /// `base` are dropped. A relative name with a segment `.` or `..` is refused with
    /// provider::Exception, code InvalidLocation: names come from storages, and none may climb.
    StorageIRI(StorageIRI const& base, ustring const& name);
    /// A nested location: `path` inside the item that `inner` names, read through `scheme`.
    StorageIRI(ustring const& scheme, StorageIRI const& inner, ustring const& path);

    StorageIRI(StorageIRI const&) noexcept = default;
    StorageIRI(StorageIRI&&) noexcept = default;
    StorageIRI& operator=(StorageIRI const&) noexcept = default;
    StorageIRI& operator=(StorageIRI&&) noexcept = default;
    ~StorageIRI() = default;

    /// The scheme; of a nested location the outermost one.
    ustring getScheme() const;
    /// The same without a copy; valid while a handle on this value lives.
    std::u16string_view getSchemeView() const noexcept;
    /// User, host and port decoded, the host in small letters; what they compare by. Empty for a
    /// nested location. Delimiters stay encoded, so that the three can be told apart.
    std::u16string_view getAuthorityView() const noexcept;
    bool hasQuery() const noexcept;
    bool hasFragment() const noexcept;
    bool hasPath() const noexcept;
    /// The path as it stands in the text.
    ustring const& getPath() const noexcept;
    std::u16string_view getPathView() const noexcept;
    /// The path decoded, without empty segments, `.` and `..` kept; what it compares by.
    ustring const& getDecodedPath() const noexcept;
    /// The path decoded, without empty segments, `.` and `..` removed, never above the root.
    ustring const& getResolvedPath() const noexcept;
    /// The decoded last segment: the name exactly as the storage knows it. Empty for a root.
    ustring const& getName() const noexcept;
    bool hasParent() const noexcept;
    /// One level up. A root's parent is its form without a path.
    StorageIRI getParent() const;
    bool hasInnerIRI() const noexcept;
    /// Throws MalformedIRIException where there is none.
    StorageIRI getInnerIRI() const;
    /// Strict, by whole segments, on scheme, authority, inner location and resolved path.
    bool isAncestorOf(StorageIRI other) const;
    /// The decoded path of this location below `base`, without a leading slash; the whole resolved
    /// path where `base` is not an ancestor, and empty where both are one.
    ustring makePathRelativeTo(StorageIRI const& base) const;
    /// The same location with its resolved path; query and fragment stay. What is canonical where
    /// no storage is asked.
    StorageIRI withResolvedPath() const;
    foundation::network::IRI toIRI() const;
    /// The text as given, or as composed.
    ustring const& toString() const noexcept;
    std::size_t hash() const noexcept;

    FOUNDATION_EXPORT friend bool operator==(StorageIRI const& a, StorageIRI const& b) noexcept;
    friend bool operator!=(StorageIRI const& a, StorageIRI const& b) noexcept { return !(a == b); }
    FOUNDATION_EXPORT friend bool operator<(StorageIRI const& a, StorageIRI const& b) noexcept;

  private:
    struct Impl;
    explicit StorageIRI(std::shared_ptr<Impl const> impl) noexcept;

    std::shared_ptr<Impl const> impl_;
};

FOUNDATION_EXPORT std::size_t hash_value(StorageIRI const& iri) noexcept;
FOUNDATION_EXPORT std::ostream& operator<<(std::ostream& out, StorageIRI const& iri);

/// What a person typed, to a location: a complete location, or a path of the local disk, relative
/// to `base` (to the working directory where `base` is empty). `..` stays in the text: the kernel
/// resolves it, links included. Throws MalformedIRIException.
FOUNDATION_EXPORT StorageIRI toStorageIRI(ustring const& text, fl::filesystem::path const& base);

/// The same in canonical form: for the local disk as realpath(3) does, a missing last segment being
/// allowed; for a nested location its innermost one; for others the resolved path, without I/O.
/// Throws MalformedIRIException, and provider::Exception naming the location asked (missing parent
/// ResourceNotFound, denied PermissionDenied, loop InvalidLocation).
FOUNDATION_EXPORT StorageIRI toCanonicalizedStorageIRI(ustring const& text,
                                                       fl::filesystem::path const& base);

/// The reverse of toStorageIRI: a plain path for the local disk, the text for everything else.
FOUNDATION_EXPORT ustring fromStorageIRI(StorageIRI const& iri);

} // namespace foundation::storage::provider

template<>
struct std::hash<foundation::storage::provider::StorageIRI> {
    std::size_t operator()(foundation::storage::provider::StorageIRI const& iri) const noexcept {
        return iri.hash();
    }
};
