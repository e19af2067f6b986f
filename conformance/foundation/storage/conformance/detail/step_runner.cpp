#include <foundation/storage/conformance/detail/step_runner.hpp>

#include <foundation/storage/conformance/detail/text.hpp>
#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <fl/i18n/conversion.hpp>

#include <algorithm>
#include <map>
#include <utility>

namespace foundation::storage::conformance::detail {

using namespace provider;

namespace {

void writeAll(ByteStream& stream, std::int64_t offset, Step const& step) {
    if (offset != 0) {
        stream.seek(static_cast<long>(offset), std::ios_base::beg);
    }
    std::string const bytes(step.size, step.letter);
    stream.write(bytes.data(), static_cast<long>(bytes.size()));
    stream.close();
}

std::string readAll(ByteStream& stream) {
    std::string bytes;
    std::string buffer(65'536, '\0');
    for (long got = 0; (got = stream.read(buffer.data(), static_cast<long>(buffer.size()))) >= 0;) {
        bytes.append(buffer, 0, static_cast<std::size_t>(got));
    }
    return bytes;
}

} // namespace

StorageIRI StepRunner::at(std::string const& path) const {
    return StorageIRI(place_.folder, fl::i18n::to_ustring(path));
}

std::string StepRunner::run(Step const& step) {
    try {
        return perform(step);
    } catch (Exception const& failure) {
        StorageIRI const location = failure.getStorageIRI();
        bool const isHere = place_.folder.isAncestorOf(location);
        return refused(static_cast<int>(failure.getErrorCode()),
                       isHere
                           ? fl::i18n::toDisplayString(location.makePathRelativeTo(place_.folder))
                           : textOf(location));
    } catch (ByteStreamFailure const& failure) {
        return failed(static_cast<int>(failure.getErrorCode()));
    } catch (...) {
        return "throws " + textOfCurrentException();
    }
}

std::string StepRunner::perform(Step const& step) {
    IProvider& provider = *place_.provider;
    StorageIRI const location = at(step.path);
    switch (step.kind) {
    case StepKind::CreateFile:
        provider.createFile(location);
        break;
    case StepKind::CreateFolder:
        provider.createFolder(location);
        break;
    case StepKind::CreateFolderChain:
        provider.createFolderRecursive(location);
        break;
    case StepKind::RemoveFile:
        provider.removeFile(location);
        break;
    case StepKind::RemoveFolder:
        provider.removeFolder(location);
        break;
    case StepKind::RemoveTree:
        provider.removeFolderRecursively(location);
        break;
    case StepKind::CopyFile:
        provider.copyFile(location, StorageItem(place_.provider, at(step.other)),
                          {step.policy, 0, {}});
        break;
    case StepKind::MoveFile:
        provider.moveFile(location, at(step.other), step.policy);
        break;
    case StepKind::MoveFolder:
        provider.moveFolder(location, at(step.other), step.policy);
        break;
    case StepKind::Write:
        writeAll(*provider.openStream(location, step.options), step.offset, step);
        break;
    case StepKind::Replace:
        writeAll(*dynamic_cast<extensions::IReplacingStreams&>(provider).openReplacement(
                     location, step.policy),
                 0, step);
        break;
    case StepKind::Read:
        return contentText(readAll(*provider.openReadOnlyStream(location)));
    case StepKind::Exists: {
        ExistsResult const result = provider.exists(location);
        return result == ExistsResult::Nothing  ? "nothing"
               : result == ExistsResult::Folder ? "folder"
                                                : "file";
    }
    case StepKind::Attributes: {
        AttributeValues const values = provider.getFileAttributes(location).values();
        return (values.size ? std::to_string(*values.size) : "no size") +
               (values.writable ? "" : " read-only");
    }
    case StepKind::SetReadOnly:
    case StepKind::SetWritable:
        provider.setWritable(location, step.kind == StepKind::SetWritable);
        break;
    case StepKind::List:
        return list(location);
    case StepKind::OpenToRead:
        streams_[step.slot] = provider.openReadOnlyStream(location);
        break;
    case StepKind::OpenToWrite:
    case StepKind::OpenToDoBoth:
        streams_[step.slot] = provider.openStream(location, step.options);
        break;
    case StepKind::StreamRead:
    case StepKind::StreamWrite:
    case StepKind::StreamSeek:
    case StepKind::StreamClose:
        return use(step);
    }
    return "done";
}

std::string StepRunner::list(StorageIRI const& location) const {
    std::map<std::string, std::string> entries;
    auto const cursor = place_.provider->listAll(location, u"");
    while (cursor->hasNext() && cursor->hasNext()) { // asking changes nothing
        cursor->advance();
        FolderEntry const entry = cursor->currentEntry();
        auto const& file = entry.getFileAttributes();
        entries[fl::i18n::toDisplayString(entry.getName())] =
            !entry.isFile()               ? "/"
            : file && file->values().size ? ' ' + std::to_string(*file->values().size)
                                          : " without a size";
    }
    std::string text = "lists";
    for (auto const& [name, rest] : entries) {
        text += ' ';
        text += name;
        text += rest;
    }
    return text;
}

std::string StepRunner::use(Step const& step) {
    ByteStream& stream = *streams_[step.slot];
    switch (step.kind) {
    case StepKind::StreamRead: {
        std::string buffer(step.size, '\0');
        long const got = stream.read(buffer.data(), static_cast<long>(step.size));
        if (got < 0) {
            return "at the end";
        }
        buffer.resize(static_cast<std::size_t>(got));
        return contentText(buffer);
    }
    case StepKind::StreamWrite: {
        std::string const bytes(step.size, step.letter);
        long const written = stream.write(bytes.data(), static_cast<long>(bytes.size()));
        return written == static_cast<long>(bytes.size()) ? "done" : "writes less";
    }
    case StepKind::StreamSeek:
        return "at " +
               std::to_string(stream.seek(static_cast<long>(step.offset), std::ios_base::beg));
    default:
        stream.close();
        return "done";
    }
}

} // namespace foundation::storage::conformance::detail
