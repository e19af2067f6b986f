#pragma once

#include "provider_fixture.hpp"

#include <foundation/storage/provider/byte_stream_failure.hpp>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

namespace foundation::storage::provider::s3 {

/// A bucket of a store that behaves in a way of its own, in parts as small as they can be.
class TroubledBucket : public ProviderOfBucket {
  protected:
    static constexpr std::size_t mebibyte = std::size_t{1024} * 1024;

    void SetUp() override { useStore("good"); }
    void useStore(std::string const& behaviour) { useStore(behaviour, smallOptions()); }
    void useStore(std::string const& behaviour, S3Options const& options) {
        name_ = behaviour;
        use(options, behaviour);
    }
    S3Options smallOptions() const {
        S3Options small = options();
        small.partSize = 5 * mebibyte;
        small.largestCopy = 5 * mebibyte;
        return small;
    }
    StorageIRI in(ustring const& path) const {
        return StorageIRI(fl::i18n::to_ustring("s3://" + name_ + '/') + path);
    }
    std::string readIn(ustring const& path) const {
        return readAll(*provider_->openReadOnlyStream(in(path)));
    }
    std::unique_ptr<ByteStream> replace(ustring const& path) const {
        return provider_->openReplacement(in(path), ReplacementPolicy::ReplaceExisting);
    }
    static void write(ByteStream& stream, std::string const& bytes) {
        stream.write(bytes.data(), static_cast<long>(bytes.size()));
    }
    template<class Thrown, class Call>
    static int codeOfStream(Call const& call) {
        try {
            call();
            return -1;
        } catch (Thrown const& failure) {
            return static_cast<int>(failure.getErrorCode());
        }
    }
    static int codeOfClose(ByteStream& stream) {
        return codeOfStream<ByteStreamCloseFailure>([&] { stream.close(); });
    }
    /// Until the store was asked for something that has this in it.
    void waitFor(std::string const& part) const {
        while (server_.countOf(part) == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1)); // the log is read each time
        }
    }
    void waitForCopy() const { waitFor("x-amz-copy-source"); }

    std::string name_;
};

/// What a refusal names; empty where something is done.
template<class Call>
std::string placeOfFailure(Call const& call) {
    try {
        call();
        return {};
    } catch (Exception const& e) {
        return std::to_string(static_cast<int>(e.getErrorCode())) + ' ' +
               fl::i18n::to_string(e.getStorageIRI().toString());
    }
}

} // namespace foundation::storage::provider::s3
