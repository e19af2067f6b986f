#include "archive_checks.hpp"

#include "require.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/provider/i_provider.hpp>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

using namespace foundation::storage::provider;

namespace {

constexpr std::size_t mostRead = 64 * 1024; ///< of one member
constexpr std::size_t mostEntries = 200;

struct Content {
    std::string bytes;
    bool failed = false;

    bool operator==(Content const&) const = default;
};

/// Up to mostRead bytes from where the stream stands, in pieces of `piece`.
Content readOn(ByteStream& stream, std::size_t piece) {
    Content content;
    std::vector<char> buffer(piece);
    try {
        while (content.bytes.size() < mostRead) {
            std::size_t const wanted = std::min(piece, mostRead - content.bytes.size());
            long const got = stream.read(buffer.data(), static_cast<long>(wanted));
            if (got < 0) {
                break;
            }
            require(got > 0 && static_cast<std::size_t>(got) <= wanted);
            content.bytes.append(buffer.data(), static_cast<std::size_t>(got));
        }
    } catch (ByteStreamFailure const&) {
        content.failed = true;
    }
    return content;
}

/// One member: read whole, read again in other pieces, and read from a place in the middle.
void checkMember(IProvider& archive, StorageIRI const& location,
                 std::optional<std::uint64_t> size) {
    std::unique_ptr<ByteStream> stream;
    try {
        stream = archive.openReadOnlyStream(location);
    } catch (Exception const&) {
        return;
    }
    Content const whole = readOn(*stream, 4096);
    if (!whole.failed && whole.bytes.size() < mostRead) {
        require(!size || *size == whole.bytes.size());
        try {
            require(stream->seek(0, std::ios_base::end) == static_cast<long>(whole.bytes.size()));
        } catch (ByteStreamFailure const&) {
            require(false); // all of it was there a moment ago
        }
    }

    Content const again = readOn(*archive.openReadOnlyStream(location), 777);
    // Where reading fails, how much came before depends on the pieces.
    require(again.failed == whole.failed);
    std::size_t const common = std::min(again.bytes.size(), whole.bytes.size());
    require(again.bytes.compare(0, common, whole.bytes, 0, common) == 0);
    require(whole.failed || again == whole);

    if (whole.failed) {
        return;
    }
    std::size_t const middle = whole.bytes.size() / 3;
    require(stream->seek(static_cast<long>(middle), std::ios_base::beg) ==
            static_cast<long>(middle));
    std::string const rest = whole.bytes.substr(middle);
    Content const second = readOn(*stream, 333);
    require(!second.failed);
    require(second.bytes.compare(0, rest.size(), rest) == 0);
    stream->close();
}

/// What asks where a link leads reads its content, which may be damaged.
void checkLink(IProvider& archive, StorageIRI const& location) {
    auto* const links = dynamic_cast<extensions::ILinks*>(&archive);
    require(links != nullptr);
    for (auto const& ask : std::vector<std::function<void()>>{
             [&] { links->readLink(location); },
             [&] { archive.existsExtended(location); },
             [&] { archive.getCanonicalLocation(location); },
             [&] { archive.getFileAttributes(location); },
             [&] { readOn(*archive.openReadOnlyStream(location), 100); },
         }) {
        try {
            ask();
        } catch (Exception const&) {
        }
    }
}

bool isLink(IProvider& archive, StorageIRI const& location) {
    try {
        return archive.existsExtended(location) != ExtendedExistsResult::File;
    } catch (Exception const&) {
        return true; // no other entry is read for this
    }
}

void checkEntry(IProvider& archive, StorageIRI const& location, bool isFile) {
    ExistsResult const kind = archive.exists(location);
    require(kind == (isFile ? ExistsResult::File : ExistsResult::Folder));
    if (!isFile) {
        require(archive.existsExtended(location) == ExtendedExistsResult::Folder);
        require(archive.getCanonicalLocation(location) == location);
        archive.getFolderAttributes(location);
    } else if (isLink(archive, location)) {
        checkLink(archive, location);
    } else {
        require(archive.getCanonicalLocation(location) == location);
        archive.getExtendedAttributes(location);
        checkMember(archive, location, archive.getFileAttributes(location).values().size);
    }
}

} // namespace

void checkArchive(IProvider& archive, StorageIRI const& root) {
    require(archive.folderExists(root));
    std::set<ustring> names;
    auto const listing = archive.listAllRecursive(root, u"");
    for (std::size_t count = 0; count < mostEntries && listing->hasNext(); ++count) {
        listing->advance();
        FolderEntry const entry = listing->currentEntry();
        require(names.insert(entry.getName()).second);
        checkEntry(archive, StorageIRI(root, entry.getName()), entry.isFile());
    }
    if (!listing->hasNext()) {
        auto const without = archive.listAllRecursiveNamesOnly(root, u"");
        for (std::size_t count = 0; count < names.size(); ++count) {
            require(without->hasNext());
            without->advance();
            require(names.contains(without->currentEntry().getName()));
        }
        require(!without->hasNext());
    }
    auto const flat = archive.listAll(root, u"*");
    for (std::size_t count = 0; count < mostEntries && flat->hasNext(); ++count) {
        flat->advance();
        require(flat->currentEntry().getName().find(u'/') == ustring::npos);
    }
}
