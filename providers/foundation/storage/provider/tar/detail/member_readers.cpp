#include <foundation/storage/provider/tar/detail/member_readers.hpp>

#include <utility>

namespace foundation::storage::provider::tar::detail {

namespace {

constexpr std::size_t mostIdle = 2;

void goOn(ArchiveReader& reader) {
    if (!reader.next()) {
        throw container::DecodingFailure("the archive has changed");
    }
}

} // namespace

MemberReaders::MemberReaders(std::shared_ptr<ArchiveSource> source, Charset charset)
    : source_(std::move(source)),
      charset_(charset) {
    idle_.reserve(mostIdle); // so that bringing one back takes no memory
}

MemberReaders::Lent MemberReaders::lend(Member const& member) {
    if (member.access == Access::AtHeader) {
        return start(source_->lend(member.place), member);
    }
    std::unique_ptr<ArchiveReader> reader = nearest(member.place);
    if (!reader) {
        return start(source_->lend(0), member);
    }
    while (reader->number() < member.place) {
        goOn(*reader);
    }
    return {reader.release(), Return{shared_from_this()}};
}

MemberReaders::Lent MemberReaders::startAgain(Lent reader, Member const& member) {
    return start(reader->takeBytes(), member);
}

MemberReaders::Lent MemberReaders::start(ArchiveSource::Lent bytes, Member const& member) {
    bool const isAtHeader = member.access == Access::AtHeader;
    auto reader =
        std::make_unique<ArchiveReader>(std::move(bytes), isAtHeader ? member.place : 0, charset_);
    goOn(*reader);
    while (!isAtHeader && reader->number() < member.place) {
        goOn(*reader);
    }
    return {reader.release(), Return{isAtHeader ? nullptr : shared_from_this()}};
}

/// One that stands before the member; null where there is none.
std::unique_ptr<ArchiveReader> MemberReaders::nearest(std::uint64_t number) {
    std::lock_guard const lock(mutex_);
    auto best = idle_.end();
    for (auto idle = idle_.begin(); idle != idle_.end(); ++idle) {
        if ((*idle)->number() < number &&
            (best == idle_.end() || (*best)->number() < (*idle)->number())) {
            best = idle;
        }
    }
    if (best == idle_.end()) {
        return nullptr;
    }
    std::unique_ptr<ArchiveReader> reader = std::move(*best);
    idle_.erase(best);
    return reader;
}

void MemberReaders::Return::operator()(ArchiveReader* reader) const noexcept {
    std::unique_ptr<ArchiveReader> returned(reader);
    if (!owner || !returned->isGood()) {
        return;
    }
    returned->rest();
    std::lock_guard const lock(owner->mutex_);
    if (owner->idle_.size() == mostIdle) { // the older one goes
        owner->idle_.erase(owner->idle_.begin());
    }
    owner->idle_.push_back(std::move(returned));
}

} // namespace foundation::storage::provider::tar::detail
