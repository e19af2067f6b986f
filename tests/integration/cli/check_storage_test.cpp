#include "listed_trees.hpp"
#include "storage_run.hpp"

#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/conformance/fault_injector.hpp>
#include <foundation/storage/conformance/feature_hider.hpp>
#include <foundation/storage/provider/memory/memory_provider.hpp>

#include <fl/i18n/conversion.hpp>

#include <gmock/gmock.h>

#include <memory>

namespace cli_test {
namespace {

namespace conformance = foundation::storage::conformance;
namespace provider = foundation::storage::provider;

using conformance::Operation;
using provider::memory::MemoryProvider;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;

// Hides nothing, and has no extension: a storage without links.
class WithoutLinks final : public conformance::FeatureHider {
  public:
    explicit WithoutLinks(std::shared_ptr<provider::IProvider> inner)
        : FeatureHider(std::move(inner), {}) {}
};

// A tree and its copy in two storages, `odd:/t` and `other:/t`.
class CheckOfStorages : public ::testing::Test {
  protected:
    CheckOfStorages() {
        fill(*first_, "odd");
        fill(*second_, "other");
    }
    static provider::StorageIRI at(std::string const& scheme, std::string const& path) {
        return provider::StorageIRI(fl::i18n::to_ustring(scheme + ":/" + path));
    }
    static void write(MemoryProvider& storage, provider::StorageIRI const& to,
                      std::string const& bytes) {
        auto const stream = storage.openStream(to, {});
        stream->write(bytes.data(), static_cast<long>(bytes.size()));
        stream->close();
    }
    static void fill(MemoryProvider& storage, std::string const& scheme) {
        storage.createFolderRecursive(at(scheme, "t/a/deep"));
        storage.createFolder(at(scheme, "t/b"));
        write(storage, at(scheme, "t/a/deep/x.txt"), "12345");
        write(storage, at(scheme, "t/y.md"), "abc");
        storage.createLink(at(scheme, "t/link"), u"a");
        for (std::string const path : {"t/a/deep/x.txt", "t/y.md"}) {
            storage.setLastModified(at(scheme, path),
                                    provider::toPtime(provider::Timestamp{1'700'000'000, 0}));
        }
    }
    Outcome check(std::vector<std::string> options = {}) {
        options.insert(options.begin(), "check");
        options.insert(options.end(), {"odd:/t", "other:/t"});
        return runOver(first_, options, second_);
    }

    std::shared_ptr<MemoryProvider> first_ = std::make_shared<MemoryProvider>();
    std::shared_ptr<MemoryProvider> second_ = std::make_shared<MemoryProvider>();
};

TEST_F(CheckOfStorages, FindsThemEqual) {
    for (std::string const by : {"size", "time", "content"}) {
        Outcome const outcome = check({"--by", by});
        EXPECT_EQ(outcome.code, 0) << outcome.out << outcome.err;
    }
}

TEST_F(CheckOfStorages, TakesATimeThatAnotherStorageCutAsTheSame) {
    first_->setLastModified(at("odd", "t/y.md"),
                            provider::toPtime(provider::Timestamp{1'700'000'000, 250'000'000}));
    EXPECT_EQ(check({"--by", "time"}).code, 0);

    second_->setLastModified(at("other", "t/y.md"),
                             provider::toPtime(provider::Timestamp{1'700'000'000, 500'000'000}));
    EXPECT_EQ(check({"--by", "time"}).code, 1);
}

TEST_F(CheckOfStorages, ComparesNamesAsTheyAre) {
    write(*first_, provider::StorageIRI(at("odd", "t"), u"caf\xdce9"), "1");
    write(*second_, provider::StorageIRI(at("other", "t"), u"caf\xdce9"), "1");
    EXPECT_EQ(check().code, 0);

    write(*first_, provider::StorageIRI(at("odd", "t"), u"\x00e4"), "1");
    write(*second_, provider::StorageIRI(at("other", "t"), u"a\x0308"), "1");
    EXPECT_THAT(linesOf(check().out),
                ElementsAre("a\xCC\x88: only in other:/t", "\xC3\xA4: only in odd:/t",
                            HasSubstr("2 differences")));
}

TEST_F(CheckOfStorages, TellsALinkFromTheFileThatAStorageWithoutLinksHas) {
    Outcome const outcome =
        runOver(first_, {"check", "odd:/t", "other:/t"}, std::make_shared<WithoutLinks>(second_));

    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(linesOf(outcome.out), ElementsAre("link: kind differs (link to a folder, file)",
                                                  EndsWith("1 difference")));
}

TEST_F(CheckOfStorages, EveryFailureEndsTheCommandWithAWordAndNeverAsEqual) {
    for (std::string const by : {"size", "time", "content"}) {
        for (bool const firstFails : {true, false}) {
            auto const faulty =
                conformance::decorate<conformance::FaultInjector>(firstFails ? first_ : second_);
            std::size_t failures = 0;
            for (std::uint64_t call = 1;; ++call) {
                faulty->clear();
                std::uint64_t const before = faulty->countOfFaults();
                faulty->failAtAny(call, provider::ErrorCode::IOError);
                std::vector<std::string> const words{"check", "--json", "--by",
                                                     by,      "odd:/t", "other:/t"};
                Outcome const outcome =
                    firstFails ? runOver(faulty, words, second_) : runOver(first_, words, faulty);
                if (faulty->countOfFaults() == before) {
                    EXPECT_EQ(outcome.code, 0);
                    EXPECT_THAT(outcome.out, HasSubstr("\"equal\":true"));
                    break;
                }
                ASSERT_LT(++failures, 10'000u);
                EXPECT_EQ(outcome.code, 1) << by << ' ' << call;
                EXPECT_THAT(outcome.err, HasSubstr("input or output failed")) << by << ' ' << call;
                EXPECT_THAT(outcome.err, HasSubstr(firstFails ? ": odd:/t" : ": other:/t"));
                EXPECT_THAT(outcome.out, ::testing::Not(HasSubstr("\"equal\":true")));
                EXPECT_THAT(outcome.out, ::testing::Not(HasSubstr("only-in")));
            }
            EXPECT_GT(failures, 10u);
        }
    }
}

TEST_F(CheckOfStorages, FindsNothingWhereAnItemVanishesBeforeItIsCompared) {
    auto const faulty = conformance::decorate<conformance::FaultInjector>(first_);
    // The first question is about the top, the second about the first file.
    faulty->failAt(Operation::ExistsExtended, 2, provider::ErrorCode::ResourceNotFound);

    Outcome const outcome = runOver(faulty, {"check", "odd:/t", "other:/t"}, second_);

    EXPECT_EQ(faulty->countOfFaults(), 1u);
    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.out, HasSubstr("link: kind differs (nothing, link to a folder)\n"));
}

} // namespace
} // namespace cli_test
