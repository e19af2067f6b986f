#include "new_archive.hpp"

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/byte_stream_open_options.hpp>
#include <foundation/storage/provider/extensions/i_flushable_filesystem.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>

#include <fl/i18n/conversion.hpp>

#include <filesystem>
#include <fstream>
#include <random>

namespace foundation::storage::provider::zip::test {

NewArchive::NewArchive(std::string_view copied) : name_(folder_.path() + "/archive") {
    if (copied.empty()) {
        std::ofstream(path()).close();
    } else {
        std::filesystem::copy_file(archives() + '/' + std::string(copied) + ".zip", path());
        std::filesystem::permissions(path(), std::filesystem::perms::owner_write,
                                     std::filesystem::perm_options::add);
    }
}

void write(IProvider& provider, StorageIRI const& file, std::string_view bytes) {
    auto const stream = provider.openStream(file, {});
    stream->write(bytes.data(), static_cast<long>(bytes.size()));
    stream->close();
}

std::string read(IProvider const& provider, StorageIRI const& file) {
    return readAll(*provider.openReadOnlyStream(file));
}

void flush(IProvider& provider) {
    dynamic_cast<extensions::IFlushableFilesystem&>(provider).flushFilesystem();
}

namespace {

std::string shown(IProvider const& provider, StorageIRI const& location) {
    switch (provider.existsExtended(location)) {
    case ExtendedExistsResult::Folder:
        return "/";
    case ExtendedExistsResult::File:
        return ": " + read(provider, location);
    case ExtendedExistsResult::LinkToFile:
    case ExtendedExistsResult::LinkToFolder:
    case ExtendedExistsResult::DanglingLink:
        return " -> " + fl::i18n::toDisplayString(
                            dynamic_cast<extensions::ILinks const&>(provider).readLink(location));
    case ExtendedExistsResult::Other:
    case ExtendedExistsResult::Nothing:
        break;
    }
    return " is something else";
}

} // namespace

std::vector<std::string> contentsOf(IProvider const& provider, StorageIRI const& root) {
    std::vector<std::string> result;
    for (auto const cursor = provider.listAllRecursive(root, u""); cursor->hasNext();) {
        cursor->advance();
        FolderEntry const entry = cursor->currentEntry();
        std::string text = fl::i18n::ustringToStorageName(entry.getName());
        try {
            int const code =
                codeOf([&] { text += shown(provider, StorageIRI(root, entry.getName())); });
            text += code < 0 ? "" : '!' + std::to_string(code);
        } catch (ByteStreamFailure const& failure) {
            text += std::string("!") + failure.what();
        }
        result.push_back(text);
    }
    return result;
}

std::string someBytes(std::size_t size, unsigned seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>('a' + random() % 16);
    }
    return bytes;
}

} // namespace foundation::storage::provider::zip::test
