#pragma once

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/error_code.hpp>
#include <foundation/storage/provider/spool/content.hpp>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace foundation::storage::provider::http {

enum class WritingAccess { Write, ReadWrite };
enum class WritingPlace { AtPosition, AtEnd };

/// A stream on the new content of a file. The server gets it as a whole when the stream is closed;
/// one that goes without that leaves the file as it was. A close that fails may be tried again.
class HttpWritingStream final : public ByteStream {
  public:
    /// Throws provider::Exception.
    using Publish = std::function<void(spool::Content const& content)>;

    HttpWritingStream(spool::Content content, WritingAccess access, WritingPlace place,
                      bool isChanged, Publish publish)
        : content_(std::move(content)),
          access_(access),
          place_(place),
          isChanged_(isChanged),
          publish_(std::move(publish)) {}

    long read(char* buffer, long count) override;
    long write(char const* buffer, long count) override;
    long seek(long offset, std::ios_base::seekdir way) override;
    void close() override;

  private:
    struct Poison {
        std::string reason;
        ErrorCode code;
    };
    template<class Failure>
    void checkPoison(char const* what) const;
    [[noreturn]] void failWrite(std::string const& reason, ErrorCode code);

    spool::Content content_;
    WritingAccess const access_;
    WritingPlace const place_;
    bool isChanged_; ///< whether the server has something else
    Publish publish_;
    std::uint64_t position_ = 0;
    std::optional<Poison> poison_;
};

} // namespace foundation::storage::provider::http
