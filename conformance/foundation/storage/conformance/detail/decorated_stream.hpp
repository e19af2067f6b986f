#pragma once

#include <foundation/storage/conformance/provider_decorator.hpp>
#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/error_code.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>

#include <ios>
#include <memory>
#include <optional>
#include <string>

namespace foundation::storage::conformance {

/// Tells the decorator of every call of a stream. What it makes of a write or of a close poisons as
/// the storage's own failure would, also where the inner stream knows nothing of it.
class DecoratedStream : public provider::ByteStream {
  public:
    DecoratedStream(std::shared_ptr<ProviderDecorator const> decorator,
                    provider::StorageIRI location, std::unique_ptr<provider::ByteStream> inner,
                    ProviderDecorator::StreamKind kind);
    ~DecoratedStream() override;

    long read(char* buffer, long count) override;
    long write(char const* buffer, long count) override;
    long seek(long offset, std::ios_base::seekdir way) override;
    void close() override;

  protected:
    provider::ByteStream& inner() const noexcept { return *inner_; }

  private:
    struct Poison {
        std::string reason;
        provider::ErrorCode code;
    };

    template<class Failure>
    void checkPoison(char const* what) const;
    template<class Call>
    auto poisonedByFailureOf(Call const& call);

    std::shared_ptr<ProviderDecorator const> const decorator_;
    provider::StorageIRI const location_;
    std::unique_ptr<provider::ByteStream> const inner_;
    ProviderDecorator::StreamKind const kind_;
    std::optional<Poison> poison_;
};

/// Of a stream that takes the attributes of a new file. That is told nobody: it fails at no
/// storage.
class DescribedStream final : public DecoratedStream,
                              public provider::extensions::INewFileAttributes {
  public:
    using DecoratedStream::DecoratedStream;
    void setNewFileAttributes(provider::extensions::NewFileAttributes const& attributes) override {
        dynamic_cast<provider::extensions::INewFileAttributes&>(inner()).setNewFileAttributes(
            attributes);
    }
};

} // namespace foundation::storage::conformance
