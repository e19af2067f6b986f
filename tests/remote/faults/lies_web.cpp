#include "lies.hpp"

#include "reading.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/byte_stream_failure.hpp>

namespace remote_faults {

namespace {

using Result = Lie::Result;
using Wrong = std::optional<std::string>;

constexpr std::size_t fileSize = 3'000;

/// Reads a file of this server, whatever its size.
Wrong readAt(Stage const& stage, provider::StorageIRI const& file) {
    std::string const expected = foundation::storage::provider::http::test::content(fileSize);
    return readAs(*stage.provider, file, expected);
}

Wrong readIt(Stage const& stage, LyingServer const&) {
    return readAt(stage, stage.at(std::to_string(fileSize)));
}

Lie reading(char const* kind, std::string const& behaviour, Result result) {
    return {kind, behaviour, "GET\t/" + behaviour + '/', result, &readIt};
}

/// Of a file of which each answer is another one: what comes is of the first.
Lie changing(std::string const& behaviour) {
    return {"another version", behaviour, "GET\t/" + behaviour + '/', Result::Refused,
            [](Stage const& stage, LyingServer const&) {
                std::string bytes = foundation::storage::provider::http::test::content(fileSize);
                for (char& byte : bytes) {
                    byte = static_cast<char>(byte + 1);
                }
                return readAs(*stage.provider, stage.at(std::to_string(fileSize)), bytes);
            }};
}

Lie redirected(std::string const& place, Result result) {
    return {"a redirect elsewhere", "to", "GET\t/to?", result,
            [place](Stage const& stage, LyingServer const& server) {
                return readAt(stage, provider::StorageIRI(fl::i18n::to_ustring(
                                         "http://" + server.authority() + "/to?" + place)));
            }};
}

} // namespace

std::vector<Lie> liesOfTheWeb() {
    std::vector<Lie> lies{
        reading("200 for a range", "whole", Result::Right),
        reading("200 for a range", "whole-without-length", Result::Right),
        reading("200 for a range", "whole-in-chunks", Result::Right),
        reading("a wrong range", "shifted-range", Result::Refused),
        reading("a wrong range", "range-of-nonsense", Result::Refused),
        reading("a wrong range", "range-unsaid", Result::Refused),
        reading("a wrong range", "two-ranges", Result::Refused),
        reading("a wrong range", "several-parts", Result::Refused),
        reading("a wrong range", "refused-range", Result::Refused),
        reading("extra bytes", "extra-bytes", Result::Refused),
        reading("extra bytes", "extra-bytes-in-one-piece", Result::Refused),
        reading("extra bytes", "longer-than-its-range", Result::Refused),
        reading("extra bytes", "garbage-behind", Result::Right),
        reading("a short body", "short", Result::Right),
        reading("a short body", "smaller-ranges", Result::Right),
        reading("a short body", "fewer-in-chunks", Result::Refused),
        reading("a short body", "nothing-but-heads", Result::Refused),
        redirected("http://OTHER/good/3000", Result::Right),
        redirected("file:///etc/passwd", Result::Refused),
        redirected("ftp://OTHER/good/3000", Result::Refused),
        reading("a redirect elsewhere", "to-itself", Result::Refused),
        reading("a redirect elsewhere", "deeper", Result::Refused),
        reading("503 for a while", "busy-twice", Result::Right),
        reading("503 for ever", "always-busy", Result::Refused),
        reading("503 for ever", "busy-for-an-hour", Result::Refused),
        reading("a stall", "stalls-in-the-first-body", Result::Right),
        reading("a stall", "never-answers", Result::Refused),
        reading("a stall", "trickles", Result::Refused),
        reading("a reset at every 10th byte", "reset-at-every-tenth-byte", Result::Right),
        changing("changes"),
        changing("changes-and-ignores-conditions"),
        reading("another version", "changes-to-something-whole", Result::Refused),
        changing("forgets-its-tag"),
        reading("a lost answer", "reset-once", Result::Right),
        reading("a lost answer", "reset-at-once", Result::Refused),
        reading("no HTTP, or too much of it", "no-http", Result::Refused),
        reading("no HTTP, or too much of it", "huge-head", Result::Refused),
        reading("no HTTP, or too much of it", "many-fields", Result::Refused),
        reading("no HTTP, or too much of it", "long-line", Result::Refused),
        reading("secrets that are sent back", "echoes", Result::Refused),
    };
    for (Lie& lie : liesOfCertificates("good", &readIt)) {
        lies.push_back(std::move(lie));
    }
    return lies;
}

} // namespace remote_faults
