#include <foundation/storage/provider/tar/detail/archive_reader.hpp>

#include <foundation/storage/provider/tar/detail/locale_scope.hpp>

#include <algorithm>
#include <archive.h>
#include <archive_entry.h>
#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <utility>

namespace foundation::storage::provider::tar::detail {

using container::DecodingFailure;

/// libarchive is C: an exception waits until its function has returned. What is called behind one
/// fails too, since not every failure of a callback ends the work of libarchive.
struct ArchiveReader::Callbacks {
    template<class Call>
    static la_int64_t guarded(archive* reader, ArchiveReader& self, Call const& call) {
        if (!self.failure_) {
            try {
                return call();
            } catch (...) {
                self.failure_ = std::current_exception();
                ::archive_set_error(reader, EIO, "the archive cannot be read");
            }
        }
        return ARCHIVE_FATAL;
    }

    static la_ssize_t read(archive* reader, void* data, void const** buffer) {
        auto& self = *static_cast<ArchiveReader*>(data);
        return guarded(reader, self, [&] {
            std::span<unsigned char const> const seen = self.bytes_->see(self.position_);
            self.position_ += seen.size();
            *buffer = seen.data();
            return static_cast<la_int64_t>(seen.size());
        });
    }

    /// libarchive takes a failure for progress; so there is none, until it reads.
    static la_int64_t skip(archive* reader, void* data, la_int64_t request) {
        auto& self = *static_cast<ArchiveReader*>(data);
        la_int64_t const skipped = guarded(reader, self, [&] {
            std::uint64_t const from = self.position_;
            self.position_ = self.bytes_->reach(from + static_cast<std::uint64_t>(request));
            return static_cast<la_int64_t>(self.position_ - from);
        });
        return std::max<la_int64_t>(skipped, 0);
    }

