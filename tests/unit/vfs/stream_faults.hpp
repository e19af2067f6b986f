#pragma once

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/conformance/fault_injector.hpp>
#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/streaming_copy.hpp>
#include <foundation/storage/vfs/vfs.hpp>

#include "unit/conformance/contract_places.hpp"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace stream_faults {

namespace conformance = foundation::storage::conformance;
namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;
using conformance::FaultInjector;
using conformance::Faulty;
using conformance::Operation;
using provider::ErrorCode;
using provider::ReplacementPolicy;
using provider::StorageIRI;

inline std::string bytesOfSize(std::size_t size, unsigned seed) {
    std::string bytes(size, '\0');
    for (char& byte : bytes) {
        seed = seed * 1'664'525 + 1'013'904'223;
        byte = static_cast<char>(seed >> 24);
    }
    return bytes;
}

// Larger than every buffer between a program and a storage.
inline std::string const newContent = bytesOfSize(300'000, 1);
inline std::string const oldContent = bytesOfSize(100'000, 2);

struct StreamFault {
    char const* name;
    Operation operation;
    Faulty lasting = Faulty::Once;
    bool isShort = false;

    ErrorCode code() const {
        return operation == Operation::Write ? ErrorCode::NoSpaceLeft : ErrorCode::IOError;
    }
    char const* codeName() const {
        return operation == Operation::Write ? "NoSpaceLeft" : "IOError";
    }
    /// A read that gives less than it could is no failure.
    bool isFailure() const { return operation != Operation::Read || !isShort; }

    void injectInto(FaultInjector& storage, std::uint64_t call) const {
        if (!isShort) {
            storage.failAt(operation, call, code(), lasting);
        } else if (operation == Operation::Read) {
            storage.shortenReadAt(call, lasting);
        } else {
            storage.shortenWriteAt(call, code(), lasting);
        }
    }
};

inline constexpr std::array faults{
    StreamFault{"a read fails", Operation::Read},
    StreamFault{"reads fail from there on", Operation::Read, Faulty::FromThenOn},
    StreamFault{"a read is short", Operation::Read, Faulty::Once, true},
    StreamFault{"reads are short from there on", Operation::Read, Faulty::FromThenOn, true},
    StreamFault{"a write fails", Operation::Write},
    StreamFault{"writes fail from there on", Operation::Write, Faulty::FromThenOn},
    StreamFault{"a write is short", Operation::Write, Faulty::Once, true},
    StreamFault{"writes are short from there on", Operation::Write, Faulty::FromThenOn, true},
    StreamFault{"a seek fails", Operation::Seek},
    StreamFault{"a close fails", Operation::Close},
    StreamFault{"closes fail from there on", Operation::Close, Faulty::FromThenOn},
};

/// All that it copies and moves goes through its own streams.
class Streamed : public FaultInjector {
  public:
    provider::CopyStatus copyFile(StorageIRI const& source,
                                  provider::StorageItem const& destination,
                                  provider::CopyFileOptions const& options) override {
        return provider::copyFileByStreams(*this, source, destination, options);
    }
    [[noreturn]] void moveFile(StorageIRI const& source, StorageIRI const&,
                               ReplacementPolicy const&) override {
        throw provider::Exception(ErrorCode::UnsupportedOperation, source);
    }

  protected:
    using FaultInjector::FaultInjector;
};

/// Writes the files that it replaces in place.
class StreamedInPlace : public Streamed {
  public:
    template<class Extension>
    static constexpr bool handsOn =
        !std::is_same_v<Extension, provider::extensions::IReplacingStreams>;

  protected:
    using Streamed::Streamed;
};

/// A place in a storage whose streams can be made to fail.
class Storage {
  public:
    Storage(conformance::Place place, bool isInPlace)
        : place_(std::move(place)),
          isInPlace_(isInPlace) {
        if (isInPlace) {
            faulty_ = conformance::decorate<StreamedInPlace>(place_.provider);
        } else {
            faulty_ = conformance::decorate<Streamed>(place_.provider);
        }
    }

    bool isInPlace() const { return isInPlace_; }
    std::shared_ptr<FaultInjector> const& faulty() const { return faulty_; }
    StorageIRI location(char16_t const* name) const { return StorageIRI(place_.folder, name); }

    void put(char16_t const* name, std::string const& content) const {
        auto const stream = place_.provider->openStream(location(name), {});
        stream->write(content.data(), static_cast<long>(content.size()));
        stream->close();
    }
    void remove(char16_t const* name) const {
        if (place_.provider->fileExists(location(name))) {
            place_.provider->removeFile(location(name));
        }
    }
    /// Everything that is there, by name.
    std::map<std::string, std::string> files() const {
        std::map<std::string, std::string> found;
        auto const at = place_.provider->listAll(place_.folder, {});
        while (at->hasNext()) {
            at->advance();
            provider::ustring const name = at->currentEntry().getName();
            found[fl::i18n::to_string(name)] = contentOf(StorageIRI(place_.folder, name));
        }
        return found;
    }

  private:
    std::string contentOf(StorageIRI const& file) const {
        std::string content(newContent.size() + 1, '\0');
        auto const stream = place_.provider->openReadOnlyStream(file);
        std::size_t size = 0;
        for (long got = 0; (got = stream->read(content.data() + size,
                                               static_cast<long>(content.size() - size))) > 0;) {
            size += static_cast<std::size_t>(got);
        }
        return content.substr(0, size);
    }

    conformance::Place place_;
    bool isInPlace_;
    std::shared_ptr<FaultInjector> faulty_;
};

/// One storage, or two, beneath a system.
class World {
  public:
    World(std::shared_ptr<Storage> from, std::shared_ptr<Storage> to)
        : from_(std::move(from)),
          to_(std::move(to)),
          system_(std::make_shared<vfs::PluggableStorageSystem>(nullptr)) {
        for (auto const& storage : {from_, to_}) {
            system_->registerPhysicalProvider(
                fl::i18n::to_string(storage->location(u"x").getScheme()),
                [faulty = storage->faulty()] { return faulty; });
        }
    }

    Storage const& from() const { return *from_; }
    Storage const& to() const { return *to_; }
    std::vector<Storage const*> storages() const {
        return from_ == to_ ? std::vector<Storage const*>{from_.get()}
                            : std::vector<Storage const*>{from_.get(), to_.get()};
    }
    vfs::File source() const { return file(*from_, u"source"); }
    vfs::File target() const { return file(*to_, u"target"); }

    /// All files there are, by name.
    std::map<std::string, std::string> files() const {
        auto found = from_->files();
        if (from_ != to_) {
            found.merge(to_->files());
        }
        return found;
    }
    /// What streams keep: their storage, and on a disk a descriptor.
    std::vector<long> open() const {
        return {from_->faulty().use_count(), to_->faulty().use_count(),
                std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {})};
    }

  private:
    vfs::File file(Storage const& storage, char16_t const* name) const {
        return vfs::File(vfs::AbsoluteIRI(storage.location(name), true),
                         vfs::StorageSystemReference(std::weak_ptr<vfs::StorageSystem>(system_)));
    }

    std::shared_ptr<Storage> from_;
    std::shared_ptr<Storage> to_;
    std::shared_ptr<vfs::PluggableStorageSystem> system_;
};

inline std::shared_ptr<Storage> memory(bool isInPlace) {
    return std::make_shared<Storage>(conformance_test::memoryPlace(), isInPlace);
}
inline std::shared_ptr<Storage> disk(bool isInPlace) {
    return std::make_shared<Storage>(conformance_test::localPlace(), isInPlace);
}

/// What an operation threw.
struct Failure {
    std::string type; ///< "write" for IOWriteException, "provider's write" for what it is made from
    std::string code; ///< by its name
    bool operator==(Failure const&) const = default;
};
inline std::ostream& operator<<(std::ostream& out, Failure const& failure) {
    return out << failure.type << " with " << failure.code;
}

template<class Exception>
Failure failure(char const* type, Exception const& e) {
    std::ostringstream text;
    text << e.getErrorCode(); // one of two enumerations, of which one writes its name before
    return {type, text.str().substr(text.str().rfind(':') + 1)};
}

inline std::optional<Failure> failureOf(std::function<void()> const& operation) {
    try {
        operation();
    } catch (vfs::IOReadException const& e) {
        return failure("read", e);
    } catch (vfs::IOWriteException const& e) {
        return failure("write", e);
    } catch (vfs::IOSeekException const& e) {
        return failure("seek", e);
    } catch (vfs::IOCloseException const& e) {
        return failure("close", e);
    } catch (provider::ByteStreamWriteFailure const& e) {
        return failure("provider's write", e);
    } catch (provider::ByteStreamSeekFailure const& e) {
        return failure("provider's seek", e);
    } catch (provider::ByteStreamCloseFailure const& e) {
        return failure("provider's close", e);
    } catch (std::exception const& e) {
        return Failure{"something else", e.what()};
    }
    return std::nullopt;
}

/// Runs an operation with the first call failing, then with the second, and so on until it ends
/// without the fault, and checks each time what `run` returned; returns how often it was met.
template<class Prepare, class Run, class Check>
unsigned sweep(World const& world, Storage const& storage, StreamFault const& fault,
               Prepare const& prepare, Run const& run, Check const& check) {
    FaultInjector& injector = *storage.faulty();
    for (unsigned call = 1; call < 1000; ++call) {
        SCOPED_TRACE(testing::Message() << fault.name << ", call " << call);
        prepare();
        auto const openBefore = world.open();
        std::uint64_t const metBefore = injector.countOfFaults();
        fault.injectInto(injector, call);
        auto const outcome = run();
        injector.clear();
        bool const wasMet = injector.countOfFaults() != metBefore;
        check(outcome, wasMet);
        EXPECT_EQ(world.open(), openBefore) << "a stream was left open";
        if (!wasMet || testing::Test::HasFailure()) {
            return call - 1;
        }
    }
    ADD_FAILURE() << "does not end";
    return 0;
}

} // namespace stream_faults
