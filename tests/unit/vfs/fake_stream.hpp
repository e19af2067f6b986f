#pragma once

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/byte_stream_failure.hpp>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vfs_test {

/// What a FakeStream works on, shared with the test that looks at it.
struct StreamScript {
    std::string content;
    long position = 0;
    std::vector<std::string> calls; ///< "read 131072", "write 10", "seek 0 cur", "close"
    std::function<void()> onRead;
    std::function<void()> onWrite;
    std::function<void()> onSeek;
    std::function<void()> onClose;
    long atEnd = -1;       ///< what a read at the end gives
    long takesAtMost = -1; ///< bytes of one write; -1 for all
    bool destroyed = false;

    long count(std::string const& prefix) const {
        return std::count_if(calls.begin(), calls.end(), [&](std::string const& call) {
            return call.compare(0, prefix.size(), prefix) == 0;
        });
    }
};

/// A stream over a string, which remembers its calls and fails where the script says so.
class FakeStream final : public foundation::storage::provider::ByteStream {
  public:
    explicit FakeStream(std::shared_ptr<StreamScript> script) : script_(std::move(script)) {}
    ~FakeStream() override { script_->destroyed = true; }

    long read(char* buffer, long count) override {
        script_->calls.push_back("read " + std::to_string(count));
        if (script_->onRead) {
            script_->onRead();
        }
        long const left = static_cast<long>(script_->content.size()) - script_->position;
        long const got = std::min(count, left);
        if (got <= 0) {
            return count == 0 ? 0 : script_->atEnd;
        }
        std::memcpy(buffer, script_->content.data() + script_->position,
                    static_cast<std::size_t>(got));
        script_->position += got;
        return got;
    }

    long write(char const* buffer, long count) override {
        script_->calls.push_back("write " + std::to_string(count));
        if (script_->onWrite) {
            script_->onWrite();
        }
        if (script_->takesAtMost >= 0) {
            count = std::min(count, script_->takesAtMost);
        }
        auto const at = static_cast<std::size_t>(script_->position);
        auto const size = static_cast<std::size_t>(count);
        script_->content.resize(std::max(script_->content.size(), at + size));
        script_->content.replace(at, size, buffer, size);
        script_->position += count;
        return count;
    }

    long seek(long offset, std::ios_base::seekdir way) override {
        char const* const name = way == std::ios_base::beg   ? " beg"
                                 : way == std::ios_base::cur ? " cur"
                                                             : " end";
        script_->calls.push_back("seek " + std::to_string(offset) + name);
        if (script_->onSeek) {
            script_->onSeek();
        }
        long const base = way == std::ios_base::beg   ? 0
                          : way == std::ios_base::cur ? script_->position
                                                      : static_cast<long>(script_->content.size());
        script_->position = base + offset;
        return script_->position;
    }

    void close() override {
        script_->calls.push_back("close");
        if (script_->onClose) {
            script_->onClose();
        }
    }

  private:
    std::shared_ptr<StreamScript> script_;
};

} // namespace vfs_test
