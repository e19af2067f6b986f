#pragma once

#include <foundation/storage/vfs/listing/detail/lazy_value.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>

#include <utility>

namespace foundation::storage::vfs::detail {

/// What copies of a FileEntry, or of a FolderEntry, share.
template<class Handle, class Attributes>
struct EntryImpl {
    EntryImpl(Folder folder, ustring given)
        : handle(makeIn(std::move(folder))),
          name(std::move(given)),
          attributes(fetch()) {}
    EntryImpl(Folder folder, ustring given, Attributes const& delivered)
        : handle(makeIn(std::move(folder))),
          name(std::move(given)),
          attributes(delivered) {}
    explicit EntryImpl(Handle finished)
        : handle(std::move(finished)),
          name(handle.get().getName()),
          attributes(fetch()) {}

    LazyValue<Handle> const handle;
    ustring const name;
    LazyValue<Attributes> const attributes;

  private:
    // The producers point at this, which never moves. The folder is held by the first one alone,
    // and goes when the handle has been made.
    typename LazyValue<Handle>::Producer makeIn(Folder folder) const {
        return [this, parent = std::move(folder)] { return Handle(parent, name); };
    }
    typename LazyValue<Attributes>::Producer fetch() const {
        return [this] { return handle.get().getAttributes(); };
    }
};

} // namespace foundation::storage::vfs::detail
