#pragma once

#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/provider/tar/tar_options.hpp>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace foundation::storage::provider::tar::test {

/// The folder with the archives that make_archives.py has made.
std::string const& archives();

/// A folder of a test's own, removed with everything in it at the end.
class WorkFolder {
  public:
    WorkFolder();
    WorkFolder(WorkFolder const&) = delete;
    WorkFolder& operator=(WorkFolder const&) = delete;
    ~WorkFolder();

    std::string const& path() const noexcept { return path_; }

  private:
    std::string path_;
};

/// The whole of a file of the disk.
std::string contentOf(std::string const& path);

/// A file of the local disk, by its absolute path.
StorageItem localItem(std::string const& path);

/// The archive `name`.tar among those, or of an absolute path.
std::shared_ptr<IProvider> open(std::string_view name, TarOptions const& options = {});

/// The location of a path in it, "" and "a/b" for example.
StorageIRI inside(std::string_view name, std::string_view path);

/// All that is to be read of it.
std::string readAll(ByteStream& stream);

/// The code of what a call throws as provider::Exception; -1 where it throws nothing.
template<class Call>
int codeOf(Call const& call);

} // namespace foundation::storage::provider::tar::test

#include <foundation/storage/provider/exception.hpp>

template<class Call>
int foundation::storage::provider::tar::test::codeOf(Call const& call) {
    try {
        call();
    } catch (Exception const& failure) {
        return static_cast<int>(failure.getErrorCode());
    }
    return -1;
}
