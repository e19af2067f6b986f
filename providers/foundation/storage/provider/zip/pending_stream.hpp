#pragma once

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/error_code.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/zip/detail/pending_content.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace foundation::storage::provider::zip {

enum class StreamAccess { Read, Write, ReadWrite };
enum class StreamWriting { AtPosition, AtEnd };

/// A stream on content that is not in the archive yet. What is written is there for all other
/// streams at once, and for the archive with the next flush.
class PendingStream : public ByteStream {
  public:
    PendingStream(std::shared_ptr<detail::PendingContent> content, StreamAccess access,
                  StreamWriting writing) noexcept;
    ~PendingStream() override;

    long read(char* buffer, long count) override;
    long write(char const* buffer, long count) override;
    long seek(long offset, std::ios_base::seekdir way) override;
    void close() override;

  protected:
    std::shared_ptr<detail::PendingContent> const& content() const noexcept { return content_; }
    /// Throws the failure that poisoned the stream, if one did, as a failure to close.
    void checkBeforeClose() const;
    void markClosed();

  private:
    struct Poison {
        std::string reason;
        ErrorCode code;
    };
    template<class Failure>
    void checkPoison(char const* what) const;
    [[noreturn]] void failWrite(std::string const& reason, ErrorCode code);
    void stopWriting() noexcept;

    std::shared_ptr<detail::PendingContent> const content_;
    StreamAccess const access_;
    StreamWriting const writing_;
    std::uint64_t position_ = 0;
    std::optional<Poison> poison_;
    bool isWriter_;
};

/// A stream on content that has no name yet; closing it publishes it, which may be tried again
/// where it fails.
class PendingReplacement final : public PendingStream, public extensions::INewFileAttributes {
  public:
    /// Throws provider::Exception.
    using Publish = std::function<void(std::shared_ptr<detail::PendingContent>,
                                       extensions::NewFileAttributes const&)>;

    PendingReplacement(std::shared_ptr<detail::PendingContent> content, Publish publish);
    void setNewFileAttributes(extensions::NewFileAttributes const& attributes) override {
        attributes_ = attributes;
    }
    void close() override;

  private:
    Publish publish_;
    extensions::NewFileAttributes attributes_;
};

} // namespace foundation::storage::provider::zip
