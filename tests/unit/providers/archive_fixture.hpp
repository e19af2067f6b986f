#pragma once

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// What the tests of containers have in common. A test program names in ARCHIVES the folder with
/// the archives that its make_archives.py has made, and in SCHEME what they end in, which is the
/// scheme of their locations too.
namespace foundation::storage::provider::test {

/// The folder with the archives.
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

/// An archive by its name among those, or by an absolute path, without the ending.
StorageItem archiveItem(std::string_view name);

/// The location of a path in it, "" and "a/b" for example.
StorageIRI inside(std::string_view name, std::string_view path);

/// All that is to be read of it.
std::string readAll(ByteStream& stream);

/// What is left of a listing, folders with a slash behind them.
std::vector<std::string> namesOf(std::unique_ptr<IFolderEntryIterator> const& cursor);

/// All that is in an archive, as make_archives.py writes it beside each.
std::string view(IProvider& provider, std::string_view archive);

/// In seconds, of the process, which others that run beside it do not lengthen.
double processorTime();

/// The code of what a call throws as provider::Exception; -1 where it throws nothing.
template<class Call>
int codeOf(Call const& call) {
    try {
        call();
    } catch (Exception const& failure) {
        return static_cast<int>(failure.getErrorCode());
    }
    return -1;
}

} // namespace foundation::storage::provider::test
