#include "new_content.hpp"

#include "failure.hpp"

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/streams/io_device.hpp>

#include <exception>
#include <optional>
#include <utility>

namespace cli {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;

class NewContent::Target {
  public:
    virtual ~Target() = default;
    virtual void write(char const* bytes, std::size_t count) = 0;
    virtual void publish() = 0;
};

class NewContent::Replacement final : public Target {
  public:
    Replacement(std::shared_ptr<provider::IProvider> owner,
                std::unique_ptr<provider::ByteStream> stream)
        : owner_(std::move(owner)),
          stream_(std::move(stream)) {}

    void write(char const* bytes, std::size_t count) override {
        stream_->write(bytes, static_cast<long>(count));
    }
    void publish() override { stream_->close(); }

  private:
    std::shared_ptr<provider::IProvider> owner_; // outlives its stream
    std::unique_ptr<provider::ByteStream> stream_;
};

class NewContent::InPlace final : public Target {
  public:
    InPlace(vfs::File file, IfThere ifThere) : file_(std::move(file)) {
        bool const there = file_.fileExists();
        if (there && ifThere == IfThere::Refuse) {
            throw Refusal(wordsFor(vfs::ErrorCode::ResourceAlreadyExists));
        }
        if (there && !file_.getAttributes().isWritable()) {
            throw Refusal("is read-only");
        }
        device_.emplace(file_, provider::ByteStreamOpenOptions{});
        created_ = !there;
    }
    ~InPlace() override {
        device_.reset();
        if (created_) {
            try {
                file_.removeFile();
            } catch (std::exception const&) { // NOLINT(bugprone-empty-catch)
                // The failure that led here is the one that is told.
            }
        }
    }

    void write(char const* bytes, std::size_t count) override {
        device_->write(bytes, static_cast<long>(count));
    }
    void publish() override {
        device_->close();
        created_ = false; // it stays
    }

  private:
    vfs::File file_;
    std::optional<vfs::IODevice> device_;
    bool created_ = false;
};

NewContent::NewContent(vfs::StorageSystemReference const& system, Location const& location,
                       IfThere ifThere) {
    provider::StorageIRI const iri = location.iri.toStorageIRI();
    std::shared_ptr<provider::IProvider> owner = system.buildProvider(iri);
    auto* const replacing = dynamic_cast<provider::extensions::IReplacingStreams*>(owner.get());
    if (replacing == nullptr) {
        target_ = std::make_unique<InPlace>(vfs::File(location.iri, system), ifThere);
        return;
    }
    auto const policy = ifThere == IfThere::Refuse ? provider::ReplacementPolicy::FailIfExists
                                                   : provider::ReplacementPolicy::ReplaceExisting;
    std::unique_ptr<provider::ByteStream> stream = replacing->openReplacement(iri, policy);
    target_ = std::make_unique<Replacement>(std::move(owner), std::move(stream));
}

NewContent::~NewContent() = default;

void NewContent::write(char const* bytes, std::size_t count) {
    target_->write(bytes, count);
}

void NewContent::publish() {
    target_->publish();
}

} // namespace cli
