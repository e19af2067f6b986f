#include <foundation/storage/conformance/detail/trial.hpp>

#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/i_folder_entry_iterator.hpp>

#include <algorithm>
#include <utility>

namespace foundation::storage::conformance::detail {

namespace {

// More than any case makes: a listing that goes on and on must end somewhere.
constexpr std::size_t mostEntries = 100'000;

} // namespace

Trial::Trial(Contract const& contract, Place place, std::vector<std::string>& remarks)
    : contract_(contract),
      place_(std::move(place)),
      remarks_(remarks) {
    if (!place_.provider) {
        abandon("makePlace gave no provider");
    }
}

Trial::~Trial() {
    place_.provider.reset(); // before the keeper
}

void Trial::abandon(std::string text) const {
    remark(std::move(text));
    throw Abandoned();
}

void Trial::arrange(std::string_view what, Call const& call) const {
    if (!expectDone(what, call)) {
        throw Abandoned();
    }
}

void Trial::makeFile(ustring const& path, std::string_view bytes) const {
    arrange("making the file " + textOf(path), [&] {
        if (has(Ability::Writing)) {
            auto const stream = provider().openStream(
                at(path), {ByteStreamAccess::WriteOnly, ByteStreamCreation::OpenOrCreate, 0, 1});
            write(*stream, bytes);
            stream->close();
        } else if (has(Ability::FileCreation) && bytes.empty()) {
            provider().createFile(at(path));
        } else if (has(Ability::Replacement)) {
            auto const stream = extension<extensions::IReplacingStreams>().openReplacement(
                at(path), ReplacementPolicy::ReplaceExisting);
            write(*stream, bytes);
            stream->close();
        } else {
            abandon("a case without the need for Writing wants bytes in a file");
        }
    });
}

void Trial::makeFolder(ustring const& path) const {
    arrange("making the folder " + textOf(path), [&] { provider().createFolder(at(path)); });
}

void Trial::makeLink(ustring const& path, ustring const& target) const {
    auto& links = extension<extensions::ILinks>();
    arrange("making the link " + textOf(path), [&] { links.createLink(at(path), target); });
}

void Trial::makeReadOnly(ustring const& path) const {
    arrange("making " + textOf(path) + " read-only",
            [&] { provider().setWritable(at(path), false); });
}

std::vector<DeclaredItem> const& Trial::content() {
    if (content_) {
        return *content_;
    }
    if (!place_.content.empty()) {
        return content_.emplace(std::move(place_.content));
    }
    content_.emplace();
    using Kind = DeclaredItem::Kind;
    DeclaredItem const tree[] = {
        {u"empty", Kind::File, ""},
        {u"folder", Kind::Folder, ""},
        {u"folder/below", Kind::Folder, ""},
        {u"folder/below/deep", Kind::File, "deep down"},
        {u"folder/file", Kind::File, pattern(70'000)},
        {u"hollow", Kind::Folder, ""},
        {u"text", Kind::File, "a few words\n"},
        {u"to text", Kind::Link, "text"},
    };
    for (DeclaredItem const& wanted : tree) {
        bool const nested = wanted.path.find(u'/') != ustring::npos;
        bool const folder = wanted.kind == Kind::Folder;
        if (wanted.kind == Kind::Link) {
            if (has(Ability::Links) && has(Ability::LinkCreation)) {
                makeLink(wanted.path, ustring(wanted.bytes.begin(), wanted.bytes.end()));
                content_->push_back(wanted);
            }
            continue;
        }
        if ((nested || folder) && !has(Ability::FolderCreation)) {
            continue;
        }
        if (folder) {
            makeFolder(wanted.path);
            content_->push_back(wanted);
        } else if (canMakeFiles()) {
            bool const writes = has(Ability::Writing) || has(Ability::Replacement);
            std::string const bytes = writes ? wanted.bytes : "";
            makeFile(wanted.path, bytes);
            content_->push_back({wanted.path, Kind::File, bytes});
        }
    }
    return *content_;
}

ExistsResult Trial::exists(ustring const& path) const {
    try {
        return provider().exists(at(path));
    } catch (Exception const& e) {
        if (e.getErrorCode() != ErrorCode::ResourceNotFound) {
            throw;
        }
        return ExistsResult::Nothing;
    }
}

std::string Trial::bytesOf(ustring const& path) const {
    auto const stream = provider().openReadOnlyStream(at(path));
    std::string bytes = readAll(*this, *stream);
    stream->close();
    return bytes;
}

std::vector<FolderEntry> Trial::entries(ListingCall listing, ustring const& path,
                                        ustring const& filter) const {
    auto const cursor = (provider().*listing)(at(path), filter);
    std::vector<FolderEntry> result;
    while (cursor->hasNext()) {
        cursor->advance();
        result.push_back(cursor->currentEntry());
        if (result.size() > mostEntries) {
            abandon("a listing of " + textOf(path) + " does not end");
        }
    }
    std::sort(result.begin(), result.end(),
              [](FolderEntry const& a, FolderEntry const& b) { return a.getName() < b.getName(); });
    return result;
}

std::vector<ustring> Trial::names(ustring const& path, ListingCall listing,
                                  ustring const& filter) const {
    std::vector<ustring> result;
    for (FolderEntry const& entry : entries(listing, path, filter)) {
        result.push_back(entry.getName());
    }
    return result;
}

CopyStatus Trial::copy(ustring const& from, ustring const& to, ReplacementPolicy policy) const {
    return provider().copyFile(at(from), item(to), {policy, 0, {}});
}

bool Trial::expect(bool holds, std::string_view what) const {
    if (!holds) {
        remark(std::string(what));
    }
    return holds;
}

bool Trial::expectFile(ustring const& path, std::string_view bytes) const {
    if (!expectEqual("exists of " + textOf(path), exists(path), ExistsResult::File)) {
        return false;
    }
    return !has(Ability::Reading) ||
           expectEqual("the content of " + textOf(path), bytesOf(path), std::string(bytes));
}

bool Trial::expectGone(ustring const& path) const {
    return expectEqual("exists of " + textOf(path), exists(path), ExistsResult::Nothing);
}

bool Trial::expectDone(std::string_view what, Call const& call) const {
    try {
        call();
        return true;
    } catch (Abandoned const&) {
        throw;
    } catch (...) {
        return expect(false, std::string(what) + " gave " + textOfCurrentException());
    }
}

bool Trial::expectThrown(std::string_view what, Call const& call, ErrorCode code,
                         std::function<bool(StorageIRI const&)> const& isLocation,
                         StorageIRI const& location) const {
    std::string text;
    try {
        call();
        text = "success";
    } catch (Exception const& e) {
        if (e.getErrorCode() == code && isLocation(e.getStorageIRI())) {
            return true;
        }
        text = textOfCurrentException();
    } catch (...) {
        text = textOfCurrentException();
    }
    return expect(false, std::string(what) + " gave " + text + " instead of " + textOf(code) +
                             " about " + textOf(location));
}

bool Trial::expectRefused(std::string_view what, Call const& call, ErrorCode code,
                          StorageIRI const& location) const {
    return expectThrown(
        what, call, code, [&](StorageIRI const& told) { return told == location; }, location);
}

bool Trial::expectNotFoundOnTheWay(std::string_view what, Call const& call,
                                   StorageIRI const& location) const {
    return expectThrown(
        what, call, ErrorCode::ResourceNotFound,
        [&](StorageIRI const& told) { return told == location || told.isAncestorOf(location); },
        location);
}

std::string pattern(std::size_t size, unsigned salt) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>(i * 7 + i / 251 + i / 65'521 + salt);
    }
    return bytes;
}

std::string readAll(Trial const& t, ByteStream& stream, long piece) {
    std::string result;
    std::string buffer(static_cast<std::size_t>(piece), '\0');
    for (;;) {
        long const got = stream.read(buffer.data(), piece);
        if (got == -1) {
            return result;
        }
        if (got <= 0 || got > piece) {
            t.abandon("read of " + textOf(piece) + " bytes gave " + textOf(got));
        }
        result.append(buffer, 0, static_cast<std::size_t>(got));
        if (got < piece) {
            long const behind = stream.read(buffer.data(), piece);
            t.expect(behind == -1, "read behind a short read, which only the end allows, gave " +
                                       textOf(behind) + " instead of -1");
            return result;
        }
    }
}

void write(ByteStream& stream, std::string_view bytes) {
    auto const size = static_cast<long>(bytes.size());
    if (stream.write(bytes.data(), size) != size) {
        throw std::logic_error("a write that returns is complete");
    }
}

} // namespace foundation::storage::conformance::detail
