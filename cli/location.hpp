#pragma once

#include <foundation/storage/vfs/iri/absolute_iri.hpp>

#include <string>

namespace cli {

/// A location that a person named: the words, and what they mean.
struct Location {
    std::string typed; ///< the bytes, as they came
    foundation::storage::vfs::AbsoluteIRI iri;

    /// The words on one line; a bare scheme with its slash.
    std::string shown() const;
    /// Whether the words insist on a folder, by a slash at their end.
    bool wantsFolder() const noexcept { return typed.ends_with('/'); }
};

/// What `typed` names: an IRI, or a path of the local disk relative to the working directory. A
/// plain path in the inner place of a nested location is taken too (`zip:a.zip!/x`), and a slash
/// that is missing is added: `mem:` is `mem:/`, `zip:a.zip` is `zip:a.zip!/`. Throws Refusal, and
/// what StorageIRI throws.
Location parseLocation(std::string const& typed);

/// The item `name` in `folder`, spelled as the folder was: a path behind a path, and otherwise an
/// IRI, with the item that is looked into as it was typed. Throws what AbsoluteIRI throws.
Location childLocation(Location const& folder, fl::i18n::ustring const& name);

} // namespace cli
