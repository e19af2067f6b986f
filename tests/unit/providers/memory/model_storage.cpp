#include "model_storage.hpp"

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>

#include <fl/i18n/conversion.hpp>

#include <ostream>
#include <set>
#include <sstream>

namespace model {

std::string narrow(ustring const& text) {
    return fl::i18n::toDisplayString(text);
}

std::string resultOf(Storage& storage, Operation const& operation) {
    std::ostringstream result;
    try {
        operation(storage, result);
    } catch (Exception const& e) {
        result << e.getErrorCode() << " of " << narrow(e.getStorageIRI().getResolvedPath());
    } catch (ByteStreamReadFailure const& e) {
        result << "read failure " << e.getErrorCode();
    } catch (ByteStreamWriteFailure const& e) {
        result << "write failure " << e.getErrorCode();
    } catch (ByteStreamSeekFailure const& e) {
        result << "seek failure " << e.getErrorCode();
    } catch (ByteStreamCloseFailure const& e) {
        result << "close failure " << e.getErrorCode();
    }
    return result.str();
}

void describe(std::ostream& out, AttributeValues const& values, bool isFile) {
    out << (values.writable ? " writable" : " read-only") << " mode " << std::oct
        << values.mode.value_or(0) << std::dec;
    if (isFile) {
        out << " size " << values.size.value_or(0);
        // Times that were set lie in the past; all others are the time of the test.
        if (values.lastModified.seconds < 1'000'000'000) {
            out << " time " << values.lastModified.seconds << '.'
                << values.lastModified.nanoseconds;
        }
    }
}

namespace {

std::string contentOf(IProvider const& provider, StorageIRI const& location) {
    auto const stream = provider.openReadOnlyStream(location);
    std::string content;
    std::array<char, 700> buffer;
    long got = 0;
    while ((got = stream->read(buffer.data(), buffer.size())) > 0) {
        content.append(buffer.data(), static_cast<std::size_t>(got));
    }
    stream->close();
    return content;
}

} // namespace

void describeListing(IFolderEntryIterator& cursor, std::ostream& out) {
    std::set<std::string> entries;
    while (cursor.hasNext()) {
        cursor.advance();
        FolderEntry const entry = cursor.currentEntry();
        std::ostringstream text;
        text << narrow(entry.getName()) << (entry.isFile() ? " file" : " folder");
        if (entry.getFileAttributes()) {
            describe(text, entry.getFileAttributes()->values(), true);
        }
        if (entry.getFolderAttributes()) {
            describe(text, entry.getFolderAttributes()->values(), false);
        }
        text << '\n';
        if (!entries.insert(text.str()).second) {
            out << "twice: " << text.str();
        }
    }
    for (std::string const& entry : entries) {
        out << entry;
    }
}

void clearTree(Storage& storage, ustring const& path, std::ostream& out) {
    bool const folder = storage.provider->exists(storage.at(path)) == ExistsResult::Folder;
    if (folder) {
        for (char16_t const* const name : names) {
            clearTree(storage, path + u"/" + name, out);
        }
    }
    out << resultOf(storage, [&](Storage& s, std::ostream& result) {
        if (folder) {
            s.provider->removeFolder(s.at(path));
        } else {
            s.provider->removeFile(s.at(path));
        }
        result << " removed " << narrow(path);
    });
}

void describeTree(Storage& storage, ustring const& path, int depth, std::ostream& out) {
    for (char16_t const* const name : names) {
        ustring const p = path.empty() ? ustring(name) : path + u"/" + name;
        auto const kind = storage.provider->existsExtended(storage.at(p));
        if (kind == ExtendedExistsResult::Nothing) {
            continue;
        }
        out << narrow(p) << " kind " << static_cast<int>(kind);
        if (kind == ExtendedExistsResult::File) {
            describe(out, storage.provider->getFileAttributes(storage.at(p)).values(), true);
            out << " content "
                << std::hash<std::string>()(contentOf(*storage.provider, storage.at(p)));
        }
        out << '\n';
        if (kind == ExtendedExistsResult::Folder && depth < deepest + 2) {
            describeTree(storage, p, depth + 1, out);
        }
    }
}

} // namespace model
