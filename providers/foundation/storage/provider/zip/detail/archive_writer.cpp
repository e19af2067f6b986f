#include <foundation/storage/provider/zip/detail/archive_writer.hpp>

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/zip/detail/central_directory.hpp>
#include <foundation/storage/provider/zip/detail/decoder.hpp>
#include <foundation/storage/provider/zip/detail/encoder.hpp>
#include <foundation/storage/provider/zip/detail/little_endian.hpp>
#include <foundation/storage/provider/zip/detail/member_headers.hpp>

#include <fl/i18n/conversion.hpp>

#include <algorithm>
#include <string>
#include <string_view>

namespace foundation::storage::provider::zip::detail {

namespace {

constexpr std::size_t bufferSize = std::size_t{256} * 1024;
constexpr std::uint64_t noHeader = ~std::uint64_t{0};

using Bytes = std::span<unsigned char const>;

Bytes bytesOf(std::string_view text) noexcept {
    return {reinterpret_cast<unsigned char const*>(text.data()), text.size()};
}

std::uint32_t typeBitsOf(EntryKind kind) noexcept {
    switch (kind) {
    case EntryKind::Folder:
        return 0040000;
    case EntryKind::Link:
        return 0120000;
    case EntryKind::File:
    case EntryKind::Other: // what it is else, the header of the archive tells
        break;
    }
    return 0100000;
}

/// What gets a member in the new archive.
struct Record {
    PendingNode const* node;
    bool hasNewName;                 ///< it, or a folder that it is in
    std::uint64_t header = noHeader; ///< its central header in the old archive
    std::size_t headerSize = 0;

    bool hasOldBytes() const noexcept {
        return node->base != ArchiveIndex::none && (!node->content || !node->content->isChanged());
    }
};

class ArchiveWriter {
  public:
    ArchiveWriter(PendingTree const& tree, container::ItemStreams& streams,
                  ZipOptions const& options, ArchiveSink const& sink)
        : tree_(tree),
          index_(tree.index()),
          options_(options),
          location_(streams.item().getLocation()),
          sink_(sink),
          encoder_(options.compressionLevel),
          headers_(tree.space()),
          directory_(tree.space()) {
        collect(*tree.rootHandle(), false);
        std::sort(records_.begin(), records_.end(),
                  [](Record const& a, Record const& b) { return a.node->order < b.node->order; });
        DirectoryFacts facts = visitCentralDirectory(streams, options, headerTaker());
        comment_ = std::move(facts.comment);
        source_ = streams.lend();
        copyBytes(0, facts.firstMember, nullptr); // as of one that extracts itself
    }

    std::vector<WrittenContent> write() {
        for (Record const& record : records_) {
            if (record.hasOldBytes()) {
                copyMember(record);
            } else {
                writeMember(*record.node);
            }
        }
        checkDirectory();
        DirectoryEnd end;
        end.members = records_.size();
        end.begin = written_;
        end.size = directory_.size();
        end.comment = comment_;
        putContent(directory_, end.size);
        std::string bytes;
        appendEnd(bytes, end);
        put(bytes);
        flush();
        return std::move(contents_);
    }

  private:
    void collect(PendingNode const& node, bool hasNewName) {
        hasNewName = hasNewName || node.hasNewName;
        // Of the root there is a member only where the old archive has one.
        bool const isRoot = node.parent == nullptr;
        bool const isThere = isRoot ? !index_.isImplied(ArchiveIndex::root) : !node.isImplied;
        if (isThere) {
            records_.push_back({&node, hasNewName});
        }
        for (auto const& child : node.children) {
            collect(*child.second, hasNewName);
        }
    }

