#include "archive_fixture.hpp"

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/provider/local/local_factory.hpp>
#include <foundation/storage/provider/local_path.hpp>

#include <fl/i18n/conversion.hpp>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace foundation::storage::provider::test {

namespace {

std::string pathOf(std::string_view archive) {
    return (archive.starts_with('/') ? "" : archives() + '/') + std::string(archive) + '.' + SCHEME;
}

/// A name, with bytes that are no UTF-8 spelled out.
std::string spelledName(fl::i18n::ustring const& name) {
    std::string text;
    for (char16_t const unit : name) {
        if (unit >= 0xDC80 && unit <= 0xDCFF) {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02x", unit & 0xFFU);
            text += hex;
        } else {
            text += fl::i18n::toDisplayString({&unit, 1});
        }
    }
    return text;
}

std::string lineFor(IProvider& provider, std::string_view archive, FolderEntry const& entry) {
    std::string const path = fl::i18n::ustringToStorageName(entry.getName());
    StorageIRI const location = inside(archive, path);
    std::string const name = spelledName(entry.getName());
    if (!entry.isFile()) {
        return name + '/';
    }
    auto& links = dynamic_cast<extensions::ILinks&>(provider);
    std::string line;
    int const code = codeOf([&] {
        ExtendedExistsResult const kind = provider.existsExtended(location);
        if (kind != ExtendedExistsResult::File && kind != ExtendedExistsResult::Other) {
            line = name + "->" + spelledName(links.readLink(location));
            return;
        }
        line = name;
        auto const stream = provider.openReadOnlyStream(location);
        try {
            line += '=' + readAll(*stream);
        } catch (ByteStreamReadFailure const&) {
            line += "!read";
        }
        EXPECT_EQ(provider.getFileAttributes(location).values().size,
                  entry.getFileAttributes()->values().size);
    });
    if (code >= 0) {
        bool const isLink = codeOf([&] { links.readLink(location); }) == code &&
                            entry.getFileAttributes()->values().mode.value_or(0) == 0777;
        line = name + (isLink ? "->!" : "!") + std::to_string(code);
    }
    return line;
}

} // namespace

std::string const& archives() {
    static std::string const folder = ARCHIVES;
    return folder;
}

WorkFolder::WorkFolder() : path_(std::filesystem::temp_directory_path() / (SCHEME "-test-XXXXXX")) {
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

StorageItem archiveItem(std::string_view name) {
    return localItem(pathOf(name));
}

StorageIRI inside(std::string_view name, std::string_view path) {
    StorageIRI const root(u"" SCHEME, fromLocalPath(pathOf(name)), u"/");
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

std::vector<std::string> namesOf(std::unique_ptr<IFolderEntryIterator> const& cursor) {
    std::vector<std::string> names;
    while (cursor->hasNext()) {
        cursor->advance();
        FolderEntry const entry = cursor->currentEntry();
        names.push_back(fl::i18n::toDisplayString(entry.getName()) + (entry.isFile() ? "" : "/"));
    }
    return names;
}

std::string view(IProvider& provider, std::string_view archive) {
    std::string text;
    auto const cursor = provider.listAllRecursive(inside(archive, ""), u"");
    while (cursor->hasNext()) {
        cursor->advance();
        text += lineFor(provider, archive, cursor->currentEntry()) + '\n';
    }
    return text;
}

double processorTime() {
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

} // namespace foundation::storage::provider::test
