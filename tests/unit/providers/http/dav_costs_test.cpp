// What each operation asks of a server: the numbers that are told to users.

#include "dav_fixture.hpp"

#include <functional>

namespace foundation::storage::provider::http::test {
namespace {

using enum ReplacementPolicy;
using ProviderPtr = std::shared_ptr<IProvider>;

class DavCosts : public Dav {
  protected:
    using Call = std::function<void(ProviderPtr const&)>;

    /// The methods that a provider asks for which knows nothing yet, with the code of the failure.
    std::string costOnTheWeb(Call const& call) const {
        return costFor(buildHttpProvider(at("/"), boundedOptions()), call);
    }
    /// Of one that knows that the server speaks WebDAV, and nothing else.
    std::string cost(Call const& call) const {
        auto const provider = buildHttpProvider(at("/"), boundedOptions());
        provider->getFolderAttributes(in(""));
        return costFor(provider, call);
    }
    std::string costFor(ProviderPtr const& provider, Call const& call) const {
        std::size_t const before = server_.requests().size();
        int const code = codeOf([&] { call(provider); });
        std::string words = code == -1 ? "" : "code " + std::to_string(code);
        std::vector<std::string> const requests = server_.requests();
        for (std::size_t i = before; i < requests.size(); ++i) {
            std::size_t const method = requests[i].find('\t') + 1;
            words += (words.empty() ? "" : " ") +
                     requests[i].substr(method, requests[i].find('\t', method) - method);
        }
        return words;
    }
    StorageIRI in(std::string const& name) const { return at("/dav-good/" + name); }

    Call reading(StorageIRI const& location) const {
        return [=](ProviderPtr const& p) { readAt(*p->openReadOnlyStream(location), 0, 5); };
    }
    Call writing(std::string const& name, ReplacementPolicy policy) const {
        return [=, this](ProviderPtr const& p) {
            auto const stream =
                dynamic_cast<extensions::IReplacingStreams&>(*p).openReplacement(in(name), policy);
            stream->write("x", 1);
            stream->close();
        };
    }
    Call copying(std::string const& from, std::string const& to, ReplacementPolicy policy) const {
        return [=, this](ProviderPtr const& p) {
            p->copyFile(in(from), StorageItem(p, in(to)), {policy, 0, {}});
        };
    }
    Call moving(std::string const& from, std::string const& to, ReplacementPolicy policy) const {
        return [=, this](ProviderPtr const& p) { p->moveFile(in(from), in(to), policy); };
    }
};

TEST_F(DavCosts, OfEachOperation) {
    write("/dav-good/old", "bytes");
    provider_->createFolder(in("f"));
    EXPECT_EQ(cost([&](auto const& p) { p->exists(in("old")); }), "PROPFIND");
    EXPECT_EQ(cost([&](auto const& p) { p->getFileAttributes(in("old")); }), "PROPFIND");
    EXPECT_EQ(cost([&](auto const& p) { p->listAll(in("f"), u""); }), "PROPFIND");
    EXPECT_EQ(cost(reading(in("old"))), "GET");
    EXPECT_EQ(cost([&](auto const& p) { p->createFile(in("1")); }), "PROPFIND PROPFIND PUT");
    EXPECT_EQ(cost(writing("2", ReplaceExisting)), "PROPFIND PROPFIND PUT");
    EXPECT_EQ(cost(writing("2", ReplaceExisting)), "PROPFIND PUT");
    EXPECT_EQ(cost(writing("3", FailIfExists)), "PROPFIND PROPFIND PROPFIND PUT");
    EXPECT_EQ(cost(copying("old", "4", FailIfExists)), "PROPFIND PROPFIND PROPFIND COPY MOVE");
    EXPECT_EQ(cost(copying("old", "4", ReplaceExisting)), "PROPFIND PROPFIND COPY MOVE");
    EXPECT_EQ(cost(moving("4", "5", FailIfExists)), "PROPFIND PROPFIND PROPFIND MOVE");
    EXPECT_EQ(cost(moving("5", "3", ReplaceExisting)), "PROPFIND PROPFIND MOVE");
    EXPECT_EQ(cost([&](auto const& p) { p->moveFolder(in("f"), in("g"), FailIfExists); }),
              "PROPFIND PROPFIND PROPFIND MOVE");
    EXPECT_EQ(cost([&](auto const& p) { p->removeFile(in("2")); }), "PROPFIND DELETE");
    EXPECT_EQ(cost([&](auto const& p) { p->removeFolderRecursively(in("g")); }), "PROPFIND DELETE");
}

TEST_F(DavCosts, OfServersOfTheWeb) {
    auto const asking = [&](std::vector<std::string> const& paths) {
        return [&, paths](ProviderPtr const& p) {
            for (std::string const& path : paths) {
                p->exists(at(path));
            }
        };
    };
    EXPECT_EQ(costOnTheWeb(asking({"/good/5", "/good/6"})), "OPTIONS HEAD HEAD");
    EXPECT_EQ(costOnTheWeb(asking({"/good/missing", "/good/missing2"})), "OPTIONS HEAD HEAD");
    EXPECT_EQ(costOnTheWeb(asking({"/missing", "/missing2"})), "OPTIONS OPTIONS HEAD HEAD");
    EXPECT_EQ(costOnTheWeb([&](auto const& p) { p->getFileAttributes(at("/good/5")); }), "HEAD");
    EXPECT_EQ(costOnTheWeb(reading(at("/good/5"))), "GET");
    EXPECT_EQ(costOnTheWeb([&](auto const& p) { p->listAll(at("/good/"), u""); }),
              "code 11 OPTIONS");
    EXPECT_EQ(costOnTheWeb([&](auto const& p) { p->removeFile(at("/good/5")); }), "code 7 OPTIONS");
}

} // namespace
} // namespace foundation::storage::provider::http::test
