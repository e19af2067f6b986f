// Any bytes as a tar archive in memory: it is refused, or everything in it can be listed, and every
// member read in more than one way with the same outcome.

#include "archive_checks.hpp"
#include "require.hpp"

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/memory/memory_factory.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/provider/tar/tar_factory.hpp>

#include <cstdint>
#include <memory>

using namespace foundation::storage::provider;

namespace {

tar::TarOptions smallBounds() {
    tar::TarOptions options;
    options.sevenZip = true;
    options.maximumEntries = 2'000;
    options.maximumDepth = 50;
    options.maximumDecoded = 16 * 1024 * 1024;
    options.maximumDecoderMemory = 8 * 1024 * 1024;
    options.cacheSize = 256 * 1024; // so that going back begins again
    return options;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
    auto const store = memory::buildMemoryProvider();
    StorageItem const item(store, StorageIRI(u"mem:/a.tar"));
    {
        auto const stream = item.openStream({});
        stream->write(reinterpret_cast<char const*>(bytes), static_cast<long>(size));
        stream->close();
    }
    std::shared_ptr<IProvider> archive;
    try {
        archive = tar::buildTarProvider(item, smallBounds());
    } catch (Exception const& refused) {
        require(refused.getErrorCode() == ErrorCode::IOError ||
                refused.getErrorCode() == ErrorCode::UnsupportedOperation ||
                refused.getErrorCode() == ErrorCode::FileTooLarge);
        return 0;
    }
    checkArchive(*archive, StorageIRI(u"tar", item.getLocation(), u"/"));
    return 0;
}
