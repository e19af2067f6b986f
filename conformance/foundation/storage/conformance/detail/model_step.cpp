#include <foundation/storage/conformance/detail/model_step.hpp>

#include <functional>
#include <optional>

namespace foundation::storage::conformance::detail {

namespace {

using provider::ByteStreamAccess;
using provider::ByteStreamCreation;
using provider::ReplacementPolicy;

std::optional<Ability> abilityFor(StepKind kind) {
    switch (kind) {
    case StepKind::CreateFolderChain:
        return Ability::FolderChainCreation;
    case StepKind::RemoveTree:
        return Ability::TreeRemoval;
    case StepKind::MoveFile:
        return Ability::FileMoves;
    case StepKind::MoveFolder:
        return Ability::FolderMoves;
    case StepKind::Replace:
        return Ability::Replacement;
    case StepKind::SetReadOnly:
    case StepKind::SetWritable:
        return Ability::ReadOnlyItems;
    default:
        return std::nullopt;
    }
}

std::string policyCode(ReplacementPolicy policy) {
    char const* const names[] = {"FailIfExists", "ReplaceExisting", "ReplaceReadOnly",
                                 "ReplaceAndDeferDenied", "KeepExisting"};
    return std::string("ReplacementPolicy::") + names[static_cast<std::size_t>(policy)];
}

std::string optionsCode(provider::ByteStreamOpenOptions const& options) {
    return std::string("{ByteStreamAccess::") +
           (options.access == ByteStreamAccess::ReadWrite ? "ReadWrite" : "WriteOnly") +
           ", ByteStreamCreation::" +
           (options.creation == ByteStreamCreation::OpenExisting ? "OpenExisting"
                                                                 : "OpenOrCreate") +
           ", " + std::to_string(options.withoutTruncate) + ", " +
           std::to_string(options.withoutAppend) + '}';
}

std::string at(std::string const& path) {
    return "at(u\"" + path + "\")";
}

std::string bytesCode(Step const& step) {
    return "std::string(" + std::to_string(step.size) + ", '" + step.letter + "')";
}

} // namespace

bool StepMaker::isWanted(StepKind kind) const {
    std::optional<Ability> const needed = abilityFor(kind);
    return (!needed || !unsupported_.contains(*needed)) &&
           (hasLastingStreams_ || kind < StepKind::OpenToRead);
}

/// Often the last one again, or one below it: what happens to one item is what can go wrong.
std::string StepMaker::path() {
    constexpr std::size_t names = 3;
    constexpr std::size_t deepest = 3;
    if (oneIn(3)) {
        return lastPath_;
    }
    std::string path;
    for (std::size_t depth = 0; depth == 0 || (depth < deepest && oneIn(2)); ++depth) {
        path += (depth == 0 ? "" : "/") + std::string(1, static_cast<char>('a' + upTo(names)));
    }
    lastPath_ = path;
    return path;
}

Step StepMaker::next() {
    // Sizes about those of buffers come now and then, since they take the most time.
    auto const amount = [&]() -> std::size_t { return oneIn(20) ? upTo(200'000) : upTo(100); };
    Step step;
    do {
        step.kind = static_cast<StepKind>(upTo(stepKinds));
    } while (!isWanted(step.kind));
    step.path = path();
    step.other = path();
    step.policy = static_cast<ReplacementPolicy>(upTo(5));
    step.options = {oneIn(2) ? ByteStreamAccess::ReadWrite : ByteStreamAccess::WriteOnly,
                    oneIn(3) ? ByteStreamCreation::OpenExisting : ByteStreamCreation::OpenOrCreate,
                    static_cast<std::uint32_t>(upTo(2)), static_cast<std::uint32_t>(upTo(2))};
    step.size = amount();
    step.offset = static_cast<std::int64_t>(amount()) - (oneIn(10) ? 50 : 0);
    step.letter = static_cast<char>('a' + upTo(26));
    step.slot = upTo(streamSlots);
    if (step.kind == StepKind::OpenToWrite) {
        step.options.access = ByteStreamAccess::WriteOnly;
    } else if (step.kind == StepKind::OpenToDoBoth) {
        step.options.access = ByteStreamAccess::ReadWrite;
    }
    return step;
}

std::string codeOf(Step const& step) {
    std::string const stream = "streams[" + std::to_string(step.slot) + "]";
    std::string const size = std::to_string(step.size);
    switch (step.kind) {
    case StepKind::CreateFile:
        return "provider->createFile(" + at(step.path) + ");";
    case StepKind::CreateFolder:
        return "provider->createFolder(" + at(step.path) + ");";
    case StepKind::CreateFolderChain:
        return "provider->createFolderRecursive(" + at(step.path) + ");";
    case StepKind::RemoveFile:
        return "provider->removeFile(" + at(step.path) + ");";
    case StepKind::RemoveFolder:
        return "provider->removeFolder(" + at(step.path) + ");";
    case StepKind::RemoveTree:
        return "provider->removeFolderRecursively(" + at(step.path) + ");";
    case StepKind::CopyFile:
        return "provider->copyFile(" + at(step.path) + ", StorageItem(provider, " + at(step.other) +
               "), {" + policyCode(step.policy) + ", 0, {}});";
    case StepKind::MoveFile:
        return "provider->moveFile(" + at(step.path) + ", " + at(step.other) + ", " +
               policyCode(step.policy) + ");";
    case StepKind::MoveFolder:
        return "provider->moveFolder(" + at(step.path) + ", " + at(step.other) + ", " +
               policyCode(step.policy) + ");";
    case StepKind::Write:
        return "write(*provider->openStream(" + at(step.path) + ", " + optionsCode(step.options) +
               "), " + std::to_string(step.offset) + ", " + bytesCode(step) + ");";
    case StepKind::Replace:
        return "write(*replacing->openReplacement(" + at(step.path) + ", " +
               policyCode(step.policy) + "), 0, " + bytesCode(step) + ");";
    case StepKind::Read:
        return "readAll(*provider->openReadOnlyStream(" + at(step.path) + "));";
    case StepKind::Exists:
        return "provider->exists(" + at(step.path) + ");";
    case StepKind::Attributes:
        return "provider->getFileAttributes(" + at(step.path) + ");";
    case StepKind::SetReadOnly:
    case StepKind::SetWritable:
        return "provider->setWritable(" + at(step.path) + ", " +
               (step.kind == StepKind::SetWritable ? "true" : "false") + ");";
    case StepKind::List:
        return "provider->listAll(" + at(step.path) + ", u\"\");";
    case StepKind::OpenToRead:
        return stream + " = provider->openReadOnlyStream(" + at(step.path) + ");";
    case StepKind::OpenToWrite:
    case StepKind::OpenToDoBoth:
        return stream + " = provider->openStream(" + at(step.path) + ", " +
               optionsCode(step.options) + ");";
    case StepKind::StreamRead:
        return stream + "->read(buffer, " + size + ");";
    case StepKind::StreamWrite:
        return stream + "->write(" + bytesCode(step) + ".data(), " + size + ");";
    case StepKind::StreamSeek:
        return stream + "->seek(" + std::to_string(step.offset) + ", std::ios_base::beg);";
    case StepKind::StreamClose:
        return stream + "->close();";
    }
    return {};
}

std::string refused(int code, std::string const& path) {
    return "refused with " + std::to_string(code) + ", " + path;
}

std::string failed(int code) {
    return "fails with " + std::to_string(code);
}

std::string contentText(std::string const& bytes) {
    return std::to_string(bytes.size()) + " bytes, hash " +
           std::to_string(std::hash<std::string>()(bytes));
}

} // namespace foundation::storage::conformance::detail
