#pragma once

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// Small providers for tests of what is built on the provider interface: items by path, and the
/// n-th operation fails where a test wants it to.
namespace scripted {

using namespace foundation::storage::provider;

inline StorageIRI at(char16_t const* path) {
    return StorageIRI(std::u16string(u"fake:") + path);
}

struct Item {
    ExtendedExistsResult kind = ExtendedExistsResult::File;
    std::string bytes;
    ustring target;
    bool writable = true;
};

/// The items of one provider, and what goes wrong in it.
struct State {
    std::map<ustring, Item> items;
    int failAt = 0; ///< the operation, counted from 1, that fails
    int operations = 0;
    int openStreams = 0;
    std::vector<std::string> changes; ///< the operations that change something, in order
    bool tellsAttributes = true;
    bool throwsForMissing = false;
    long largestWrite = 0; ///< 0: writes take all that they are given

    bool isTimeToFail() { return ++operations == failAt; }
    void step(StorageIRI const& location) {
        if (isTimeToFail()) {
            throw Exception(ErrorCode::IOError, location);
        }
    }
    Item* find(StorageIRI const& location) {
        auto const found = items.find(location.getResolvedPath());
        return found == items.end() ? nullptr : &found->second;
    }
};

class Stream : public ByteStream {
  public:
    Stream(State& state, ustring path, bool reads)
        : state_(state),
          path_(std::move(path)),
          reads_(reads) {
        ++state_.openStreams;
    }
    ~Stream() override { --state_.openStreams; }

    long read(char* buffer, long count) override {
        failIfTime<ByteStreamReadFailure>("read");
        std::string const& bytes = content();
        auto const got = std::min<std::size_t>(static_cast<std::size_t>(count),
                                               bytes.size() - std::min(bytes.size(), position_));
        std::memcpy(buffer, bytes.data() + position_, got);
        position_ += got;
        return got == 0 ? -1 : static_cast<long>(got);
    }
    long write(char const* buffer, long count) override {
        failIfTime<ByteStreamWriteFailure>("write");
        long const taken = state_.largestWrite ? std::min(count, state_.largestWrite) : count;
        content().append(buffer, static_cast<std::size_t>(taken));
        return taken;
    }
    long seek(long, std::ios_base::seekdir) override {
        throw ByteStreamSeekFailure("no seeking", ErrorCode::UnsupportedOperation);
    }
    void close() override { failIfTime<ByteStreamCloseFailure>("close"); }

  protected:
    virtual std::string& content() { return state_.items.at(path_).bytes; }
    State& state() { return state_; }
    ustring const& path() const { return path_; }

  private:
    template<class Failure>
    void failIfTime(char const* what) {
        if (state_.isTimeToFail()) {
            throw Failure(std::string(reads_ ? "source " : "destination ") + what,
                          ErrorCode::NoSpaceLeft);
        }
    }

    State& state_;
    ustring path_;
    bool reads_;
    std::size_t position_ = 0;
};

/// The minimum that can be read and written: what does not exist yet is created by opening it.
class TenLines : public IProvider {
  public:
    State mutable state;

    ExistsResult exists(StorageIRI const& location) const override {
        switch (existsExtended(location)) {
        case ExtendedExistsResult::Nothing:
            return ExistsResult::Nothing;
        case ExtendedExistsResult::Folder:
            return ExistsResult::Folder;
        default:
            return ExistsResult::File;
        }
    }
    ExtendedExistsResult existsExtended(StorageIRI const& location) const override {
        state.step(location);
        Item const* const item = state.find(location);
        if (!item && state.throwsForMissing) {
            throw Exception(ErrorCode::ResourceNotFound, at(u"/elsewhere"));
        }
        return item ? item->kind : ExtendedExistsResult::Nothing;
    }
    FileAttributes getFileAttributes(StorageIRI const& location) const override {
        state.step(location);
        if (!state.tellsAttributes) {
            return IProvider::getFileAttributes(location);
        }
        Item const* const item = state.find(location);
        if (!item) {
            throw Exception(ErrorCode::ResourceNotFound, location);
        }
        AttributeValues values;
        values.size = item->bytes.size();
        values.writable = item->writable;
        return FileAttributes(values);
    }
    std::unique_ptr<ByteStream> openReadOnlyStream(StorageIRI const& location) const override {
        state.step(location);
        return std::make_unique<Stream>(state, location.getResolvedPath(), true);
    }
    std::unique_ptr<ByteStream> openStream(StorageIRI const& location,
                                           ByteStreamOpenOptions const& options) override {
        state.step(location);
        state.changes.emplace_back("open");
        Item& item = state.items[location.getResolvedPath()];
        if (options.withoutTruncate == 0) {
            item.bytes.clear();
        }
        return std::make_unique<Stream>(state, location.getResolvedPath(), false);
    }
    void removeFile(StorageIRI const& location) override {
        state.step(location);
        state.changes.emplace_back("remove");
        state.items.erase(location.getResolvedPath());
    }
};

/// One that creates files exclusively, as disks do.
class Disk : public TenLines {
  public:
    void createFile(StorageIRI const& location) override {
        state.step(location);
        state.changes.emplace_back("create");
        if (!state.items.try_emplace(location.getResolvedPath()).second) {
            throw Exception(ErrorCode::ResourceAlreadyExists, location);
        }
    }
};

class LinkingDisk : public Disk, public extensions::ILinks {
  public:
    bool moves = true;

    ustring readLink(StorageIRI const& location) const override {
        state.step(location);
        return state.find(location)->target;
    }
    void createLink(StorageIRI const& location, ustring const& target) override {
        state.step(location);
        state.changes.emplace_back("link");
        if (!state.items
                 .try_emplace(location.getResolvedPath(),
                              Item{ExtendedExistsResult::DanglingLink, {}, target})
                 .second) {
            throw Exception(ErrorCode::ResourceAlreadyExists, location);
        }
    }
    void moveFile(StorageIRI const& source, StorageIRI const& destination,
                  ReplacementPolicy const& policy) override {
        state.step(source);
        if (!moves) {
            return IProvider::moveFile(source, destination, policy);
        }
        state.changes.emplace_back("move");
        state.items[destination.getResolvedPath()] = *state.find(source);
        state.items.erase(source.getResolvedPath());
    }
};

class ReplacingDisk : public Disk, public extensions::IReplacingStreams {
  public:
    std::unique_ptr<ByteStream> openReplacement(StorageIRI const& location,
                                                ReplacementPolicy const& policy) override {
        state.step(location);
        Item const* const item = state.find(location);
        if (item && policy != ReplacementPolicy::ReplaceExisting &&
            policy != ReplacementPolicy::ReplaceReadOnly) {
            throw Exception(ErrorCode::ResourceAlreadyExists, location);
        }
        return std::make_unique<Replacement>(state, location.getResolvedPath());
    }

  private:
    class Replacement final : public Stream {
      public:
        Replacement(State& state, ustring path) : Stream(state, std::move(path), false) {}
        void close() override {
            Stream::close();
            state().items[path()] = Item{ExtendedExistsResult::File, bytes_, {}};
        }

      private:
        std::string& content() override { return bytes_; }
        std::string bytes_;
    };
};

} // namespace scripted
