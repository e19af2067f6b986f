#pragma once

#include <foundation/storage/provider/s3/detail/spool.hpp>
#include <foundation/storage/provider/s3/detail/upload.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <span>

namespace foundation::storage::provider::s3::detail {

/// What an object is to hold. For one thread at a time. Throws web::Failure.
class NewContent {
  public:
    NewContent() = default;
    NewContent(NewContent const&) = delete;
    NewContent& operator=(NewContent const&) = delete;
    virtual ~NewContent();

    virtual std::uint64_t size() const = 0;
    virtual std::size_t read(std::uint64_t position, std::span<char> buffer) = 0;
    virtual void write(std::uint64_t position, std::span<char const> bytes) = 0;
    /// Puts it into the store. May be called again where it failed.
    virtual void publish(PutConditions const& conditions) = 0;
};

/// Content that is written from the start to the end, and sent meanwhile. What is still in memory
/// may be written again; what is sent cannot be read, nor changed.
class SentContent final : public NewContent {
  public:
    explicit SentContent(std::unique_ptr<Upload> upload);

    std::uint64_t size() const override;
    std::size_t read(std::uint64_t position, std::span<char> buffer) override;
    void write(std::uint64_t position, std::span<char const> bytes) override;
    void publish(PutConditions const& conditions) override;

  private:
    std::unique_ptr<Upload> const upload_;
};

/// Content that is written anywhere and sent as a whole.
class SpooledContent final : public NewContent {
  public:
    using MakeUpload = std::function<std::unique_ptr<Upload>()>;

    SpooledContent(std::unique_ptr<Spool> spool, MakeUpload makeUpload);

    std::uint64_t size() const override;
    std::size_t read(std::uint64_t position, std::span<char> buffer) override;
    void write(std::uint64_t position, std::span<char const> bytes) override;
    void publish(PutConditions const& conditions) override;

  private:
    std::unique_ptr<Spool> const spool_;
    MakeUpload const makeUpload_;
};

} // namespace foundation::storage::provider::s3::detail
