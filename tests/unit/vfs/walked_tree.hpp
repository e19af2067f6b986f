#pragma once

#include <foundation/storage/vfs/resources/folder.hpp>
#include <foundation/storage/vfs/walking/walk_folder.hpp>

#include "fake_cursor.hpp"
#include "recording_visitor.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>

namespace vfs_test {

using vfs::FolderVisitResult;

/// One of the two walks, for expectations that hold for both.
struct Walk {
    char const* name;
    FolderVisitResult (*run)(vfs::Folder const&, vfs::FolderVisitor&);
};
inline void PrintTo(Walk const& walk, std::ostream* out) {
    *out << walk.name;
}
inline FolderVisitResult walkInParallel(vfs::Folder const& folder, vfs::FolderVisitor& visitor) {
    return vfs::walkFolderParallel(folder, visitor);
}
inline constexpr Walk serialWalk{"Serial", &vfs::walkFolder};
inline constexpr Walk parallelWalk{"Parallel", &walkInParallel};

/// mem:/r, which holds the file a, the folder S of the file b, and the file c.
class WalkedTree : public testing::Test {
  protected:
    WalkedTree() {
        root = &tree.add(u"mem:/r", {file(u"a"), folder(u"S"), file(u"c")});
        inner = &tree.add(u"mem:/r/S", {file(u"b")});
    }

    vfs::Folder at(char16_t const* text = u"mem:/r") const {
        return vfs::Folder(vfs::AbsoluteIRI(text), storage.reference);
    }
    /// Lets the listing of a folder fail when it is asked for.
    void failToList(char16_t const* text, std::uint32_t code) {
        auto const listing = storage.fake->onList;
        storage.fake->onList = [listing, failing = StorageIRI(text),
                                code](auto const& operation, StorageIRI const& location,
                                      fl::i18n::ustring const& filter) {
            if (location == failing) {
                fail(code, location);
            }
            return listing(operation, location, filter);
        };
    }

    FakeStorage storage;
    FakeTree tree{*storage.fake};
    CursorScript* root = nullptr;
    CursorScript* inner = nullptr;
    RecordingVisitor visitor;
};

inline vfs::Exception failure(vfs::ErrorCode code) {
    return vfs::Exception(code, vfs::AbsoluteIRI(u"mem:/named"));
}
/// Throws such a failure when it is called.
inline auto failing(vfs::ErrorCode code) {
    return [code]() -> FolderVisitResult { throw failure(code); };
}

} // namespace vfs_test
