#include <foundation/storage/provider/zip/zip_stream.hpp>

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/extensions/i_resting_stream.hpp>
#include <foundation/storage/provider/zip/detail/decoder.hpp>
#include <foundation/storage/provider/zip/detail/member_bytes.hpp>

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace foundation::storage::provider::zip {

using detail::Decoder;
using detail::Member;
using detail::MemberBytes;
using detail::Method;

namespace {

using Bytes = std::span<unsigned char>;

constexpr char const* wrongCheckSum = "the content is damaged: its check sum is wrong";
constexpr char const* wrongSize =
    "the content is damaged: it has not the size that the archive tells";

/// What all members have in common: a position, and failures that stay.
class MemberStream : public ByteStream, public extensions::IRestingStream {
  public:
    MemberStream(MemberBytes bytes, Member const& member)
        : bytes_(std::move(bytes)),
          member_(member) {}

    long read(char* buffer, long count) override {
        checkOpen<ByteStreamReadFailure>();
        if (count < 0) {
            throw ByteStreamReadFailure("read: a negative count", ErrorCode::InternalError);
        }
        if (count == 0) {
            return 0;
        }
        if (position_ >= member_.size) {
            checkEmpty();
            return -1;
        }
        std::uint64_t const wanted =
            std::min(static_cast<std::uint64_t>(count), member_.size - position_);
        readOrFail(position_, Bytes(reinterpret_cast<unsigned char*>(buffer),
                                    static_cast<std::size_t>(wanted)));
        position_ += wanted;
        return static_cast<long>(wanted);
    }

    long write(char const*, long) override {
        checkOpen<ByteStreamWriteFailure>();
        failure_ = {"write: the file is open for reading alone", ErrorCode::PermissionDenied};
        throw ByteStreamWriteFailure(failure_->text, failure_->code);
    }

    long seek(long offset, std::ios_base::seekdir way) override {
        checkOpen<ByteStreamSeekFailure>();
        std::uint64_t const from = way == std::ios_base::beg   ? 0
                                   : way == std::ios_base::cur ? position_
                                                               : member_.size;
        constexpr auto farthest = static_cast<std::uint64_t>(std::numeric_limits<long>::max());
        auto const base = static_cast<std::int64_t>(std::min(from, farthest));
        if (from > farthest || offset < -base || offset > std::numeric_limits<long>::max() - base) {
            throw ByteStreamSeekFailure("seek: the position is before the start, or too far",
                                        ErrorCode::InvalidLocation);
        }
        position_ = static_cast<std::uint64_t>(base + offset);
        return static_cast<long>(position_);
    }

    void close() override {
        checkOpen<ByteStreamCloseFailure>();
        isClosed_ = true;
    }

    void rest() noexcept override { bytes_.rest(); }

  protected:
    /// Reads all of it. REQUIRES: it lies within the member; empty only where the member is, which
    /// then is to be checked. Throws DecodingFailure.
    virtual void readAt(std::uint64_t position, Bytes buffer) = 0;

    MemberBytes& bytes() noexcept { return bytes_; }
    Member const& member() const noexcept { return member_; }

  private:
    /// What every later call answers.
    struct Failure {
        std::string text;
        ErrorCode code;
    };

    template<class Thrown>
    void checkOpen() const {
        if (isClosed_) {
            throw Thrown("the stream is closed", ErrorCode::InternalError);
        }
        if (failure_) {
            throw Thrown(failure_->text, failure_->code);
        }
    }

    void readOrFail(std::uint64_t position, Bytes buffer) {
        try {
            readAt(position, buffer);
        } catch (detail::DecodingFailure const& failure) {
            fail(failure.what());
        } catch (std::bad_alloc const&) {
            fail("there is no memory to decode the content", ErrorCode::InternalError);
        }
    }

    /// Once: that it is empty may be what the archive tells, and not true.
    void checkEmpty() {
        if (member_.size == 0 && !isChecked_) {
            readOrFail(0, {});
            isChecked_ = true;
        }
    }

    [[noreturn]] void fail(char const* reason, ErrorCode code = ErrorCode::IOError) {
        failure_ = {std::string("read: ") + reason, code};
        throw ByteStreamReadFailure(failure_->text, failure_->code);
    }

    MemberBytes bytes_;
    Member const member_;
    std::uint64_t position_ = 0;
    std::optional<Failure> failure_;
    bool isChecked_ = false;
    bool isClosed_ = false;
};

class StoredMember final : public MemberStream {
  public:
    using MemberStream::MemberStream;

  private:
    void readAt(std::uint64_t position, Bytes buffer) override {
        bytes().readExactly(position, buffer);
        // What was read before may be read again, with more behind it.
        if (position <= checked_ && checked_ - position <= buffer.size()) {
            Bytes const more = buffer.subspan(static_cast<std::size_t>(checked_ - position));
            checkSum_ = detail::checkSum(checkSum_, more);
            checked_ += more.size();
            if (checked_ == member().size && checkSum_ != member().crc) {
                throw detail::DecodingFailure(wrongCheckSum);
            }
        }
    }

    std::uint64_t checked_ = 0; ///< what was read from the start on
    std::uint32_t checkSum_ = 0;
};

/// Deflated, and small enough to be held as a whole.
class WholeMember final : public MemberStream {
  public:
    using MemberStream::MemberStream;

  private:
    void readAt(std::uint64_t position, Bytes buffer) override {
        if (!content_) {
            decode();
        }
        if (!buffer.empty()) {
            std::memcpy(buffer.data(), content_.get() + position, buffer.size());
        }
    }

    void decode() {
        auto const stored = static_cast<std::size_t>(member().compressedSize);
        auto const size = static_cast<std::size_t>(member().size);
        std::vector<unsigned char> space;
        std::span<unsigned char const> input = bytes().inHand();
        if (input.size() < stored) {
            space.resize(stored);
            bytes().readExactly(0, space);
            input = space;
        }
        auto content = std::make_unique_for_overwrite<unsigned char[]>(size);
        if (!detail::decodeDeflated(input.first(stored), Bytes(content.get(), size))) {
            throw detail::DecodingFailure("the compressed bytes are damaged");
        }
        if (detail::checkSum(0, Bytes(content.get(), size)) != member().crc) {
            throw detail::DecodingFailure(wrongCheckSum);
        }
        content_ = std::move(content);
    }

    std::unique_ptr<unsigned char[]> content_;
};

/// Decoded from the first byte on, as far as somebody reads.
class DecodedMember final : public MemberStream {
  public:
    DecodedMember(MemberBytes bytes, Member const& member, ZipOptions const& options)
        : MemberStream(std::move(bytes), member),
          options_(options),
          markEvery_(std::max(leastBetweenMarks, member.size / mostMarks)) {}

  private:
    static constexpr std::uint64_t leastBetweenMarks = std::uint64_t{4} * 1024 * 1024;
    static constexpr std::uint64_t mostMarks = 128;
    static constexpr std::size_t inputSize = std::size_t{64} * 1024;

    /// How far decoding has come.
    struct Place {
        std::unique_ptr<Decoder> decoder;
        std::uint64_t input = 0;
        std::uint64_t output = 0;
        std::uint32_t checkSum = 0;
        bool isEnd = false;
    };

    void readAt(std::uint64_t position, Bytes buffer) override {
        goNear(position);
        std::vector<unsigned char> passedOver;
        while (place_.output < position) {
            passedOver.resize(inputSize);
            decode(Bytes(passedOver)
                       .first(static_cast<std::size_t>(
                           std::min<std::uint64_t>(passedOver.size(), position - place_.output))));
        }
        decode(buffer);
    }

    /// To the nearest place before that can be decoded from.
    void goNear(std::uint64_t position) {
        auto const after = std::upper_bound(
            marks_.begin(), marks_.end(), position,
            [](std::uint64_t wanted, Place const& mark) { return wanted < mark.output; });
        bool const isBack = !place_.decoder || position < place_.output;
        if (after != marks_.begin() && (isBack || std::prev(after)->output > place_.output)) {
            Place const& mark = *std::prev(after);
            place_ = {mark.decoder->copy(), mark.input, mark.output, mark.checkSum, false};
        } else if (isBack) {
            place_ = {detail::makeDecoder(static_cast<Method>(member().method), options_)};
        } else {
            return;
        }
        input_ = {};
    }

    /// Fills all of it with what comes next.
    void decode(Bytes output) {
        if (member().size == 0) {
            checkEnd();
        }
        while (!output.empty()) {
            if (place_.isEnd) {
                throw detail::DecodingFailure(wrongSize);
            }
            Bytes const made = output.first(step(output));
            output = output.subspan(made.size());
            place_.checkSum = detail::checkSum(place_.checkSum, made);
            place_.output += made.size();
            if (place_.output == member().size) {
                checkEnd();
            } else {
                mark();
            }
        }
    }

    std::size_t step(Bytes output) {
        if (input_.empty()) {
            refill();
        }
        bool const isLast = input_.empty();
        Decoder::Step const step = place_.decoder->decode(input_, output);
        if (step.produced == 0 && !step.isEnd && (isLast || step.consumed == 0)) {
            throw detail::DecodingFailure("the compressed bytes end too soon");
        }
        input_ = input_.subspan(step.consumed);
        place_.input += step.consumed;
        place_.isEnd = step.isEnd;
        return step.produced;
    }

    void refill() {
        std::uint64_t const left = member().compressedSize - place_.input;
        buffer_.resize(static_cast<std::size_t>(std::min<std::uint64_t>(left, inputSize)));
        bytes().readExactly(place_.input, buffer_);
        input_ = buffer_;
    }

    /// The content must end where the archive says, and be what it was.
    void checkEnd() {
        unsigned char more = 0;
        while (!place_.isEnd) {
            if (step(Bytes(&more, 1)) != 0) {
                throw detail::DecodingFailure(wrongSize);
            }
        }
        if (place_.checkSum != member().crc) {
            throw detail::DecodingFailure(wrongCheckSum);
        }
    }

    void mark() {
        std::uint64_t const last = marks_.empty() ? 0 : marks_.back().output;
        if (place_.output < last + markEvery_) {
            return;
        }
        if (std::unique_ptr<Decoder> decoder = place_.decoder->copy()) {
            marks_.push_back({std::move(decoder), place_.input, place_.output, place_.checkSum});
        }
    }

    ZipOptions const options_;
    std::uint64_t const markEvery_;
    Place place_;
    std::vector<Place> marks_; ///< by their output
    std::vector<unsigned char> buffer_;
    std::span<unsigned char const> input_; ///< of the buffer, not consumed yet
};

void check(Member const& member, StorageIRI const& location, ZipOptions const& options) {
    auto const refuse = [&](ErrorCode code) { throw Exception(code, location); };
    if (member.isEncrypted || !detail::isKnown(static_cast<Method>(member.method))) {
        refuse(ErrorCode::UnsupportedOperation);
    }
    if (static_cast<Method>(member.method) == Method::Stored ? member.compressedSize != member.size
                                                             : member.compressedSize == 0) {
        refuse(ErrorCode::IOError);
    }
    if (Member::isTooDense(member.size, member.compressedSize, options)) {
        refuse(ErrorCode::FileTooLarge);
    }
}

} // namespace

std::unique_ptr<ByteStream> openMember(container::ItemStreams& streams, Member const& member,
                                       StorageIRI const& location, ZipOptions const& options) {
    check(member, location, options);
    try {
        MemberBytes bytes(streams, member);
        if (!bytes.isAsTold()) {
            throw Exception(ErrorCode::IOError, location);
        }
        if (static_cast<Method>(member.method) == Method::Stored) {
            return std::make_unique<StoredMember>(std::move(bytes), member);
        }
        // What is decoded as a whole is read as a whole: it must not be much more than it makes.
        if (static_cast<Method>(member.method) == Method::Deflated &&
            member.size <= options.wholeMemberSize &&
            member.compressedSize <= options.wholeMemberSize + options.wholeMemberSize / 8) {
            return std::make_unique<WholeMember>(std::move(bytes), member);
        }
        return std::make_unique<DecodedMember>(std::move(bytes), member, options);
    } catch (ByteStreamFailure const& failure) {
        throw Exception(failure.getErrorCode(), location);
    }
}

} // namespace foundation::storage::provider::zip