    /// Finds the central headers of members that stay.
    HeaderVisitor headerTaker() {
        auto wanted = std::make_shared<std::vector<std::pair<std::uint64_t, std::size_t>>>();
        for (std::size_t i = 0; i < records_.size(); ++i) {
            if (records_[i].hasOldBytes()) {
                wanted->emplace_back(index_.memberOf(records_[i].node->base).headerOffset, i);
            }
        }
        std::sort(wanted->begin(), wanted->end());
        return [this, wanted](Bytes header, std::uint64_t member) {
            auto at =
                std::lower_bound(wanted->begin(), wanted->end(), std::pair(member, std::size_t{0}));
            if (at == wanted->end() || at->first != member) {
                return;
            }
            for (; at != wanted->end() && at->first == member; ++at) {
                records_[at->second].header = headers_.size();
                records_[at->second].headerSize = header.size();
            }
            headers_.fill(reinterpret_cast<char const*>(header.data()), header.size());
        };
    }

    /// That the archive has not the bytes of a member, or of what stands before all of them.
    [[noreturn]] void failIn(PendingNode const* member) const {
        std::string const path = member == nullptr ? std::string() : tree_.pathOf(*member);
        throw Exception(ErrorCode::IOError,
                        path.empty()
                            ? location_
                            : StorageIRI(tree_.location(), fl::i18n::storageNameToUstring(path)));
    }

    /// Members that begin behind 4 GiB are not known to be before they are written.
    void checkDirectory() const {
        DirectorySize size = tree_.directorySize();
        size.large = large_;
        if (!size.fits(options_)) {
            throw Exception(ErrorCode::NoSpaceLeft, location_);
        }
    }

    void copyBytes(std::uint64_t from, std::uint64_t size, PendingNode const* whose) {
        std::vector<unsigned char> buffer(
            static_cast<std::size_t>(std::min<std::uint64_t>(size, bufferSize)));
        while (size > 0) {
            std::span<unsigned char> const piece = std::span(buffer).first(
                static_cast<std::size_t>(std::min<std::uint64_t>(size, buffer.size())));
            readExactly(from, piece, whose);
            put(piece);
            from += piece.size();
            size -= piece.size();
        }
    }

    void copyMember(Record const& record) {
        if (record.header == noHeader) {
            throw Exception(ErrorCode::ResourceInUse, location_); // not the archive that was read
        }
        Member const member = index_.memberOf(record.node->base);
        std::vector<unsigned char> const local = readLocal(member, record.node);
        std::size_t const nameSize = read16(local.data() + 26);
        std::uint64_t const content = member.headerOffset + local.size();
        std::vector<unsigned char> central(record.headerSize);
        readContent(headers_, record.header, central);
        auto const flags =
            static_cast<std::uint16_t>(read16(local.data() + 6) | read16(central.data() + 8));
        bool const isAsItWas = !record.hasNewName && !record.node->hasNewFacts &&
                               !record.node->content && (flags & descriptorFlag) == 0 &&
                               !hasLargeNumbers(central) && written_ < 0xFFFFFFFF;
        if (isAsItWas) {
            std::string offset;
            put32(offset, written_);
            std::copy(offset.begin(), offset.end(), central.begin() + 42);
            enter(central);
            put(local);
            copyBytes(content, member.compressedSize, record.node);
            return;
        }
        Bytes const extra = Bytes(local).subspan(localHeaderSize + nameSize);
        MemberHeaders headers =
            readHeaders(central, {reinterpret_cast<char const*>(extra.data()), extra.size()});
        headers.size = member.size;
        headers.compressedSize = member.compressedSize;
        headers.offset = written_;
        // Its bytes are checked against the time where there is a descriptor, and else against the
        // check sum; so it stays there.
        if ((headers.flags & encryptedFlag) == 0) {
            headers.flags &= static_cast<std::uint16_t>(~descriptorFlag);
        }
        bool const keepsTime = !record.node->hasNewFacts && !record.node->content;
        if (record.hasNewName || !keepsTime) {
            describe(headers, *record.node, keepsTime || headers.hasDescriptor());
        }
        std::string bytes;
        appendLocal(bytes, headers);
        put(bytes);
        copyBytes(content, member.compressedSize, record.node);
        if (headers.hasDescriptor()) {
            bytes.clear();
            appendDescriptor(bytes, headers);
            put(bytes);
        }
        enter(headers);
    }

