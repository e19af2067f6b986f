#include "contract_places.hpp"

#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/local/local_factory.hpp>
#include <foundation/storage/provider/local_path.hpp>
#include <foundation/storage/provider/memory/memory_factory.hpp>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace conformance_test {

using namespace foundation::storage;

namespace {

class TemporaryFolder {
  public:
    TemporaryFolder() {
        path_ = std::filesystem::canonical(std::filesystem::temp_directory_path()) /
                "provider-contract-XXXXXX";
        if (!::mkdtemp(path_.data())) {
            throw std::system_error(errno, std::generic_category(), path_);
        }
    }
    TemporaryFolder(TemporaryFolder const&) = delete;
    TemporaryFolder& operator=(TemporaryFolder const&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    std::string const& path() const { return path_; }

  private:
    std::string path_;
};

} // namespace

conformance::Place memoryPlace() {
    auto const store = provider::memory::buildMemoryProvider();
    provider::StorageIRI const folder(u"mem:/place");
    store->createFolder(folder);
    return {store, folder, {}, nullptr};
}

conformance::Place localPlace() {
    auto const folder = std::make_shared<TemporaryFolder>();
    return {
        provider::local::buildLocalProvider(), provider::fromLocalPath(folder->path()), {}, folder};
}

} // namespace conformance_test
