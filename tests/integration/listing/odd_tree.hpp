#pragma once

#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <map>
#include <memory>
#include <string>

namespace listing_test {

namespace provider = foundation::storage::provider;

/// Locations as text, and whether each is a file.
using Kinds = std::map<std::string, bool>;

/// A folder of a storage, which is removed with everything in it at the end.
class Place {
  public:
    Place(std::shared_ptr<provider::IProvider> asked, provider::StorageIRI at)
        : storage(std::move(asked)),
          root(std::move(at)) {}
    Place(Place const&) = delete;
    Place& operator=(Place const&) = delete;
    virtual ~Place() = default;

    /// Makes a FIFO of this name in the root, where the storage has any.
    virtual bool makeFifo(char const*) const { return false; }

    std::shared_ptr<provider::IProvider> const storage;
    provider::StorageIRI const root;
};

std::unique_ptr<Place> onDisk();
std::unique_ptr<Place> inMemory();

/// Fills a place with names and links that are hard to list, several folders deep, and says what is
/// there. No link is entered by a walk: each counts as a file.
Kinds makeOddTree(Place const& place);

} // namespace listing_test
