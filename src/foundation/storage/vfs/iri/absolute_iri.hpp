#pragma once

#include <fl/filesystem/basic_path.hpp>
#include <foundation/export.hpp>
#include <foundation/network/iri.hpp>
#include <foundation/storage/provider/storage_iri.hpp>
#include <foundation/storage/vfs/iri/invalid_iri_exception.hpp>

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string_view>

namespace foundation::storage::vfs {

using provider::StorageIRI;

namespace detail {
struct Handle;
}

/// Where a file or folder lies. An immutable value over provider::StorageIRI, which does all
/// parsing; this class adds the rule that a location has a path, and one failure,
/// InvalidIRIException. A copy costs one reference count, and no accessor parses. A moved-from
/// value may only be assigned to or destroyed. Values may be read from any number of threads.
class FOUNDATION_EXPORT AbsoluteIRI {
  public:
    /// Throws InvalidIRIException with `iri`, the cause nested, where the text is malformed; with
    /// the location's text, nothing nested, where it has no path.
    explicit AbsoluteIRI(ustring const& iri);
    /// Without `requirePath` the value is taken as it is.
    AbsoluteIRI(StorageIRI iri, bool requirePath);
    /// The item `name` in the folder `base`. Failures are those of StorageIRI, unchanged.
    AbsoluteIRI(AbsoluteIRI const& base, ustring const& name);
    /// `path` inside the item that `inner` names. Failures are those of StorageIRI, unchanged.
    AbsoluteIRI(ustring const& scheme, AbsoluteIRI const& inner, ustring path);

    ustring const& getName() const noexcept { return iri_.getName(); }
    ustring const& getPath() const noexcept { return iri_.getPath(); }
    std::u16string_view getPathView() const noexcept { return iri_.getPathView(); }
    ustring const& getResolvedPath() const noexcept { return iri_.getResolvedPath(); }
    ustring getScheme() const { return iri_.getScheme(); }
    bool hasParent() const noexcept { return iri_.hasParent(); }
    bool hasInnerIRI() const noexcept { return iri_.hasInnerIRI(); }
    foundation::network::IRI toIRI() const { return iri_.toIRI(); }
    ustring const& toString() const noexcept { return iri_.toString(); }
    StorageIRI toStorageIRI() const noexcept { return iri_; }

    /// The parent may be without a path.
    AbsoluteIRI getParent() const;
    /// Throws InvalidIRIException where the inner location has no path, and
    /// provider::MalformedIRIException where there is none.
    AbsoluteIRI getInnerIRI() const;
    /// This location with its resolved path. Any failure is a plain InvalidIRIException with the
    /// text of this location.
    AbsoluteIRI getResolvedIRI() const;
    bool isAncestorOf(AbsoluteIRI const& other) const;
    ustring makePathRelativeTo(AbsoluteIRI const& base) const;
    std::size_t hashValue() const noexcept;

    bool operator==(AbsoluteIRI const& other) const noexcept { return iri_ == other.iri_; }
    bool operator!=(AbsoluteIRI const& other) const noexcept { return iri_ != other.iri_; }
    bool operator<(AbsoluteIRI const& other) const noexcept { return iri_ < other.iri_; }
    /// Compares the text, code unit by code unit; nothing is parsed.
    bool operator==(ustring const& text) const noexcept { return toString() == text; }
    bool operator!=(ustring const& text) const noexcept { return toString() != text; }

  private:
    StorageIRI iri_;
};

inline bool operator==(ustring const& text, AbsoluteIRI const& iri) noexcept {
    return iri == text;
}
inline bool operator!=(ustring const& text, AbsoluteIRI const& iri) noexcept {
    return iri != text;
}

FOUNDATION_EXPORT std::size_t hash_value(AbsoluteIRI const& iri) noexcept;
FOUNDATION_EXPORT std::ostream& operator<<(std::ostream& out, AbsoluteIRI const& iri);

/// A location known to be in its canonical form: the type is the promise. Handles made from one
/// never ask the provider for the canonical form.
class FOUNDATION_EXPORT CanonicalAbsoluteIRI : public AbsoluteIRI {
  public:
    /// The caller vouches that the text is canonical.
    explicit CanonicalAbsoluteIRI(ustring const& iri);
    /// The caller vouches that the result is canonical.
    CanonicalAbsoluteIRI(AbsoluteIRI const& base, ustring const& name);

    CanonicalAbsoluteIRI getParent() const;

  private:
    friend struct detail::Handle;
    friend CanonicalAbsoluteIRI toCanonicalAbsoluteIRI(ustring const& text,
                                                       fl::filesystem::path const& base);

    explicit CanonicalAbsoluteIRI(AbsoluteIRI iri);
};

/// What a person typed, to a location: a complete location, or a path of the local disk relative to
/// `base`. Any failure is InvalidIRIException with `text`, its cause nested.
FOUNDATION_EXPORT AbsoluteIRI toAbsoluteIRI(ustring const& text, fl::filesystem::path const& base);

/// The same in canonical form. A provider's failure is thrown as vfs::Exception, any other as
/// InvalidIRIException.
FOUNDATION_EXPORT CanonicalAbsoluteIRI toCanonicalAbsoluteIRI(ustring const& text,
                                                              fl::filesystem::path const& base);

/// The reverse of toAbsoluteIRI: a plain path for the local disk, the text for everything else.
FOUNDATION_EXPORT ustring fromAbsoluteIRI(AbsoluteIRI const& iri);

/// Whether a text is a location already, and not a plain path: a chain of schemes of at least two
/// characters, each with its colon, and a slash behind the last. Throws nothing of its own.
FOUNDATION_EXPORT bool hasIRIPrefix(ustring const& text);

} // namespace foundation::storage::vfs

template<>
struct std::hash<foundation::storage::vfs::AbsoluteIRI> {
    std::size_t operator()(foundation::storage::vfs::AbsoluteIRI const& iri) const noexcept {
        return iri.hashValue();
    }
};
