#include "resident_memory.hpp"
#include "trees.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/vfs/listing/file_entry.hpp>
#include <foundation/storage/vfs/listing/folder_entry.hpp>
#include <foundation/storage/vfs/walking/folder_visitor.hpp>
#include <foundation/storage/vfs/walking/walk_folder.hpp>

#include <atomic>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <utility>

namespace bench {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;

namespace {

/// Counts up to a number of folders and a number of files behind them; holds nothing else.
class CountingCursor final : public provider::IFolderEntryIterator {
  public:
    CountingCursor(std::size_t folders, std::size_t files) : folders_(folders), files_(files) {}

    provider::FolderEntry currentEntry() const override {
        provider::AttributeValues values;
        values.size = next_;
        bool const isFile = next_ > folders_;
        vfs::ustring name = fl::i18n::to_ustring((isFile ? "file-" : "folder-") +
                                                 std::to_string(100'000'000 + next_));
        if (isFile) {
            return {std::move(name), provider::FileAttributes(values)};
        }
        return {std::move(name), provider::FolderAttributes(values)};
    }
    bool hasNext() const override { return next_ < folders_ + files_; }
    void advance() override { ++next_; }
    IFolderEntryIterator* cloneIterator() const override { return new CountingCursor(*this); }

  private:
    std::size_t folders_;
    std::size_t files_;
    std::size_t next_ = 0;
};

/// A tree that takes no memory: a root with folders, and files in each of them.
class CountingProvider final : public provider::IProvider {
  public:
    CountingProvider(std::size_t folders, std::size_t filesInEach)
        : folders_(folders),
          filesInEach_(filesInEach) {}

    provider::ExistsResult exists(provider::StorageIRI const& location) const override {
        return location.getName().starts_with(u"file-") ? provider::ExistsResult::File
                                                        : provider::ExistsResult::Folder;
    }
    std::unique_ptr<provider::IFolderEntryIterator>
    listAll(provider::StorageIRI const& location, provider::ustring const&) const override {
        return location.getName().empty() ? std::make_unique<CountingCursor>(folders_, 0U)
                                          : std::make_unique<CountingCursor>(0U, filesInEach_);
    }

  private:
    std::size_t folders_;
    std::size_t filesInEach_;
};

class Counter final : public vfs::FolderVisitor {
  public:
    vfs::FolderVisitResult visitEntry(vfs::FileEntry const& file) override {
        count_.fetch_add(file.getAttributes().values().size ? 1 : 0, std::memory_order_relaxed);
        return vfs::FolderVisitResult::Continue;
    }
    vfs::FolderVisitResult visitEntryBefore(vfs::FolderEntry const&) override {
        return vfs::FolderVisitResult::Continue;
    }
    vfs::FolderVisitResult visitEntryAfter(vfs::FolderEntry const&) override {
        return vfs::FolderVisitResult::Continue;
    }
    std::size_t count() const { return count_; }

  private:
    std::atomic<std::size_t> count_{0};
};

double growthOf(vfs::FolderVisitResult (*walk)(vfs::Folder const&, vfs::FolderVisitor&),
                std::size_t folders, std::size_t filesInEach) {
    vfs::Folder const root(
        provider::StorageItem(std::make_shared<CountingProvider>(folders, filesInEach),
                              provider::StorageIRI(u"count:/")),
        vfs::StorageSystemReference(std::weak_ptr<vfs::StorageSystem>()));
    Counter counter;
    double const growth = growthDuring([&] { walk(root, counter); });
    if (counter.count() != folders * filesInEach) {
        throw std::runtime_error("a walk counted " + std::to_string(counter.count()) + " files");
    }
    return growth;
}

void show(char const* shape, std::size_t folders, std::size_t filesInEach) {
    std::printf("%10zu %s %12.2f %12.2f\n", folders * filesInEach, shape,
                growthOf(vfs::walkFolder, folders, filesInEach),
                growthOf(vfs::walkFolderParallel, folders, filesInEach));
    std::fflush(stdout);
}

} // namespace

void showMemoryOfWalks(Workplace const&) {
    std::printf("\nGrowth of resident memory in MiB during a walk\n%-33s %12s %12s\n", "files",
                "walkFolder", "parallel");
    growthOf(vfs::walkFolderParallel, 100, 100); // starts the threads
    for (std::size_t const folders : {100U, 1'000U, 10'000U}) {
        show("in folders of 1,000   ", folders, 1'000);
    }
    for (std::size_t const files : {100'000U, 1'000'000U, 10'000'000U}) {
        show("in one folder         ", 1, files);
    }
}

} // namespace bench
