#include "lies.hpp"

#include "plain_request.hpp"
#include "reading.hpp"

#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>

namespace remote_faults {

namespace {

using Result = Lie::Result;
using Wrong = std::optional<std::string>;

Lie listing(char const* kind, std::string const& name, Result result,
            std::vector<std::string> const& expected = {}) {
    return {kind, "xml-" + name, "PROPFIND\t/xml-" + name, result,
            [expected](Stage const& stage, LyingServer const&) -> Wrong {
                std::vector<std::string> const names =
                    namesOf(*stage.provider->listAll(stage.root, u""));
                if (names == expected) {
                    return std::nullopt;
                }
                return std::to_string(names.size()) + " names" +
                       (names.empty() ? "" : ", the first one is " + names.front());
            }};
}

/// Of a new file, and of a folder with one in it that is removed behind that.
Lie changing(char const* kind, std::string const& flaw, std::string const& method, Result result) {
    return {kind, "dav-" + flaw, method + "\t/dav-" + flaw, result,
            [flaw, result](Stage const& stage, LyingServer const& server) -> Wrong {
                std::string const bytes(2'000, 'x');
                auto& replacing =
                    dynamic_cast<provider::extensions::IReplacingStreams&>(*stage.provider);
                auto const stream = replacing.openReplacement(
                    stage.at("file"), provider::ReplacementPolicy::FailIfExists);
                stream->write(bytes.data(), static_cast<long>(bytes.size()));
                stream->close();
                PlainAnswer const there =
                    plainRequest("GET", "http://" + server.authority() + "/dav-" + flaw + "/file");
                if (result == Result::Right && there.body != bytes) {
                    return "says it is done, and the file has other bytes";
                }
                return std::nullopt;
            }};
}

Lie removing(char const* kind, std::string const& flaw) {
    return {kind, "dav-" + flaw, "DELETE\t/dav-" + flaw, Result::Refused,
            [](Stage const& stage, LyingServer const&) -> Wrong {
                stage.provider->createFolder(stage.at("folder"));
                stage.provider->createFolder(stage.at("folder/locked"));
                stage.provider->removeFolderRecursively(stage.at("folder"));
                return std::nullopt;
            }};
}

Lie asking(char const* kind, std::string const& flaw) {
    return {kind, "dav-" + flaw, "OPTIONS\t/dav-" + flaw, Result::Right,
            [](Stage const& stage, LyingServer const&) -> Wrong {
                if (stage.provider->exists(stage.root) != provider::ExistsResult::Folder) {
                    return "the folder is none";
                }
                return std::nullopt;
            }};
}

} // namespace

std::vector<Lie> liesInWebDav() {
    std::vector<std::string> const plain{"a file", "folder/"};
    std::vector<Lie> lies{
        listing("200 for a range", "not-of-several-parts", Result::Refused),
        listing("extra bytes", "more-behind", Result::Refused),
        listing("extra bytes", "two-roots", Result::Refused),
        listing("a short body", "broken-off", Result::Refused),
        listing("a short body", "breaks-off-once", Result::Right, plain),
        listing("a short body", "nothing", Result::Refused),
        listing("an error inside a 200", "in-an-own-status", Result::Refused),
        removing("an error inside a 200", "keeps-what-is-locked"),
        listing("hostile names", "names-that-escape", Result::Right, {"good", "%2e%2e"}),
        listing("hostile names", "of-something-else", Result::Refused),
        listing("an XML bomb", "bomb", Result::Refused),
        listing("an XML bomb", "outside-entity", Result::Refused),
        listing("an XML bomb", "many-tags", Result::Refused),
        listing("an XML bomb", "many-attributes", Result::Refused),
        listing("an XML bomb", "tiny-items", Result::Refused),
        listing("an XML bomb", "endless", Result::Refused),
        changing("a redirect elsewhere", "led-to-folders", "PUT", Result::Refused),
        changing("a redirect elsewhere", "of-another-origin", "OPTIONS", Result::Refused),
        asking("503 for a while", "busy-at-first"),
        changing("503 for a while", "is-busy-behind", "PUT", Result::Right),
        changing("503 for ever", "options-503", "OPTIONS", Result::Refused),
        changing("a stall", "never-answers", "PUT", Result::Refused),
        changing("a lost answer", "loses-answers", "PUT", Result::Right),
        changing("a lost answer", "fails-behind", "PUT", Result::Right),
        changing("a lost answer", "accepts-for-nothing", "PUT", Result::Refused),
        changing("a refused write", "full", "PUT", Result::Refused),
        changing("a refused write", "locked", "PUT", Result::Refused),
        listing("no XML, or another one", "no-xml", Result::Refused),
        listing("no XML, or another one", "another-root", Result::Refused),
        listing("no XML, or another one", "another-namespace", Result::Refused),
        changing("secrets that are sent back", "echoes", "OPTIONS", Result::Refused),
    };
    for (int i = 0; i < 12; ++i) {
        lies.push_back(
            listing("hostile names", "unreadable-" + std::to_string(i), Result::Refused));
    }
    for (Lie& lie :
         liesOfCertificates("xml-plain", [](Stage const&stage, LyingServer const&) -> Wrong {
             stage.provider->listAll(stage.root, u"");
             return std::nullopt;
         })) {
        lies.push_back(std::move(lie));
    }
    return lies;
}

} // namespace remote_faults
