#include "contest.hpp"
#include "trees.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/conformance/call_delayer.hpp>
#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/provider/memory/memory_provider.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/walking/folder_visitor.hpp>
#include <foundation/storage/vfs/walking/walk_folder.hpp>

#include <tbb/global_control.h>
#include <tbb/task_arena.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>

namespace bench {

namespace conformance = foundation::storage::conformance;
namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;

namespace {

constexpr std::size_t threads = 16;

/// Asks the storage about every file.
class Asker final : public vfs::FolderVisitor {
  public:
    vfs::FolderVisitResult visit(vfs::File const& file) override {
        static_cast<void>(file.getAttributes());
        ++files_;
        return vfs::FolderVisitResult::Continue;
    }
    vfs::FolderVisitResult visitBefore(vfs::Folder const&) override {
        ++folders_;
        return vfs::FolderVisitResult::Continue;
    }
    void require(std::size_t folders, std::size_t files) const {
        if (folders_ != folders + 1 || files_ != files) {
            throw std::runtime_error("a walk saw " + std::to_string(folders_) + " folders and " +
                                     std::to_string(files_) + " files");
        }
    }

  private:
    std::atomic<std::size_t> folders_{0};
    std::atomic<std::size_t> files_{0};
};

/// A tree in memory, behind a provider that takes a millisecond for every call. The steps of a
/// cursor, which come from what a listing has fetched, take nothing.
vfs::Folder makeSlowTree(std::size_t folders, std::size_t filesInEach) {
    auto const store = std::make_shared<provider::memory::MemoryProvider>();
    provider::StorageIRI const root(u"mem:/");
    for (std::size_t i = 0; i < folders; ++i) {
        provider::StorageIRI const folder(root,
                                          fl::i18n::to_ustring("folder-" + std::to_string(i)));
        store->createFolder(folder);
        for (std::size_t j = 0; j < filesInEach; ++j) {
            store->createFile(
                provider::StorageIRI(folder, fl::i18n::to_ustring("file-" + std::to_string(j))));
        }
    }
    using conformance::Operation;
    auto operations = conformance::CallDelayer::allOperations();
    for (Operation const step : {Operation::HasNext, Operation::Advance, Operation::CurrentEntry,
                                 Operation::CloneIterator}) {
        operations.erase(step);
    }
    return vfs::Folder(provider::StorageItem(conformance::decorate<conformance::CallDelayer>(
                                                 store, std::chrono::milliseconds(1), operations),
                                             root),
                       vfs::StorageSystemReference(std::weak_ptr<vfs::StorageSystem>()));
}

void holdOver(std::string const& title, std::size_t folders, std::size_t filesInEach) {
    vfs::Folder const root = makeSlowTree(folders, filesInEach);
    std::size_t const files = folders * filesInEach;
    auto const visiting = [&](auto walk) {
        return [=] {
            Asker asker;
            walk(root, asker);
            asker.require(folders, files);
        };
    };
    // The scheduler of oneTBB has as many threads as there are processors unless it is told two
    // things: that there may be more at all, and that there may be more here.
    tbb::global_control const allowed(tbb::global_control::max_allowed_parallelism, threads);
    tbb::task_arena arena(static_cast<int>(threads));
    hold({title,
          "ms",
          1e-3,
          5,
          {
              {"walkFolder",
               visiting([](auto const& folder, auto& asker) { vfs::walkFolder(folder, asker); })},
              {"walkFolderParallel, 16 threads",
               visiting([&arena](auto const& folder, auto& asker) {
                   arena.execute([&] { vfs::walkFolderParallel(folder, asker); });
               }),
               {{1.0 / 8, "walkFolder", Time::Elapsed}}},
          }});
}

} // namespace

void holdSlowStorage(Workplace const&) {
    holdOver("1 ms a call, 900 files in 30 folders, each file asked about", 30, 30);
    holdOver("1 ms a call, 1,000 empty folders", 1000, 0);
}

} // namespace bench
