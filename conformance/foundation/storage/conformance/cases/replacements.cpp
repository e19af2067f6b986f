// extensions::IReplacingStreams: under the final name stands the old content or the complete new
// one.

#include <foundation/storage/conformance/detail/case.hpp>
#include <foundation/storage/conformance/detail/trial.hpp>

#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>

#include <memory>

namespace foundation::storage::conformance::detail {

namespace {

using enum Ability;

std::unique_ptr<ByteStream> openReplacement(Trial& t, ustring const& path,
                                            ReplacementPolicy policy) {
    return t.extension<extensions::IReplacingStreams>().openReplacement(t.at(path), policy);
}

constexpr AbilitySet forReplacement = Replacement | Writing | Reading;

constexpr Case cases[] = {
    {"ANewFileIsThereWhenItIsClosed",
     [](Trial& t) {
         for (ReplacementPolicy const policy : allPolicies) {
             ustring const path =
                 u"file " + ustring(1, static_cast<char16_t>(u'0' + static_cast<int>(policy)));
             auto const stream = openReplacement(t, path, policy);
             write(*stream, "new");
             t.expectGone(path);
             stream->close();
             t.expectFile(path, "new");
         }
     },
     forReplacement},
    {"TheOldContentStaysUntilClose",
     [](Trial& t) {
         for (ReplacementPolicy const policy : allPolicies) {
             if (replaces(policy)) {
                 t.makeFile(u"file", "old");
                 auto const stream = openReplacement(t, u"file", policy);
                 write(*stream, pattern(200'000));
                 t.expectFile(u"file", "old");
                 stream->close();
                 t.expectFile(u"file", pattern(200'000));
             }
         }
     },
     forReplacement},
    {"WithoutCloseNothingIsLeft",
     [](Trial& t) {
         t.makeFile(u"file", "old");
         {
             auto const over = openReplacement(t, u"file", ReplacementPolicy::ReplaceExisting);
             write(*over, pattern(200'000));
             auto const beside = openReplacement(t, u"new", ReplacementPolicy::FailIfExists);
             write(*beside, pattern(200'000));
         }
         t.expectFile(u"file", "old");
         t.expectGone(u"new");
         t.expectEqual("the names that are left", t.names({}), {u"file"});
     },
     forReplacement | Ability::Listing},
    {"NothingElseIsLeftBehindClose",
     [](Trial& t) {
         t.makeFile(u"file", "old");
         openReplacement(t, u"file", ReplacementPolicy::ReplaceExisting)->close();
         openReplacement(t, u"new", ReplacementPolicy::FailIfExists)->close();
         t.expectEqual("the names that are left", t.names({}), {u"file", u"new"});
         t.expectFile(u"file", "");
     },
     forReplacement | Ability::Listing},
    {"WhatIsThereIsLeftWhereThePolicySaysSo",
     [](Trial& t) {
         t.makeFile(u"file", "old");
         t.makeFolder(u"folder");
         for (ustring const path : {u"file", u"folder"}) {
             for (auto const policy :
                  {ReplacementPolicy::FailIfExists, ReplacementPolicy::KeepExisting}) {
                 t.expectRefused(
                     "openReplacement of the existing " + textOf(path),
                     [&] { openReplacement(t, path, policy); }, ErrorCode::ResourceAlreadyExists,
                     t.at(path));
             }
         }
         t.expectFile(u"file", "old");
     },
     forReplacement | FolderCreation},
    {"AFolderIsNotReplaced",
     [](Trial& t) {
         t.makeFolder(u"folder");
         for (ReplacementPolicy const policy : allPolicies) {
             if (replaces(policy)) {
                 t.expectRefused(
                     "openReplacement of a folder", [&] { openReplacement(t, u"folder", policy); },
                     ErrorCode::InvalidLocation, t.at(u"folder"));
             }
         }
     },
     Replacement | FolderCreation},
    {"AReadOnlyFileIsNotReplaced",
     [](Trial& t) {
         t.makeFile(u"file", "old");
         t.makeReadOnly(u"file");
         for (ReplacementPolicy const policy : allPolicies) {
             if (replaces(policy)) {
                 t.expectRefused(
                     "openReplacement of a read-only file",
                     [&] { openReplacement(t, u"file", policy); }, ErrorCode::PermissionDenied,
                     t.at(u"file"));
             }
         }
         t.expectFile(u"file", "old");
     },
     forReplacement | ReadOnlyItems},
    {"NoneIsOpenedInAMissingFolder",
     [](Trial& t) {
         StorageIRI const location = t.at(u"missing/file");
         t.expectNotFoundOnTheWay(
             "openReplacement in a missing folder",
             [&] { openReplacement(t, u"missing/file", ReplacementPolicy::FailIfExists); },
             location);
     },
     Replacement},
    {"ATakenNameIsLeftToWhoTookIt",
     [](Trial& t) {
         auto const stream = openReplacement(t, u"file", ReplacementPolicy::FailIfExists);
         write(*stream, "mine");
         t.makeFile(u"file", "theirs");
         t.expectStreamFailure<ByteStreamCloseFailure>(
             "close where the name is taken", [&] { stream->close(); },
             ErrorCode::ResourceAlreadyExists);
         t.expectFile(u"file", "theirs");
     },
     forReplacement},
    {"AFailedCloseMayBeTriedAgain",
     [](Trial& t) {
         auto const stream = openReplacement(t, u"file", ReplacementPolicy::KeepExisting);
         write(*stream, "mine");
         t.makeFile(u"file", "theirs");
         t.expectStreamFailure<ByteStreamCloseFailure>(
             "close where the name is taken", [&] { stream->close(); },
             ErrorCode::ResourceAlreadyExists);
         t.provider().removeFile(t.at(u"file"));
         t.expectDone("close where the name is free again", [&] { stream->close(); });
         t.expectFile(u"file", "mine");
     },
     forReplacement | FileRemoval},
    {"AFileThatBecameReadOnlyIsNotReplaced",
     [](Trial& t) {
         t.makeFile(u"file", "old");
         auto const stream = openReplacement(t, u"file", ReplacementPolicy::ReplaceExisting);
         write(*stream, "new");
         t.makeReadOnly(u"file");
         t.expectStreamFailure<ByteStreamCloseFailure>(
             "close over a read-only file", [&] { stream->close(); }, ErrorCode::PermissionDenied);
         t.expectFile(u"file", "old");
         t.provider().setWritable(t.at(u"file"), true);
         t.expectDone("close over a writable file", [&] { stream->close(); });
         t.expectFile(u"file", "new");
     },
     forReplacement | ReadOnlyItems},
    {"AClosedReplacementIsOfNoMoreUse",
     [](Trial& t) {
         auto const stream = openReplacement(t, u"file", ReplacementPolicy::FailIfExists);
         stream->close();
         t.expectStreamFailure<ByteStreamCloseFailure>(
             "close once more", [&] { stream->close(); }, ErrorCode::InternalError);
         t.expectStreamFailure<ByteStreamWriteFailure>(
             "write behind close", [&] { stream->write("x", 1); }, ErrorCode::InternalError);
         t.expectFile(u"file", "");
     },
     Replacement},
    {"PositionsMoveAsInEveryStream",
     [](Trial& t) {
         auto const stream = openReplacement(t, u"file", ReplacementPolicy::FailIfExists);
         write(*stream, "0123456789");
         t.expectEqual("seek from the end", stream->seek(-4, std::ios_base::end), 6L);
         write(*stream, "ab");
         t.expectEqual("seek to the start", stream->seek(0, std::ios_base::beg), 0L);
         write(*stream, "x");
         stream->close();
         t.expectFile(u"file", "x12345ab89");
     },
     Replacement | Reading},
    {"TheLastToCloseCounts",
     [](Trial& t) {
         auto const one = openReplacement(t, u"file", ReplacementPolicy::ReplaceExisting);
         auto const two = openReplacement(t, u"file", ReplacementPolicy::ReplaceExisting);
         write(*one, "one");
         write(*two, "two");
         two->close();
         t.expectFile(u"file", "two");
         one->close();
         t.expectFile(u"file", "one");
     },
     Replacement | Reading},
};

} // namespace

Family replacementFamily() {
    return {"Replacements", cases};
}

} // namespace foundation::storage::conformance::detail
