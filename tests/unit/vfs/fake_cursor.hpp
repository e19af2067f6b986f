#pragma once

#include <foundation/storage/provider/i_folder_entry_iterator.hpp>

#include "fake_provider.hpp"

#include <array>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace vfs_test {

enum class CursorCall { HasNext, Advance, CurrentEntry, Clone };

/// What a cursor and its clones go through: the entries that they give, the calls that fail, and
/// how often each call was made. For one thread at a time.
class CursorScript {
  public:
    explicit CursorScript(std::vector<provider::FolderEntry> given) : entries(std::move(given)) {}

    /// Lets a call throw what `thrower` throws, the first `times` times that it is made about an
    /// entry: hasNext() and advance() are about the entry that comes next, counted from 0,
    /// currentEntry() is about the one that was reached, a clone about the next.
    void failOn(CursorCall call, std::size_t entry, std::function<void()> thrower, int times = 1) {
        failures_[{call, entry}] = {std::move(thrower), times};
    }
    void failOn(CursorCall call, std::size_t entry, std::uint32_t code, int times = 1) {
        failOn(
            call, entry, [code] { fail(code, StorageIRI(u"mem:/named")); }, times);
    }

    int count(CursorCall call) const { return counts_[static_cast<std::size_t>(call)]; }

    std::vector<provider::FolderEntry> entries;
    int alive = 0;          ///< cursors that have not been destroyed
    bool cloneless = false; ///< cloneIterator() gives null

  private:
    friend class FakeCursor;

    struct Failure {
        std::function<void()> thrower;
        int times;
    };

    void happens(CursorCall call, std::size_t entry) {
        ++counts_[static_cast<std::size_t>(call)];
        auto const found = failures_.find({call, entry});
        if (found != failures_.end() && found->second.times > 0) {
            --found->second.times;
            found->second.thrower();
        }
    }

    std::map<std::pair<CursorCall, std::size_t>, Failure> failures_;
    std::array<int, 4> counts_{};
};

class FakeCursor : public provider::IFolderEntryIterator {
  public:
    explicit FakeCursor(std::shared_ptr<CursorScript> script) : script_(std::move(script)) {
        ++script_->alive;
    }
    FakeCursor(FakeCursor const& other) : script_(other.script_), next_(other.next_) {
        ++script_->alive;
    }
    FakeCursor& operator=(FakeCursor const&) = delete;
    ~FakeCursor() override { --script_->alive; }

    provider::FolderEntry currentEntry() const override {
        script_->happens(CursorCall::CurrentEntry, next_ - 1);
        return script_->entries.at(next_ - 1);
    }
    bool hasNext() const override {
        script_->happens(CursorCall::HasNext, next_);
        return next_ < script_->entries.size();
    }
    void advance() override {
        script_->happens(CursorCall::Advance, next_);
        ++next_;
    }
    IFolderEntryIterator* cloneIterator() const override {
        script_->happens(CursorCall::Clone, next_);
        return script_->cloneless ? nullptr : new FakeCursor(*this);
    }

  private:
    std::shared_ptr<CursorScript> script_;
    std::size_t next_ = 0;
};

inline provider::FolderEntry file(char16_t const* name) {
    return provider::FolderEntry(name, true);
}
inline provider::FolderEntry folder(char16_t const* name) {
    return provider::FolderEntry(name, false);
}
inline provider::AttributeValues values(std::uint64_t size) {
    provider::AttributeValues made;
    made.size = size;
    return made;
}
inline provider::FolderEntry fileOfSize(char16_t const* name, std::uint64_t size) {
    return provider::FolderEntry(name, provider::FileAttributes(values(size)));
}
inline provider::FolderEntry folderOfSize(char16_t const* name, std::uint64_t size) {
    return provider::FolderEntry(name, provider::FolderAttributes(values(size)));
}

/// Scripted folders behind a fake provider, which every list operation gives whole: it neither
/// filters nor leaves out the other kind. What has a script is a folder to exists(), what no script
/// names is a file, and listing what has no script fails with ResourceNotFound.
class FakeTree {
  public:
    explicit FakeTree(FakeProvider& fake) {
        fake.onExists = [this](StorageIRI const& location) {
            return scripts_.count(location) != 0 ? provider::ExistsResult::Folder
                                                 : provider::ExistsResult::File;
        };
        fake.onList = [this](std::string const&, StorageIRI const& location,
                             fl::i18n::ustring const&) {
            auto const found = scripts_.find(location);
            if (found == scripts_.end()) {
                fail(4, location);
            }
            return std::make_unique<FakeCursor>(found->second);
        };
    }
    FakeTree(FakeTree const&) = delete;
    FakeTree& operator=(FakeTree const&) = delete;
    ~FakeTree() = default;

    CursorScript& add(char16_t const* location, std::vector<provider::FolderEntry> entries) {
        auto script = std::make_shared<CursorScript>(std::move(entries));
        scripts_.insert_or_assign(StorageIRI(location), script);
        return *script;
    }
    /// Cursors that have not been destroyed, of all folders.
    int alive() const {
        int sum = 0;
        for (auto const& [location, script] : scripts_) {
            sum += script->alive;
        }
        return sum;
    }

  private:
    std::map<StorageIRI, std::shared_ptr<CursorScript>> scripts_;
};

} // namespace vfs_test
