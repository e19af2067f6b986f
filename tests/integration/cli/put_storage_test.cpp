#include "storage_run.hpp"

#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/conformance/fault_injector.hpp>
#include <foundation/storage/provider/memory/memory_provider.hpp>

#include <fl/i18n/conversion.hpp>

#include <gmock/gmock.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace cli_test {
namespace {

namespace conformance = foundation::storage::conformance;
namespace provider = foundation::storage::provider;

using conformance::FaultInjector;
using conformance::Operation;
using provider::ErrorCode;
using provider::memory::MemoryProvider;
using ::testing::StartsWith;

using Files = std::map<std::string, std::string>;

// Replaces no file as a whole.
class InPlace : public FaultInjector {
  public:
    template<class Extension>
    static constexpr bool handsOn =
        !std::is_same_v<Extension, provider::extensions::IReplacingStreams>;

  protected:
    using FaultInjector::FaultInjector;
};

struct Fault {
    char const* name;
    Operation operation;
    bool isShort = false;

    void injectInto(FaultInjector& storage, std::uint64_t call) const {
        if (!isShort) {
            storage.failAt(operation, call, ErrorCode::NoSpaceLeft);
        } else if (operation == Operation::Read) {
            storage.shortenReadAt(call);
        } else {
            storage.shortenWriteAt(call, ErrorCode::NoSpaceLeft);
        }
    }
};

constexpr Fault faults[] = {
    {"a read fails", Operation::Read},   {"a read is short", Operation::Read, true},
    {"a write fails", Operation::Write}, {"a write is short", Operation::Write, true},
    {"a close fails", Operation::Close},
};

class PutOverAStorage : public ::testing::Test {
  protected:
    PutOverAStorage() {
        // 468,890 bytes: more than one of the command's buffers.
        for (int i = 0; i < 80'000; ++i) {
            content_ += std::to_string(i) + ' ';
        }
    }

    void fill(Files const& files) {
        memory_ = std::make_shared<MemoryProvider>();
        for (auto const& [name, content] : files) {
            auto const stream = memory_->openStream(oddLocation(name), {});
            stream->write(content.data(), static_cast<long>(content.size()));
            stream->close();
        }
    }
    Files found() const {
        Files files;
        auto const at = memory_->listAllNamesOnly(provider::StorageIRI(u"odd:/"), {});
        while (at->hasNext()) {
            at->advance();
            std::string const name = fl::i18n::to_string(at->currentEntry().getName());
            std::string content(content_.size() + 1, '\0');
            long const got = memory_->openReadOnlyStream(oddLocation(name))
                                 ->read(content.data(), static_cast<long>(content.size()));
            files[name] = content.substr(0, got < 0 ? 0 : static_cast<std::size_t>(got));
        }
        return files;
    }

    /// Puts `source` into `target` with every call failing in turn.
    template<class Decorator>
    void sweep(Files const& before, bool mayCutShort) {
        for (Fault const& fault : faults) {
            for (std::uint64_t call = 1;; ++call) {
                SCOPED_TRACE(testing::Message() << fault.name << ", call " << call);
                fill(before);
                auto const storage = conformance::decorate<Decorator>(memory_);
                fault.injectInto(*storage, call);
                Outcome const outcome =
                    runOver(storage, {"put", "-i", "odd:/source", "odd:/target"});
                bool const wasMet = storage->countOfFaults() > 0;
                EXPECT_EQ(storage.use_count(), 1) << "a stream was left open";

                Files files = found();
                if (!wasMet || (fault.isShort && fault.operation == Operation::Read)) {
                    EXPECT_EQ(outcome.err, "");
                    EXPECT_EQ(outcome.code, 0);
                    EXPECT_TRUE(files == (Files{{"source", content_}, {"target", content_}}));
                } else {
                    EXPECT_EQ(outcome.code, 1);
                    EXPECT_THAT(outcome.err, StartsWith("vfs: put: "));
                    if (mayCutShort && files.contains("target")) {
                        files["target"] = before.at("target");
                    }
                    EXPECT_TRUE(files == before);
                }
                if (!wasMet || HasFailure()) {
                    // Of closes there is one at either end.
                    EXPECT_GT(call, fault.operation == Operation::Close ? 2U : 1U) << "was not met";
                    break;
                }
            }
        }
    }

    std::string content_;
    std::shared_ptr<MemoryProvider> memory_;
};

TEST_F(PutOverAStorage, ReplacesTheWholeFileOrLeavesTheOldOne) {
    sweep<FaultInjector>({{"source", content_}, {"target", "old"}}, false);
}

TEST_F(PutOverAStorage, LeavesNoPartOfANewFile) {
    sweep<FaultInjector>({{"source", content_}}, false);
    sweep<InPlace>({{"source", content_}}, false);
}

TEST_F(PutOverAStorage, SaysSoWhereAFileThatIsWrittenInPlaceIsCutShort) {
    sweep<InPlace>({{"source", content_}, {"target", "old"}}, true);
}

} // namespace
} // namespace cli_test
