#pragma once

#include "memory_store.hpp"

#include <fl/i18n/conversion.hpp>

#include <boost/property_tree/ptree.hpp>
#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

namespace memory_test {

using foundation::storage::events::EntryType;
using foundation::storage::events::Kind;

inline ChangeKinds const everything{Kind::Created, Kind::Modified, Kind::AttributesChanged,
                                    Kind::Removed};

inline std::string nameOf(Kind kind) {
    switch (kind) {
    case Kind::Created:
        return "created";
    case Kind::Modified:
        return "modified";
    case Kind::AttributesChanged:
        return "attributes";
    case Kind::Removed:
        return "removed";
    case Kind::Overflow:
        break;
    }
    return "overflow";
}

inline std::string text(ustring const& path) {
    return fl::i18n::toDisplayString(path);
}

/// One report as a line: `created /w/a`, with a slash behind a folder, ` to ` or ` from ` and the
/// other end of a move, and ` in ` and the watched location where that is not the item's folder.
inline std::string line(Kind kind, StorageIRI const& watched, StorageIRI const& entry,
                        EntryType type, boost::property_tree::ptree const& extended) {
    std::string line = nameOf(kind) + ' ' + text(entry.getPath());
    line += type == EntryType::Folder && !line.ends_with('/') ? "/" : "";
    for (auto const& [key, value] : extended) {
        line += (key == "movedTo"     ? " to "
                 : key == "movedFrom" ? " from "
                                      : " ?" + key + ' ') +
                value.data().substr(std::string("mem:").size());
    }
    bool const isUsual = entry == watched || entry.getParent() == watched;
    return isUsual ? line : line + " in " + text(watched.getPath());
}

using Lines = std::vector<std::string>;

/// Writes down what is reported. Copies write to one list.
class Log {
  public:
    ChangeCallback callback() const {
        return [state = state_](Kind kind, StorageIRI const& watched, StorageIRI const& entry,
                                EntryType type, boost::property_tree::ptree const& extended) {
            std::lock_guard const lock(state->mutex);
            state->lines.push_back(line(kind, watched, entry, type, extended));
            state->watched.push_back(watched.toString());
        };
    }
    /// What came since the last time.
    Lines take() const {
        std::lock_guard const lock(state_->mutex);
        state_->watched.clear();
        return std::exchange(state_->lines, {});
    }
    std::vector<ustring> watched() const {
        std::lock_guard const lock(state_->mutex);
        return state_->watched;
    }

  private:
    struct State {
        std::mutex mutex;
        Lines lines;
        std::vector<ustring> watched;
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();
};

inline Log watchFile(Store const& store, ustring const& path,
                     ChangeKinds const& kinds = everything) {
    Log log;
    store->publishFileEvents(at(path), log.callback(), kinds);
    return log;
}

inline Log watchFolder(Store const& store, ustring const& path,
                       ChangeKinds const& kinds = everything) {
    Log log;
    store->publishFolderEvents(at(path), log.callback(), kinds,
                               RecursiveFileWatching::NonRecursive);
    return log;
}

inline Log watchTree(Store const& store, ustring const& path,
                     ChangeKinds const& kinds = everything) {
    Log log;
    store->publishFolderEvents(at(path), log.callback(), kinds, RecursiveFileWatching::Recursive);
    return log;
}

} // namespace memory_test