    /// The header before a member's bytes, whole.
    std::vector<unsigned char> readLocal(Member const& member, PendingNode const* whose) {
        std::vector<unsigned char> local(localHeaderSize);
        readExactly(member.headerOffset, local, whose);
        if (read32(local.data()) != localHeaderSignature) {
            failIn(whose);
        }
        local.resize(localHeaderSize + std::size_t{read16(local.data() + 26)} +
                     read16(local.data() + 28));
        readExactly(member.headerOffset + localHeaderSize,
                    std::span(local).subspan(localHeaderSize), whose);
        return local;
    }

    void enter(Bytes central) {
        directory_.fill(reinterpret_cast<char const*>(central.data()), central.size());
    }

    void enter(MemberHeaders const& headers) {
        constexpr std::uint64_t in32Bits = 0xFFFFFFFF;
        if (std::max({headers.size, headers.compressedSize, headers.offset}) > in32Bits) {
            ++large_;
        }
        std::string bytes;
        appendCentral(bytes, headers);
        enter(bytesOf(bytes));
    }

    static bool hasLargeNumbers(Bytes central) noexcept {
        return read32(central.data() + 20) == 0xFFFFFFFF ||
               read32(central.data() + 24) == 0xFFFFFFFF ||
               read32(central.data() + 42) == 0xFFFFFFFF;
    }

    void readExactly(std::uint64_t position, std::span<unsigned char> buffer,
                     PendingNode const* whose) {
        if (source_->readAt(position, buffer) != buffer.size()) {
            failIn(whose);
        }
    }

    /// Name, mode and, unless it is to stay, time as the tree has them.
    void describe(MemberHeaders& headers, PendingNode const& node, bool keepsTime) const {
        constexpr std::uint32_t typeBits = 0170000;
        std::uint32_t type = typeBitsOf(node.kind);
        if (node.kind == EntryKind::Other && (headers.externalAttributes >> 16 & typeBits) != 0) {
            type = headers.externalAttributes >> 16 & typeBits;
        }
        bool const isRoot = node.parent == nullptr;
        headers.setName((isRoot ? "." : tree_.pathOf(node)) + (node.isFolder() ? "/" : ""));
        headers.setMode(type | node.mode);
        if (!keepsTime) {
            headers.setTime(node.content ? node.content->lastModified() : node.lastModified);
        }
    }

    void writeMember(PendingNode const& node) {
        MemberHeaders headers;
        headers.offset = written_;
        describe(headers, node, false);
        if (!node.content) { // a folder, or a link
            std::string const bytes = node.kind == EntryKind::Link ? node.target : std::string();
            putMember(headers, bytesOf(bytes), bytes.size(), checkSum(0, bytesOf(bytes)));
            return;
        }
        contents_.emplace_back(node.content, node.content->version());
        if (node.content->size() <= options_.wholeMemberSize) {
            writeWhole(headers, *node.content);
        } else {
            writePieces(headers, *node.content);
        }
    }

    void writeWhole(MemberHeaders& headers, PendingContent const& content) {
        std::vector<unsigned char> bytes(static_cast<std::size_t>(content.size()));
        bytes.resize(readContent(content, 0, bytes));
        Bytes const encoded = encoder_.encode(bytes);
        std::uint32_t const crc = checkSum(0, bytes);
        if (encoded.empty() || Member::isTooDense(bytes.size(), encoded.size(), options_)) {
            putMember(headers, bytes, bytes.size(), crc);
        } else {
            headers.method = static_cast<std::uint16_t>(Method::Deflated);
            putMember(headers, encoded, bytes.size(), crc);
        }
    }

    void putMember(MemberHeaders& headers, Bytes stored, std::uint64_t size, std::uint32_t crc) {
        headers.crc = crc;
        headers.size = size;
        headers.compressedSize = stored.size();
        std::string bytes;
        appendLocal(bytes, headers);
        put(bytes);
        put(stored);
        enter(headers);
    }

