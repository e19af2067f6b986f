#pragma once

#include <foundation/storage/vfs/resources/folder.hpp>
#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>

#include "fake_cursor.hpp"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace vfs_test {

using Log = std::vector<std::string>;
using provider::ReplacementPolicy;

inline constexpr ReplacementPolicy everyPolicy[] = {
    ReplacementPolicy::FailIfExists, ReplacementPolicy::ReplaceExisting,
    ReplacementPolicy::ReplaceReadOnly, ReplacementPolicy::ReplaceAndDeferDenied,
    ReplacementPolicy::KeepExisting};

/// Two schemes with a fake provider each. mem:/s holds the file a, the folder S of the file b, and
/// the file c; elsewhere exists what a test says, and what was made or copied since.
class CopiedTree : public testing::Test {
  protected:
    CopiedTree() {
        tree.add(u"mem:/s", {file(u"a"), folder(u"S"), file(u"c")});
        tree.add(u"mem:/s/S", {file(u"b")});
        for (auto const& fake : {mem, far}) {
            fake->onFolderExists = [this](StorageIRI const& at) { return folders.contains(at); };
            fake->onFileExists = [this](StorageIRI const& at) { return files.contains(at); };
            fake->onCreateFolder = [this](StorageIRI const& at) { make(at); };
            fake->onCopyFile = [this](StorageIRI const&, provider::StorageItem const& to,
                                      provider::CopyFileOptions const&) {
                failWhereTold("copyFile", to.getLocation());
                files.insert(to.getLocation());
                return provider::CopyStatus::CopiedWithTimes;
            };
            fake->onRemoveFile = [this](StorageIRI const& at) { failWhereTold("removeFile", at); };
            fake->onRemoveFolder = [this](StorageIRI const& at) {
                failWhereTold("removeFolder", at);
                folders.erase(at);
            };
            fake->onGetFolderAttributes = [](StorageIRI const& at) {
                provider::AttributeValues made;
                made.lastModified.seconds = at == StorageIRI(u"mem:/s") ? 100 : 200;
                return provider::FolderAttributes(made);
            };
            fake->onSetLastModified = [](StorageIRI const&, auto const&) {};
            fake->onSetWritable = [](StorageIRI const&, bool) {};
        }
    }

    vfs::Folder at(char16_t const* text) const {
        return vfs::Folder(vfs::AbsoluteIRI(text), reference);
    }
    vfs::Folder source() const { return at(u"mem:/s"); }

    /// Lets a call fail with a provider's code, each time that it is made: "copyFile mem:/d/a".
    void failOn(std::string const& call, std::uint32_t code) { codes[call] = code; }

    /// What mem was asked, but for what belongs to finding out about folders and to listing.
    Log changes() const {
        Log left = mem->log();
        std::erase_if(left, [](std::string const& call) {
            return call.starts_with("folderExists") || call.starts_with("fileExists") ||
                   call.starts_with("getFolderAttributes") || call.starts_with("listAll") ||
                   call.starts_with("hasFeature");
        });
        return left;
    }

    std::shared_ptr<FakeProvider> mem = std::make_shared<FakeProvider>();
    std::shared_ptr<FakeProvider> far = std::make_shared<FakeProvider>();
    FakeTree tree{*mem};
    std::set<StorageIRI> folders{StorageIRI(u"mem:/s")};
    std::set<StorageIRI> files;
    std::map<std::string, std::uint32_t> codes;

  private:
    void make(StorageIRI const& location) {
        failWhereTold("createFolder", location);
        folders.insert(location);
    }
    void failWhereTold(std::string const& operation, StorageIRI const& location) const {
        auto const found =
            codes.find(operation + ' ' + fl::i18n::toDisplayString(location.toString()));
        if (found != codes.end()) {
            fail(found->second, location);
        }
    }
    std::shared_ptr<vfs::PluggableStorageSystem> makeSystem() const {
        auto made = std::make_shared<vfs::PluggableStorageSystem>(nullptr);
        made->registerPhysicalProvider("mem", [this] { return mem; });
        made->registerPhysicalProvider("far", [this] { return far; });
        return made;
    }

    std::shared_ptr<vfs::PluggableStorageSystem> system = makeSystem();
    vfs::StorageSystemReference reference{std::weak_ptr<vfs::StorageSystem>(system)};
};

/// The location that the vfs::Exception names which an operation throws.
template<class Operation>
vfs::AbsoluteIRI locationNamedBy(Operation operation) {
    try {
        operation();
    } catch (vfs::Exception const& e) {
        return e.getLocation();
    }
    throw std::logic_error("nothing was thrown");
}

} // namespace vfs_test
