#include "tar_fixture.hpp"

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/local/local_factory.hpp>
#include <foundation/storage/provider/local_path.hpp>
#include <foundation/storage/provider/tar/tar_factory.hpp>

#include <fl/i18n/conversion.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace foundation::storage::provider::tar::test {

namespace {

std::string pathOf(std::string_view archive) {
    return (archive.starts_with('/') ? "" : archives() + '/') + std::string(archive) + ".tar";
}

} // namespace

std::string const& archives() {
    static std::string const folder = ARCHIVES;
    return folder;
}

WorkFolder::WorkFolder() : path_(std::filesystem::temp_directory_path() / "tar-test-XXXXXX") {
    if (::mkdtemp(path_.data()) == nullptr) {
        throw std::runtime_error("no folder to work in");
    }
}

WorkFolder::~WorkFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string contentOf(std::string const& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

StorageItem localItem(std::string const& path) {
    static auto const provider = local::buildLocalProvider();
    return StorageItem(provider, fromLocalPath(path));
}

std::shared_ptr<IProvider> open(std::string_view name, TarOptions const& options) {
    return buildTarProvider(localItem(pathOf(name)), options);
}

StorageIRI inside(std::string_view name, std::string_view path) {
    StorageIRI const root(u"tar", fromLocalPath(pathOf(name)), u"/");
    return path.empty() ? root : StorageIRI(root, fl::i18n::storageNameToUstring(path));
}

std::string readAll(ByteStream& stream) {
    std::string result;
    std::string buffer(100'000, '\0');
    for (;;) {
        long const got = stream.read(buffer.data(), static_cast<long>(buffer.size()));
        if (got < 0) {
            return result;
        }
        result.append(buffer, 0, static_cast<std::size_t>(got));
    }
}

} // namespace foundation::storage::provider::tar::test
