#include "zipped.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/extensions/i_flushable_filesystem.hpp>
#include <foundation/storage/provider/memory/memory_factory.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/provider/zip/zip_factory.hpp>

#include <random>

namespace foundation::storage::provider::test {

std::string noise(std::size_t size, unsigned seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(random());
    }
    return bytes;
}

std::string zipped(std::vector<std::pair<std::string, std::size_t>> const& members) {
    StorageItem const item(memory::buildMemoryProvider(), StorageIRI(u"mem:/a.zip"));
    item.createFile();
    auto const archive = zip::buildZipProvider(item);
    unsigned seed = 0;
    for (auto const& [name, size] : members) {
        StorageIRI const place(StorageIRI(u"zip", item.getLocation(), u"/"),
                               fl::i18n::to_ustring(name));
        auto const stream = archive->openStream(place, {});
        stream->write(noise(size, seed++).data(), static_cast<long>(size));
        stream->close();
    }
    dynamic_cast<extensions::IFlushableFilesystem&>(*archive).flushFilesystem();
    std::string bytes(static_cast<std::size_t>(item.getFileAttributes().values().size.value()),
                      '\0');
    item.openReadOnlyStream()->read(bytes.data(), static_cast<long>(bytes.size()));
    return bytes;
}

} // namespace foundation::storage::provider::test
