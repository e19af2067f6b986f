#pragma once

#include <foundation/storage/provider/storage_iri.hpp>

#include <string>

namespace foundation::storage::provider::local::test {

/// Where many folders are made and removed: in memory where the machine has a place for it, since
/// some file systems take long for so many; else in `elsewhere`.
std::string placeForMany(std::string const& elsewhere);

/// A chain of folders `a`, each with a folder `b` beside it where `pairs` is set. What is still
/// there of it at the end is removed.
class DeepTree {
  public:
    DeepTree(std::string const& elsewhere, unsigned levels, bool pairs);
    DeepTree(DeepTree const&) = delete;
    DeepTree& operator=(DeepTree const&) = delete;
    ~DeepTree();

    std::string const& path() const noexcept { return path_; }
    StorageIRI location() const;

  private:
    std::string path_;
};

} // namespace foundation::storage::provider::local::test