    /// Deflated into a place of its own first: a header comes before the bytes that it tells of.
    void writePieces(MemberHeaders headers, PendingContent const& content) {
        PendingContent encoded(tree_.space());
        PieceEncoder encoder(options_.compressionLevel, [&](Bytes piece) {
            encoded.fill(reinterpret_cast<char const*>(piece.data()), piece.size());
        });
        std::vector<unsigned char> buffer(bufferSize);
        headers.crc = 0;
        headers.size = 0;
        while (std::size_t const got = readContent(content, headers.size, buffer)) {
            Bytes const piece = Bytes(buffer).first(got);
            headers.crc = checkSum(headers.crc, piece);
            headers.size += got;
            encoder.encode(piece);
        }
        encoder.finish();
        bool const isTooDense = Member::isTooDense(headers.size, encoded.size(), options_);
        // As long as somebody may write into it, only what was deflated is sure to be what the
        // check sum tells of.
        bool const mayChange = content.hasWriter();
        if (isTooDense && mayChange) {
            writePieces(headers, PendingContent(content, tree_.space()));
            return;
        }
        bool const isStored = isTooDense || (encoded.size() >= headers.size && !mayChange);
        if (!isStored) {
            headers.method = static_cast<std::uint16_t>(Method::Deflated);
        }
        headers.compressedSize = isStored ? headers.size : encoded.size();
        std::string local;
        appendLocal(local, headers);
        put(local);
        putContent(isStored ? content : encoded, headers.compressedSize);
        enter(headers);
    }

    /// REQUIRES: it has so many bytes.
    void putContent(PendingContent const& content, std::uint64_t size) {
        std::vector<unsigned char> buffer(bufferSize);
        for (std::uint64_t done = 0; done < size;) {
            std::size_t const got = readContent(content, done, buffer);
            put(Bytes(buffer).first(got));
            done += got;
        }
    }

    static std::size_t readContent(PendingContent const& content, std::uint64_t position,
                                   std::span<unsigned char> buffer) {
        return content.read(position, reinterpret_cast<char*>(buffer.data()), buffer.size());
    }

    void put(std::string const& bytes) { put(bytesOf(bytes)); }

    void put(Bytes bytes) {
        written_ += bytes.size();
        if (output_.size() + bytes.size() > bufferSize) {
            flush();
        }
        if (bytes.size() >= bufferSize) {
            sink_(bytes);
        } else {
            output_.insert(output_.end(), bytes.begin(), bytes.end());
        }
    }

    void flush() {
        if (!output_.empty()) {
            sink_(output_);
            output_.clear();
        }
    }

    PendingTree const& tree_;
    ArchiveIndex const& index_;
    ZipOptions const options_;
    StorageIRI const location_;
    ArchiveSink const& sink_;
    WholeEncoder encoder_;
    container::ItemStreams::Lent source_;
    std::vector<Record> records_;
    PendingContent headers_; ///< the central ones of members that stay, as they were
    PendingContent directory_;
    std::uint64_t large_ = 0; ///< members in it with a number of more than 32 bits
    std::string comment_;
    std::vector<unsigned char> output_;
    std::uint64_t written_ = 0;
    std::vector<WrittenContent> contents_;
};

} // namespace

std::vector<WrittenContent> writeArchive(PendingTree const& tree, container::ItemStreams& streams,
                                         ZipOptions const& options, ArchiveSink const& sink) {
    StorageIRI const location = streams.item().getLocation();
    try {
        return ArchiveWriter(tree, streams, options, sink).write();
    } catch (ByteStreamFailure const& failure) {
        throw Exception(failure.getErrorCode(), location);
    } catch (PendingFailure const& failure) {
        throw Exception(failure.code(), location);
    }
}

} // namespace foundation::storage::provider::zip::detail
