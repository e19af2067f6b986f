#include <foundation/storage/provider/s3/detail/bucket.hpp>

#include <foundation/storage/provider/s3/detail/digest.hpp>
#include <foundation/storage/provider/s3/detail/request_fields.hpp>
#include <foundation/storage/provider/s3/detail/s3_xml.hpp>
#include <foundation/storage/provider/s3/detail/sent_documents.hpp>
#include <foundation/storage/provider/s3/detail/store.hpp>
#include <foundation/storage/provider/s3/detail/upload_ledger.hpp>

#include <algorithm>
#include <chrono>
#include <exception>

namespace foundation::storage::provider::s3::detail {

namespace {

Question partQuestion(std::string_view key, std::string_view upload, unsigned number) {
    return {
        "PUT", key, {{"partNumber", std::to_string(number)}, {"uploadId", std::string(upload)}}};
}

/// What an object has as its tag that was stored in these parts, unencrypted; empty where it
/// cannot be told.
std::string tagOf(std::span<UploadedPart const> parts) {
    std::string digests;
    for (UploadedPart const& part : parts) {
        std::string_view tag = part.eTag;
        if (tag.starts_with('"') && tag.ends_with('"') && tag.size() > 1) {
            tag = tag.substr(1, tag.size() - 2);
        }
        std::string const digest = bytesOfHex(tag);
        if (digest.size() != sizeof(Md5)) {
            return {};
        }
        digests += digest;
    }
    return '"' + hex(md5(digests)) + '-' + std::to_string(parts.size()) + '"';
}

Answer askForUploads(Store const& store, std::string_view prefix, web::Deadline const& deadline) {
    Question question;
    question.query = {{"uploads", ""},
                      {"encoding-type", "url"},
                      {"max-uploads", "1000"},
                      {"prefix", std::string(prefix)}};
    return store.ask(question, deadline);
}

std::uint64_t sizeOf(std::span<UploadedPart const> parts) {
    std::uint64_t size = 0;
    for (UploadedPart const& part : parts) {
        size += part.size;
    }
    return size;
}

} // namespace

std::string Bucket::beginUpload(std::string_view key, PutConditions const& conditions,
                                Deadline const& deadline) const {
    Question question{"POST", key, {{"uploads", ""}}};
    question.body.emplace();
    addMetadata(question.headers, conditions);
    UploadLedger::Beginning const beginning(*uploads_, key);
    std::optional<Doubt> doubtful;
    Inquiry const inquiry{
        [&](Answer answer) {
            std::string upload = uploadIn(std::move(answer.body));
            uploads_->add(upload);
            return upload;
        },
        [&](Doubt const& doubt) -> std::optional<std::string> {
            abortLostUploads(key, doubt);
            doubtful = doubt;
            return std::nullopt;
        },
        [](StoreFailure const&, Doubt const&) -> std::optional<std::string> {
            return std::nullopt;
        },
    };
    std::string upload = store_->askOnce(question, inquiry, deadline);
    if (doubtful) { // a store may have been slow to do what it was asked first
        try {
            abortLostUploads(key, *doubtful);
        } catch (web::Failure const&) { // then the next one may clean up
        }
    }
    return upload;
}

void Bucket::abortLostUploads(std::string_view key, Doubt const& doubt) const {
    if (uploads_->isBegunTwice(key)) {
        return;
    }
    Deadline const deadline(cleaningTime(store_->options().web));
    Answer answer = askForUploads(*store_, key, deadline);
    constexpr std::int64_t slack = 2; // as whole seconds are compared
    std::int64_t const now = timeOf(answer.headers, store_->now());
    std::int64_t const since = (now - doubt.secondsSince() - slack) * nanosecondsInASecond;
    std::vector<ListedUpload> lost = uploadsIn(std::move(answer.body));
    std::erase_if(lost, [&](ListedUpload const& upload) {
        return upload.key != key || upload.begun < since || uploads_->has(upload.upload);
    });
    if (lost.size() > doubt.sendings) {
        return; // others write the same key; which ones are theirs cannot be told
    }
    for (ListedUpload const& upload : lost) {
        abortUpload(key, upload.upload, deadline);
    }
}

std::vector<ListedUpload> Bucket::listUploads(std::string_view prefix,
                                              Deadline const& deadline) const {
    return uploadsIn(askForUploads(*store_, prefix, deadline).body);
}

UploadedPart Bucket::uploadPart(std::string_view key, std::string_view upload, unsigned number,
                                std::span<char const> content, Deadline const& deadline) const {
    Question question = partQuestion(key, upload, number);
    question.body = content;
    Answer const answer = store_->ask(question, deadline);
    auto const tag = answer.headers.find("ETag");
    if (!tag) {
        throw wrongAnswer("it tells no tag");
    }
    return {number, std::string(*tag), content.size()};
}

UploadedPart Bucket::copyPart(std::string_view key, std::string_view upload, unsigned number,
                              std::string_view source, std::string_view sourceTag,
                              std::uint64_t offset, std::uint64_t size,
                              Deadline const& deadline) const {
    Question question = partQuestion(key, upload, number);
    question.body.emplace();
    addSource(question.headers, source, sourceTag);
    question.headers.add("x-amz-copy-source-range", "bytes=" + std::to_string(offset) + '-' +
                                                        std::to_string(offset + size - 1));
    try {
        return {number, tagIn(store_->ask(question, deadline).body, "CopyPartResult"), size};
    } catch (StoreFailure const& failure) {
        failCopy(failure);
    }
}

std::string
Bucket::completeUpload(std::string_view key, std::string_view upload,
                       std::span<UploadedPart const> parts, PutConditions const& conditions,
                       Deadline const& deadline,
                       std::optional<std::chrono::steady_clock::time_point> askedSince) const {
    auto const doneBefore = [&] {
        auto done = askedSince ? ownUpload(key, parts, Doubt{*askedSince, 1}, true, deadline)
                               : std::nullopt;
        if (done) {
            uploads_->remove(upload);
        }
        return done;
    };
    if (conditions.onlyIfMissing && head(key, deadline)) {
        if (auto const done = doneBefore()) {
            return *done;
        }
        throw existsAlready();
    }
    std::string const document = completionOf(parts);
    Question question{"POST", key, {{"uploadId", std::string(upload)}}};
    question.headers.add("Content-Type", "application/xml");
    question.body = document;
    Inquiry const inquiry{
        [](Answer answer) {
            return tagIn(std::move(answer.body), "CompleteMultipartUploadResult");
        },
        [&](Doubt const& doubt) { return ownUpload(key, parts, doubt, false, deadline); },
        [&](StoreFailure const& failure, Doubt const& doubt) {
            bool const isGone = failure.word() == "NoSuchUpload";
            return isGone || failure.status() == 412
                       ? ownUpload(key, parts, doubt, isGone, deadline)
                       : std::nullopt;
        },
    };
    std::string tag;
    try {
        Question conditional = question;
        if (conditions.onlyIfMissing) {
            conditional.headers.add("If-None-Match", "*");
        }
        tag = store_->askOnce(conditional, inquiry, deadline);
    } catch (StoreFailure const& failure) {
        if (failure.word() == "NoSuchUpload") {
            if (auto const done = doneBefore()) {
                return *done;
            }
        }
        if (!conditions.onlyIfMissing) {
            throw;
        }
        if (failure.status() == 412) {
            throw existsAlready();
        }
        if (failure.word() != "NotImplemented") {
            throw;
        }
        tag = store_->askOnce(question, inquiry, deadline);
    }
    uploads_->remove(upload);
    return tag;
}

std::optional<std::string> Bucket::ownUpload(std::string_view key,
                                             std::span<UploadedPart const> parts,
                                             Doubt const& doubt, bool isGone,
                                             Deadline const& deadline) const {
    std::optional<ObjectHead> const head = this->head(key, deadline);
    if (!head) {
        return std::nullopt;
    }
    bool const isOfNow = isRecent(*head, doubt, store_->now());
    if (head->eTag == tagOf(parts) && (isOfNow || isGone)) {
        return head->eTag;
    }
    // The tag of an object that is stored encrypted is another one.
    if (isGone && isOfNow && head->size == sizeOf(parts)) {
        return head->eTag;
    }
    return std::nullopt;
}

void Bucket::abortUpload(std::string_view key, std::string_view upload,
                         Deadline const& deadline) const {
    try {
        store_->ask({"DELETE", key, {{"uploadId", std::string(upload)}}}, deadline);
    } catch (StoreFailure const& failure) {
        if (failure.status() != 404) {
            throw;
        }
    }
    uploads_->remove(upload);
}

} // namespace foundation::storage::provider::s3::detail
