#include <foundation/storage/conformance/detail/model.hpp>

#include <algorithm>
#include <utility>

namespace foundation::storage::conformance::detail {

namespace {

using provider::ByteStreamCreation;
using provider::ReplacementPolicy;

// The codes of docs/providers.md.
constexpr int folderNotEmpty = 0;
constexpr int invalidLocation = 1;
constexpr int permissionDenied = 2;
constexpr int alreadyExists = 3;
constexpr int notFound = 4;
constexpr int internalError = 10;

constexpr char const* done = "done";

std::string parentOf(std::string const& path) {
    std::size_t const slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash);
}

std::string nameOf(std::string const& path) {
    return path.substr(path.rfind('/') + 1);
}

bool isBelow(std::string const& path, std::string const& folder) {
    return path.starts_with(folder + '/');
}

void overwrite(std::string& bytes, std::size_t position, std::size_t size, char letter) {
    if (size != 0) {
        bytes.resize(std::max(bytes.size(), position + size), '\0');
        bytes.replace(position, size, size, letter);
    }
}

} // namespace

Model::NodePtr Model::find(std::string const& path) const {
    NodePtr node = root_;
    for (std::size_t begin = 0; begin < path.size() && node;) {
        std::size_t const end = std::min(path.find('/', begin), path.size());
        auto const child = node->children.find(path.substr(begin, end - begin));
        node = child == node->children.end() ? nullptr : child->second;
        begin = end + 1;
    }
    return node;
}

Model::NodePtr Model::folderOf(std::string const& path) const {
    NodePtr const folder = find(parentOf(path));
    return folder && folder->isFolder ? folder : nullptr;
}

void Model::put(std::string const& path, NodePtr node) {
    folderOf(path)->children[nameOf(path)] = std::move(node);
}

void Model::take(std::string const& path) {
    folderOf(path)->children.erase(nameOf(path));
}

bool Model::leavesOut(Step const& step) const {
    NodePtr const node = find(step.path);
    switch (step.kind) {
    case StepKind::SetReadOnly:
    case StepKind::SetWritable:
        return node && node->isFolder; // what it means to a folder differs
    case StepKind::MoveFolder:
        return isBelow(step.path, step.other); // a rule of its own
    case StepKind::StreamRead:
    case StepKind::StreamWrite:
    case StepKind::StreamSeek:
    case StepKind::StreamClose:
        return !streams_[step.slot];
    default:
        return false;
    }
}

std::string Model::run(Step const& step) {
    switch (step.kind) {
    case StepKind::CreateFile:
    case StepKind::CreateFolder:
        return create(step);
    case StepKind::CreateFolderChain:
        return createChain(step);
    case StepKind::RemoveFile:
    case StepKind::RemoveFolder:
    case StepKind::RemoveTree:
        return remove(step);
    case StepKind::CopyFile:
    case StepKind::MoveFile:
        return copyOrMove(step);
    case StepKind::MoveFolder:
        return moveFolder(step);
    case StepKind::Write:
        return write(step);
    case StepKind::Replace:
        return replace(step);
    case StepKind::Read:
    case StepKind::Exists:
    case StepKind::Attributes:
        return ask(step);
    case StepKind::SetReadOnly:
    case StepKind::SetWritable: {
        NodePtr const node = find(step.path);
        if (!node) {
            return refused(notFound, step.path);
        }
        node->isReadOnly = step.kind == StepKind::SetReadOnly;
        return done;
    }
    case StepKind::List:
        return list(step);
    case StepKind::OpenToRead:
    case StepKind::OpenToWrite:
    case StepKind::OpenToDoBoth:
        return open(step);
    case StepKind::StreamRead:
    case StepKind::StreamWrite:
    case StepKind::StreamSeek:
    case StepKind::StreamClose:
        return use(step);
    }
    return {};
}

std::string Model::create(Step const& step) {
    if (find(step.path)) {
        return refused(alreadyExists, step.path);
    }
    if (!folderOf(step.path)) {
        return refused(notFound, step.path);
    }
    put(step.path, std::make_shared<Node>(Node{step.kind == StepKind::CreateFolder}));
    return done;
}

std::string Model::createChain(Step const& step) {
    for (std::size_t end = 0; end != std::string::npos;) {
        end = step.path.find('/', end + 1);
        std::string const path = step.path.substr(0, end);
        NodePtr const node = find(path);
        if (node && !node->isFolder) {
            return refused(path == step.path ? alreadyExists : notFound, step.path);
        }
        if (!node) {
            put(path, std::make_shared<Node>(Node{true}));
        }
    }
    return done;
}

std::string Model::remove(Step const& step) {
    NodePtr const node = find(step.path);
    bool const ofFile = step.kind == StepKind::RemoveFile;
    if (!node || (!ofFile && !node->isFolder)) {
        return refused(notFound, step.path);
    }
    if (ofFile && node->isFolder) {
        return refused(invalidLocation, step.path);
    }
    if (step.kind == StepKind::RemoveFolder && !node->children.empty()) {
        return refused(folderNotEmpty, step.path);
    }
    take(step.path);
    return done;
}

std::string Model::copyOrMove(Step const& step) {
    NodePtr const source = find(step.path);
    NodePtr const there = find(step.other);
    if (!source) {
        return refused(notFound, step.path);
    }
    if (source->isFolder) {
        return refused(invalidLocation, step.path);
    }
    if (!folderOf(step.other)) {
        return refused(notFound, step.other);
    }
    if (step.path == step.other) {
        return refused(invalidLocation, step.path);
    }
    if (there && !replaces(step.policy)) {
        return refused(alreadyExists, step.other);
    }
    if (there && there->isFolder) {
        return refused(invalidLocation, step.other);
    }
    if (there && there->isReadOnly) {
        return refused(permissionDenied, step.other);
    }
    if (step.kind == StepKind::MoveFile) {
        take(step.path);
        put(step.other, source);
    } else {
        put(step.other, std::make_shared<Node>(*source));
    }
    return done;
}