    static la_int64_t seek(archive* reader, void* data, la_int64_t offset, int whence) {
        auto& self = *static_cast<ArchiveReader*>(data);
        return guarded(reader, self, [&] {
            auto const size = static_cast<la_int64_t>(*self.bytes_->size());
            auto const begin = static_cast<la_int64_t>(self.begin_);
            la_int64_t const from = whence == SEEK_SET   ? begin
                                    : whence == SEEK_CUR ? static_cast<la_int64_t>(self.position_)
                                                         : size;
            la_int64_t wanted = 0;
            if (__builtin_add_overflow(from, offset, &wanted)) {
                wanted = size;
            }
            self.position_ = static_cast<std::uint64_t>(std::clamp(wanted, begin, size));
            return static_cast<la_int64_t>(self.position_) - begin;
        });
    }
};

void ArchiveReader::Free::operator()(archive* reader) const noexcept {
    ::archive_read_free(reader);
}

ArchiveReader::ArchiveReader(ArchiveSource::Lent bytes, std::uint64_t begin, Charset charset)
    : bytes_(std::move(bytes)),
      begin_(begin),
      charset_(charset),
      position_(begin) {
    openArchive();
}

void ArchiveReader::openArchive() {
    LocaleScope const scope(charset_);
    archive_.reset(::archive_read_new());
    archive* const reader = archive_.get();
    if (reader == nullptr) {
        throw std::bad_alloc();
    }
    // No filters: the bytes are decoded before they come here, within bounds.
    // ISO 9660 last: it reads 32 KiB to know its own, unless another one has.
    for (auto const support :
         {&::archive_read_support_format_tar, &::archive_read_support_format_cpio,
          &::archive_read_support_format_ar, &::archive_read_support_format_empty,
          &::archive_read_support_format_iso9660}) {
        if (support(reader) == ARCHIVE_FATAL) {
            throw std::bad_alloc();
        }
    }
    // Not for what only looks like it, behind a program that unpacks itself, either.
    if (bytes_.get_deleter().owner->options().sevenZip &&
        ::archive_read_support_format_7zip(reader) == ARCHIVE_FATAL) {
        throw std::bad_alloc();
    }
    ::archive_read_set_callback_data(reader, this);
    ::archive_read_set_read_callback(reader, &Callbacks::read);
    ::archive_read_set_skip_callback(reader, &Callbacks::skip);
    if (bytes_->size()) {
        ::archive_read_set_seek_callback(reader, &Callbacks::seek);
    }
    if (::archive_read_open1(reader) != ARCHIVE_OK) {
        fail("the archive cannot be opened");
    }
}

/// A failure of what is below goes before what libarchive made of it.
void ArchiveReader::fail(char const* otherwise) {
    isGood_ = false;
    if (failure_) {
        std::rethrow_exception(std::exchange(failure_, nullptr));
    }
    if (::archive_errno(archive_.get()) == ENOMEM) { // what a header asks for may be anything
        throw DecodingFailure("the archive asks for more memory than there is",
                              ErrorCode::FileTooLarge);
    }
    char const* const text = ::archive_error_string(archive_.get());
    // Before a format is found, asking is no use, and not safe.
    bool const isEncrypted = ::archive_format(archive_.get()) != 0 &&
                             ::archive_read_has_encrypted_entries(archive_.get()) == 1;
    throw DecodingFailure(text != nullptr ? text : otherwise,
                          isEncrypted ? ErrorCode::UnsupportedOperation : ErrorCode::IOError);
}

ArchiveSource::Lent ArchiveReader::takeBytes() noexcept {
    isGood_ = false;
    archive_.reset();
    return std::move(bytes_);
}

void ArchiveReader::rest() noexcept {
    if (bytes_) {
        bytes_->rest();
    }
}

bool ArchiveReader::next() {
    LocaleScope const scope(charset_);
    block_ = {};
    blockBegin_ = 0;
    isEnd_ = false;
    int const result = ::archive_read_next_header(archive_.get(), &entry_);
    if (failure_ || (result != ARCHIVE_OK && result != ARCHIVE_WARN && result != ARCHIVE_EOF)) {
        fail("a header is damaged");
    }
    if (result == ARCHIVE_EOF) {
        isGood_ = false;
        return false;
    }
    ++headers_;
    return true;
}

std::uint64_t ArchiveReader::headerPosition() const {
    return begin_ + static_cast<std::uint64_t>(::archive_read_header_position(archive_.get()));
}

std::uint64_t ArchiveReader::dataPosition() const {
    return begin_ + static_cast<std::uint64_t>(::archive_filter_bytes(archive_.get(), 0));
}

int ArchiveReader::format() const {
    return ::archive_format(archive_.get()) & ARCHIVE_FORMAT_BASE_MASK;
}

char const* ArchiveReader::formatName() const {
    char const* const name = ::archive_format_name(archive_.get());
    return name != nullptr ? name : "empty";
}

void ArchiveReader::read(std::uint64_t position, std::span<unsigned char> buffer) {
    while (!buffer.empty()) {
        std::size_t part = 0;
        if (position < blockBegin_) { // a hole
            part = static_cast<std::size_t>(
                std::min<std::uint64_t>(buffer.size(), blockBegin_ - position));
            std::memset(buffer.data(), 0, part);
        } else if (position - blockBegin_ < block_.size()) {
            auto const known = block_.subspan(static_cast<std::size_t>(position - blockBegin_));
            part = std::min(buffer.size(), known.size());
            std::memcpy(buffer.data(), known.data(), part);
        } else if (!isEnd_) {
            nextBlock();
        } else if (format() == ARCHIVE_FORMAT_TAR) { // a hole at the end: else reading had failed
            part = buffer.size();
            std::memset(buffer.data(), 0, part);
        } else {
            isGood_ = false;
            throw DecodingFailure("the content ends too soon");
        }
        position += part;
        buffer = buffer.subspan(part);
    }
}

void ArchiveReader::nextBlock() {
    LocaleScope const scope(charset_);
    void const* data = nullptr;
    std::size_t size = 0;
    la_int64_t offset = 0;
    int const result = ::archive_read_data_block(archive_.get(), &data, &size, &offset);
    if (result == ARCHIVE_EOF && !failure_) {
        isEnd_ = true;
        return;
    }
    std::uint64_t const end = blockBegin_ + block_.size();
    if (failure_ || result != ARCHIVE_OK) {
        fail("the content is damaged");
    }
    if (offset < 0 || static_cast<std::uint64_t>(offset) < end) {
        isGood_ = false;
        throw DecodingFailure("the content is damaged: its parts overlap");
    }
    block_ = {static_cast<unsigned char const*>(data), size};
    blockBegin_ = static_cast<std::uint64_t>(offset);
}

} // namespace foundation::storage::provider::tar::detail
