#pragma once

#include <foundation/storage/provider/storage_iri.hpp>

/// What holds for every location, whatever its text.
void checkLocation(foundation::storage::provider::StorageIRI const& location);

/// What holds for two locations that are one.
void checkSame(foundation::storage::provider::StorageIRI const& a,
               foundation::storage::provider::StorageIRI const& b);
