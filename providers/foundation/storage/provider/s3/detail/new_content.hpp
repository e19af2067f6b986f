#pragma once

#include <foundation/storage/provider/s3/detail/object_reader.hpp>
#include <foundation/storage/provider/s3/detail/upload.hpp>
#include <foundation/storage/provider/spool/content.hpp>
#include <foundation/storage/provider/timestamp.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace foundation::storage::provider::s3::detail {

/// Takes all that an object has into an empty one. REQUIRES: the reader is open. Throws
/// spool::Failure, too.
void load(ObjectReader& reader, spool::Content& spool);

/// What an object is to hold. For one thread at a time. Throws web::Failure, and spool::Failure
/// where it is kept here.
class NewContent {
  public:
    NewContent() = default;
    NewContent(NewContent const&) = delete;
    NewContent& operator=(NewContent const&) = delete;
    virtual ~NewContent();

    virtual std::uint64_t size() const = 0;
    virtual std::size_t read(std::uint64_t position, std::span<char> buffer) = 0;
    virtual void write(std::uint64_t position, std::span<char const> bytes) = 0;
    /// Whether the store has something else.
    virtual bool isChanged() const = 0;
    /// REQUIRES: nothing was written yet.
    virtual void setLastModified(Timestamp time) = 0;
    /// Puts it into the store. May be called again where it failed. REQUIRES: isChanged().
    virtual void publish() = 0;
};

/// Content that is written from the start to the end, and sent meanwhile. What is still in memory
/// may be written again; what is sent cannot be read, nor changed.
class SentContent final : public NewContent {
  public:
    explicit SentContent(std::unique_ptr<Upload> upload);

    std::uint64_t size() const override;
    std::size_t read(std::uint64_t position, std::span<char> buffer) override;
    void write(std::uint64_t position, std::span<char const> bytes) override;
    bool isChanged() const override { return true; }
    void setLastModified(Timestamp time) override;
    void publish() override;

  private:
    std::unique_ptr<Upload> const upload_;
};

/// Content that is written anywhere and sent as a whole.
class SpooledContent final : public NewContent {
  public:
    using MakeUpload = std::function<std::unique_ptr<Upload>()>;

    /// What is in the spool is what the store has, unless it `isNew`.
    SpooledContent(spool::Content spool, bool isNew, MakeUpload makeUpload);

    std::uint64_t size() const override;
    std::size_t read(std::uint64_t position, std::span<char> buffer) override;
    void write(std::uint64_t position, std::span<char const> bytes) override;
    bool isChanged() const override { return isChanged_; }
    void setLastModified(Timestamp time) override;
    void publish() override;

  private:
    spool::Content spool_;
    bool isChanged_;
    MakeUpload const makeUpload_;
    std::optional<Timestamp> lastModified_;
};

/// Bytes for the end of an object, whatever it holds by the time when they come to it. Where there
/// is enough of it, the store puts the two together.
class AppendedContent final : public NewContent {
  public:
    AppendedContent(std::shared_ptr<Bucket const> bucket, std::shared_ptr<RequestThreads> threads,
                    std::string bucketName, std::string key, std::uint64_t oldSize,
                    spool::Content spool);

    std::uint64_t size() const override { return oldSize_ + spool_.size(); }
    std::size_t read(std::uint64_t position, std::span<char> buffer) override;
    /// REQUIRES: at the end.
    void write(std::uint64_t position, std::span<char const> bytes) override;
    bool isChanged() const override { return spool_.size() != 0; }
    void setLastModified(Timestamp time) override;
    /// What the object has beside its bytes stays, but for its time. REQUIRES: nobody else of this
    /// process changes it meanwhile.
    void publish() override;

  private:
    std::shared_ptr<Bucket const> const bucket_;
    std::shared_ptr<RequestThreads> const threads_;
    std::string const bucketName_;
    std::string const key_;
    std::uint64_t const oldSize_; ///< when it was opened
    spool::Content spool_;
};

} // namespace foundation::storage::provider::s3::detail
