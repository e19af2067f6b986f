#include "lies.hpp"

#include "plain_request.hpp"
#include "reading.hpp"

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/storage_item.hpp>

namespace remote_faults {

namespace {

using Result = Lie::Result;
using Wrong = std::optional<std::string>;
using Policy = provider::ReplacementPolicy;

std::string content(std::size_t size) {
    return foundation::storage::provider::http::test::content(size);
}

Lie reading(char const* kind, std::string const& bucket, Result result, std::size_t size = 3'000) {
    return {kind, bucket, "GET\t/" + bucket + "/a", result,
            [bucket, size](Stage const& stage, LyingServer const& store) {
                putObject(store, bucket, "a", content(size));
                return readAs(*stage.provider, stage.at("a"), content(size));
            }};
}

/// Of the root, which has these two.
Lie listing(char const* kind, std::string const& bucket, Result result) {
    return {kind, bucket, "GET\t/" + bucket + "?", result,
            [bucket](Stage const& stage, LyingServer const& store) -> Wrong {
                putObject(store, bucket, "a", "");
                putObject(store, bucket, "d/x", "");
                std::vector<std::string> const names =
                    namesOf(*stage.provider->listAll(stage.root, u""));
                if (names != std::vector<std::string>{"a", "d/"}) {
                    return std::to_string(names.size()) + " names" +
                           (names.empty() ? "" : ", the first one is " + names.front());
                }
                return std::nullopt;
            }};
}

/// None of which can be in a location.
Lie strangeNames() {
    std::string const bucket = "lists-hostile-names";
    return {"hostile names", bucket, "GET\t/" + bucket + "?", Result::RightOrRefused,
            [](Stage const& stage, LyingServer const&) -> Wrong {
                std::vector<std::string> const names =
                    namesOf(*stage.provider->listAll(stage.root, u""));
                return names.empty() ? Wrong() : "has " + names.front();
            }};
}

/// Does something that is to make "a" of old bytes one of new ones, and looks at the store.
Lie changing(char const* kind, std::string const& bucket, std::string const& met, Result result,
             std::string const& wanted,
             std::function<void(Stage const&, LyingServer const&)> const& change) {
    return {kind, bucket, met, result,
            [bucket, wanted, change](Stage const& stage, LyingServer const& store) -> Wrong {
                std::string const old = content(700);
                putObject(store, bucket, "a", old);
                auto const isThere = [&](std::string const& bytes) {
                    bool const is = objectOf(store, bucket, "a") == bytes;
                    closePlainConnections();
                    return is;
                };
                try {
                    change(stage, store);
                } catch (...) {
                    if (!isThere(old) && !isThere(wanted)) {
                        return "fails, and the object is neither the old nor the new one";
                    }
                    throw;
                }
                return isThere(wanted) ? Wrong()
                                       : "says it is done, and the object has other bytes";
            }};
}

Lie writing(char const* kind, std::string const& bucket, std::string const& met, Result result,
            std::size_t size) {
    std::string const bytes = content(size);
    return changing(
        kind, bucket, met, result, bytes, [bytes](Stage const& stage, LyingServer const&) {
            auto& replacing =
                dynamic_cast<provider::extensions::IReplacingStreams&>(*stage.provider);
            auto const stream = replacing.openReplacement(stage.at("a"), Policy::ReplaceExisting);
            stream->write(bytes.data(), static_cast<long>(bytes.size()));
            stream->close();
        });
}

Lie uploading(char const* kind, std::string const& bucket, std::string const& met, Result result) {
    return writing(kind, bucket, met, result, 12'000'000);
}

Lie copying(char const* kind, std::string const& bucket, Result result) {
    std::string const bytes = content(1'300);
    return changing(kind, bucket, "x-amz-copy-source: ", result, bytes,
                    [bucket, bytes](Stage const& stage, LyingServer const& store) {
                        putObject(store, bucket, "from", bytes);
                        stage.provider->copyFile(stage.at("from"), stage.item("a"),
                                                 {Policy::ReplaceExisting, 0, {}});
                    });
}

Lie removing(char const* kind, std::string const& bucket, Result result) {
    return {kind, bucket, "POST\t/" + bucket + "?", result,
            [bucket](Stage const& stage, LyingServer const& store) -> Wrong {
                putObject(store, bucket, "d/a", "");
                putObject(store, bucket, "d/b", "");
                stage.provider->removeFolderRecursively(stage.at("d"));
                bool const isLeft = objectOf(store, bucket, "d/b").has_value();
                closePlainConnections();
                return isLeft ? Wrong("says it is done, and a key is left") : std::nullopt;
            }};
}

} // namespace

std::vector<Lie> liesOfAStore() {
    std::string const begin = "?uploads";
    std::string const part = "partNumber=";
    std::string const complete = "?uploadId=";
    std::string const put = "PUT\t/";
    std::vector<Lie> lies{
        reading("200 for a range", "whole", Result::Right),
        reading("a wrong range", "shifted-range", Result::Refused),
        reading("a wrong range", "range-unsaid", Result::Refused),
        reading("extra bytes", "extra-bytes", Result::Refused),
        reading("extra bytes", "longer-than-its-range", Result::Refused),
        reading("a short body", "short", Result::Right),
        reading("a short body", "smaller-ranges", Result::Right),
        listing("a short body", "breaks-off-once", Result::Right),
        reading("an error inside a 200", "an-error-for-the-object", Result::Refused),
        listing("an error inside a 200", "lists-an-error", Result::Refused),
        listing("an error inside a 200", "lists-an-error-once", Result::Right),
        uploading("an error inside a 200", "completes-with-an-error", complete, Result::Right),
        uploading("an error inside a 200", "always-completes-with-an-error", complete,
                  Result::Refused),
        copying("an error inside a 200", "copies-with-an-error", Result::Right),
        copying("an error inside a 200", "always-copies-with-an-error", Result::Refused),
        removing("an error inside a 200", "keeps-what-is-called-b", Result::Refused),
        listing("a token that does not advance", "token-that-stays", Result::Refused),
        listing("a token that does not advance", "tokens-in-a-circle", Result::Refused),
        listing("a token that does not advance", "empty-pages-for-ever", Result::Refused),
        listing("a token that does not advance", "same-keys-for-ever", Result::Refused),
        listing("a token that does not advance", "token-that-lacks", Result::Refused),
        strangeNames(),
        listing("hostile names", "lists-badly-encoded", Result::Refused),
        listing("hostile names", "lists-a-tag-of-two-lines", Result::Refused),
        listing("an XML bomb", "bomb", Result::Refused),
        listing("an XML bomb", "deep", Result::Refused),
        listing("an XML bomb", "endless", Result::Refused),
        listing("no XML, or another one", "no-xml", Result::Refused),
        listing("no XML, or another one", "another-document", Result::Refused),
        listing("no XML, or another one", "empty-documents", Result::Refused),
        reading("a redirect elsewhere", "elsewhere", Result::Refused),
        listing("a redirect elsewhere", "elsewhere-and-says-where", Result::Refused),
        writing("a redirect elsewhere", "elsewhere-untold", "\t/elsewhere-untold", Result::Refused,
                1'300),
        reading("503 for a while", "busy-twice", Result::Right),
        reading("503 for ever", "always-busy", Result::Refused),
        reading("a stall", "stalls-in-the-first-body", Result::Right),
        listing("a stall", "never-answers", Result::Refused),
        uploading("a stall", "takes-parts-for-ever", part, Result::Refused),
        reading("a reset at every 10th byte", "reset-at-every-tenth-byte", Result::Right, 600),
        reading("another version", "changes", Result::Refused),
        writing("a lost answer", "loses-the-answer-to-put", put, Result::Right, 1'300),
        writing("a lost answer", "loses-put-to-another", put, Result::Right, 1'300),
        uploading("a lost answer", "loses-the-answer-to-begin", begin, Result::Right),
        uploading("a lost answer", "loses-all-answers-to-begin", begin, Result::Refused),
        uploading("a lost answer", "loses-the-answer-to-complete", complete, Result::Right),
        uploading("a lost answer", "loses-parts", part, Result::Right),
        uploading("a refused write", "refuses-parts", part, Result::Refused),
        uploading("a refused write", "refuses-complete", complete, Result::Refused),
        uploading("a refused write", "parts-without-tags", part, Result::Refused),
        reading("secrets that are sent back", "echoes", Result::Refused),
        writing("secrets that are sent back", "echoes", "\t/echoes", Result::Refused, 1'300),
    };
    for (Lie& lie : liesOfCertificates("good", [](Stage const&stage, LyingServer const&) -> Wrong {
             stage.provider->exists(stage.at("a"));
             return std::nullopt;
         })) {
        lies.push_back(std::move(lie));
    }
    return lies;
}

} // namespace remote_faults
