#pragma once

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/zip/detail/archive_path.hpp>
#include <foundation/storage/provider/zip/zip_provider.hpp>

#include <mutex>

// What the changes of an archive have in common; private to the provider's sources.

namespace foundation::storage::provider::zip {

using Tree = detail::PendingTree;
using Node = detail::PendingNode;

[[noreturn]] inline void fail(ErrorCode code, StorageIRI const& location) {
    throw Exception(code, location);
}

/// Calls with the tree, and a function that goes the path of a location in it.
template<class Change>
void ZipProvider::change(StorageIRI const& location, Change const& change) {
    std::lock_guard const changing(changing_);
    View const view = viewToChange(location);
    {
        std::lock_guard const lock(view.pending->mutex);
        change(*view.pending, [&](StorageIRI const& to, detail::LastLink last) {
            return walkTo(view, to, last, view.pending->rootHandle(), detail::pathInArchive(to));
        });
    }
    checkIsPending(*view.pending);
}

template<class Walk>
Node& existing(Walk const& walkTo, StorageIRI const& location, detail::LastLink last) {
    Tree::Place const place = walkTo(location, last);
    if (place.error) {
        fail(*place.error, location);
    }
    return *place.entry;
}

/// What a link leads to, and the link itself where that is nothing.
template<class Walk>
Node& described(Walk const& walkTo, StorageIRI const& location) {
    Tree::Place const place = walkTo(location, detail::LastLink::Followed);
    return place.error ? existing(walkTo, location, detail::LastLink::Itself) : *place.entry;
}

/// A place for a new entry. Throws where it is taken, or where there is no folder to make it in.
template<class Walk>
Tree::Place freePlace(Walk const& walkTo, StorageIRI const& location) {
    Tree::Place place = walkTo(location, detail::LastLink::Itself);
    if (!place.isFree()) {
        fail(place.error.value_or(ErrorCode::ResourceAlreadyExists), location);
    }
    return place;
}

} // namespace foundation::storage::provider::zip
