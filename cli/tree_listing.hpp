#pragma once

#include "invocation.hpp"

#include <optional>
#include <utility>

/// Listings of whole trees that go on behind what fails.
namespace cli {

/// Whether the storage of `iri` lists whole trees by itself, with paths below `iri` as names. For
/// another one the system does, from one folder to the next.
bool listsTrees(foundation::storage::vfs::StorageSystemReference const& system,
                foundation::storage::vfs::AbsoluteIRI const& iri);

/// The words for the exception that is being handled, about a place below `root` as the root was
/// spelled.
FailureText describeFailureBelow(foundation::storage::vfs::StorageSystemReference const& system,
                                 Location const& root);

enum class Step { Moved, MovedBehindAFailure, Ended };

/// Moves a position in the listing of a tree by a storage that lists trees by itself. Reports what
/// fails, and goes on behind it; ends where the storage fails twice alike.
template<class Iterator>
Step moveBehindFailures(Invocation& invocation, Location const& root, Iterator& position) {
    std::optional<FailureText> before;
    for (;;) {
        try {
            ++position;
            return before ? Step::MovedBehindAFailure : Step::Moved;
        } catch (...) {
            FailureText failure = describeFailureBelow(invocation.system(), root);
            if (failure == before) {
                return Step::Ended;
            }
            invocation.fail(failure.subject, failure.reason);
            before = std::move(failure);
        }
    }
}

} // namespace cli
