#pragma once

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/copy_file_options.hpp>
#include <foundation/storage/provider/memory/detail/tree.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace foundation::storage::provider::memory {

enum class StreamAccess { Read, Write, ReadWrite };
enum class StreamWriting { AtPosition, AtEnd };

/// A stream on a file in memory. The file lives as long as the stream, also when it is removed or
/// replaced meanwhile, and any number of streams work on one file at once.
class MemoryStream : public ByteStream {
  public:
    MemoryStream(std::shared_ptr<detail::Tree> tree, std::shared_ptr<detail::FileNode> file,
                 StreamAccess access, StreamWriting writing) noexcept;

    long read(char* buffer, long count) override;
    long write(char const* buffer, long count) override;
    long seek(long offset, std::ios_base::seekdir way) override;
    void close() override;

  protected:
    detail::Tree& tree() const noexcept { return *tree_; }
    std::shared_ptr<detail::FileNode> const& file() const noexcept { return file_; }
    /// Throws the failure that poisoned the stream, if one did, as a failure to close.
    void checkBeforeClose() const;
    void markClosed() noexcept;

  private:
    struct Poison {
        char const* reason; // a literal: to be poisoned must not fail
        ErrorCode code;
    };
    template<class Failure>
    void checkPoison(char const* what) const;
    [[noreturn]] void failWrite(char const* reason, ErrorCode code);

    std::shared_ptr<detail::Tree> const tree_;
    std::shared_ptr<detail::FileNode> const file_;
    StreamAccess const access_;
    StreamWriting const writing_;
    std::uint64_t position_ = 0;
    std::optional<Poison> poison_;
};

/// A stream on a file that has no name yet; closing it publishes the file, with the mode of the one
/// that it replaces.
class MemoryReplacement final : public MemoryStream {
  public:
    MemoryReplacement(std::shared_ptr<detail::Tree> tree, StorageIRI location, detail::Slot slot,
                      ReplacementPolicy policy, std::shared_ptr<detail::FileNode> file) noexcept;

    /// May be tried again where publishing failed.
    void close() override;

  private:
    StorageIRI const location_;
    detail::Slot const slot_;
    ReplacementPolicy const policy_;
};

} // namespace foundation::storage::provider::memory