std::string Model::moveFolder(Step const& step) {
    NodePtr const source = find(step.path);
    NodePtr const there = find(step.other);
    if (!source) {
        return refused(notFound, step.path);
    }
    if (!source->isFolder || step.path == step.other) {
        return refused(invalidLocation, step.path);
    }
    if (!folderOf(step.other)) {
        return refused(notFound, step.other);
    }
    if (isBelow(step.other, step.path)) {
        return refused(invalidLocation, step.other);
    }
    if (there && !replaces(step.policy)) {
        return refused(alreadyExists, step.other);
    }
    if (there && !there->isFolder) {
        return refused(invalidLocation, step.other);
    }
    if (there && !there->children.empty()) {
        return refused(folderNotEmpty, step.other);
    }
    take(step.path);
    put(step.other, source);
    return done;
}

Model::NodePtr Model::fileToWrite(Step const& step, std::string& refusal) {
    NodePtr file = find(step.path);
    if (file && file->isFolder) {
        refusal = refused(invalidLocation, step.path);
        return nullptr;
    }
    if (file && file->isReadOnly) {
        refusal = refused(permissionDenied, step.path);
        return nullptr;
    }
    if (!file) {
        if (step.options.creation == ByteStreamCreation::OpenExisting || !folderOf(step.path)) {
            refusal = refused(notFound, step.path);
            return nullptr;
        }
        file = std::make_shared<Node>();
        put(step.path, file);
    }
    if (step.options.withoutTruncate == 0) {
        file->bytes.clear();
    }
    return file;
}

std::string Model::write(Step const& step) {
    std::string refusal;
    NodePtr const file = fileToWrite(step, refusal);
    if (!file) {
        return refusal;
    }
    if (step.offset < 0) {
        return failed(invalidLocation);
    }
    std::size_t const position = step.options.withoutAppend == 0
                                     ? file->bytes.size()
                                     : static_cast<std::size_t>(step.offset);
    overwrite(file->bytes, position, step.size, step.letter);
    return done;
}

std::string Model::replace(Step const& step) {
    NodePtr const there = find(step.path);
    if (!folderOf(step.path)) {
        return refused(notFound, step.path);
    }
    if (there && !replaces(step.policy)) {
        return refused(alreadyExists, step.path);
    }
    if (there && there->isFolder) {
        return refused(invalidLocation, step.path);
    }
    if (there && there->isReadOnly) {
        return refused(permissionDenied, step.path);
    }
    auto file = std::make_shared<Node>();
    file->bytes.assign(step.size, step.letter);
    put(step.path, std::move(file));
    return done;
}

std::string Model::ask(Step const& step) const {
    NodePtr const node = find(step.path);
    if (step.kind == StepKind::Exists) {
        return !node ? "nothing" : node->isFolder ? "folder" : "file";
    }
    if (!node) {
        return refused(notFound, step.path);
    }
    if (node->isFolder) {
        return refused(invalidLocation, step.path);
    }
    return step.kind == StepKind::Read
               ? contentText(node->bytes)
               : std::to_string(node->bytes.size()) + (node->isReadOnly ? " read-only" : "");
}

std::string Model::list(Step const& step) const {
    NodePtr const folder = find(step.path);
    if (!folder || !folder->isFolder) {
        return refused(notFound, step.path);
    }
    std::string text = "lists";
    for (auto const& [name, node] : folder->children) {
        text += ' ' + name + (node->isFolder ? "/" : ' ' + std::to_string(node->bytes.size()));
    }
    return text;
}

std::string Model::open(Step const& step) {
    if (step.kind == StepKind::OpenToRead) {
        NodePtr const node = find(step.path);
        if (!node || node->isFolder) {
            return refused(node ? invalidLocation : notFound, step.path);
        }
        streams_[step.slot] = Stream{node, step.kind};
        return done;
    }
    std::string refusal;
    NodePtr const file = fileToWrite(step, refusal);
    if (!file) {
        return refusal;
    }
    streams_[step.slot] = Stream{file, step.kind, step.options.withoutAppend == 0};
    return done;
}

std::string Model::use(Step const& step) {
    Stream& stream = *streams_[step.slot];
    std::string& bytes = stream.file->bytes;
    if (!stream.failure.empty()) {
        return stream.failure;
    }
    switch (step.kind) {
    case StepKind::StreamRead: {
        if (stream.opening == StepKind::OpenToWrite) {
            return failed(permissionDenied);
        }
        if (step.size != 0 && stream.position >= bytes.size()) {
            return "at the end";
        }
        std::string const read = step.size == 0 ? "" : bytes.substr(stream.position, step.size);
        stream.position += read.size();
        return contentText(read);
    }
    case StepKind::StreamWrite:
        if (stream.opening == StepKind::OpenToRead) {
            return stream.failure = failed(permissionDenied);
        }
        if (stream.appends && step.size != 0) {
            stream.position = bytes.size();
        }
        overwrite(bytes, stream.position, step.size, step.letter);
        stream.position += step.size;
        return done;
    case StepKind::StreamSeek:
        if (step.offset < 0) {
            return failed(invalidLocation);
        }
        stream.position = static_cast<std::size_t>(step.offset);
        return "at " + std::to_string(step.offset);
    default:
        stream.failure = failed(internalError);
        return done;
    }
}

} // namespace foundation::storage::conformance::detail
