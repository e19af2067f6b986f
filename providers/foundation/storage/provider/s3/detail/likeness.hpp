#pragma once

#include <foundation/storage/provider/s3/detail/bucket.hpp>
#include <foundation/storage/provider/timestamp.hpp>

namespace foundation::storage::provider::s3::detail {

/// What an object has beside its bytes and its time, as another one gets it: metadata, and fields
/// that say how the bytes are to be taken.
struct Likeness {
    PutConditions conditions;
    bool isComplete = true; ///< else some of it cannot stand in a request, and is left out
};

Likeness likenessOf(ObjectHead const& head);

/// Gives what is put a time, in place of the one it had.
void setTime(PutConditions& conditions, Timestamp time);

} // namespace foundation::storage::provider::s3::detail
