#pragma once

#include <foundation/storage/vfs/listing/detail/i_folder_iterator_impl.hpp>
#include <foundation/storage/vfs/listing/list_entry.hpp>

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace vfs_test {

/// An iterator over given entries, and a record of what it and its clones were asked.
class RecordedIterator : public foundation::storage::vfs::detail::IFolderIteratorImpl<
                             foundation::storage::vfs::ListEntry> {
  public:
    using Entry = foundation::storage::vfs::ListEntry;
    using Base = foundation::storage::vfs::detail::IFolderIteratorImpl<Entry>;
    struct Shared {
        std::vector<Entry> entries;
        std::vector<std::string> log;
    };

    explicit RecordedIterator(std::shared_ptr<Shared> shared, std::size_t at = 0)
        : shared_(std::move(shared)),
          at_(at) {}

    void increment() override {
        note("increment");
        ++at_;
    }
    bool equal(Base const& other) const override {
        note("equal");
        return at_ == static_cast<RecordedIterator const&>(other).at_;
    }
    Entry const& dereference() const override {
        note("dereference");
        return shared_->entries.at(at_);
    }
    std::shared_ptr<Base> cloneImpl() const override {
        note("cloneImpl");
        return std::make_shared<RecordedIterator>(*this);
    }
    std::shared_ptr<Base> buildEndIterator() const override {
        note("buildEndIterator");
        return std::make_shared<RecordedIterator>(shared_, shared_->entries.size());
    }

    std::size_t at() const noexcept { return at_; }

  private:
    void note(char const* call) const { shared_->log.emplace_back(call); }

    std::shared_ptr<Shared> shared_;
    std::size_t at_;
};

} // namespace vfs_test
