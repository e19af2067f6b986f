#pragma once

#include "zip_fixture.hpp"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace foundation::storage::provider::zip::test {

/// An archive of a test's own, in a folder of its own: empty, or a copy of one of those that
/// make_archives.py has made.
class NewArchive {
  public:
    explicit NewArchive(std::string_view copied = "");

    /// Of the file, without `.zip`.
    std::string const& name() const noexcept { return name_; }
    std::string path() const { return name_ + ".zip"; }
    std::string const& folder() const noexcept { return folder_.path(); }
    std::string bytes() const { return contentOf(path()); }
    std::shared_ptr<IProvider> open(ZipOptions const& options = {}) const {
        return test::open(name_, options);
    }
    StorageIRI at(std::string_view inner) const { return inside(name_, inner); }

  private:
    WorkFolder folder_;
    std::string name_;
};

void write(IProvider& provider, StorageIRI const& file, std::string_view bytes);
std::string read(IProvider const& provider, StorageIRI const& file);
void flush(IProvider& provider);

/// All that is in an archive: paths with what is read there, folders with a `/` behind them, links
/// with ` -> ` and their target; what cannot be read with `!` and why.
std::vector<std::string> contentsOf(IProvider const& provider, StorageIRI const& root);

/// Bytes that deflate to about half of them.
std::string someBytes(std::size_t size, unsigned seed);

} // namespace foundation::storage::provider::zip::test
