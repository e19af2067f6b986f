#pragma once

#include <optional>
#include <string_view>

namespace cli {

/// What stands behind the colon of a scheme.
enum class SchemeKind {
    Storage,   ///< a path: `mem:/notes.txt`
    Container, ///< the item that is looked into, then a path inside: `zip:docs.zip!/notes.txt`
};

/// The kind of a scheme whose spelling is known, so that what people leave out can be completed.
/// Whether a provider for it is there is for the storage system to say.
std::optional<SchemeKind> kindOfScheme(std::u16string_view scheme);

/// Whether the scheme's locations name a server, for whose answers one waits.
bool namesServers(std::u16string_view scheme);

/// Whether the scheme is of archives that can be written, and not only be looked into.
bool isWrittenArchive(std::u16string_view scheme);

} // namespace cli
