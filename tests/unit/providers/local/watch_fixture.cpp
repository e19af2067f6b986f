#include "watch_fixture.hpp"

#include <foundation/storage/provider/local_path.hpp>

#include <boost/property_tree/ptree.hpp>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>

namespace foundation::storage::provider::local::test {

namespace {

constexpr std::chrono::seconds tooLong{20};
constexpr std::string_view marker = ".marker-";

std::string below(std::string const& base, std::string const& path) {
    return path == base ? "" : path.starts_with(base + '/') ? path.substr(base.size() + 1) : path;
}

bool isMarker(Change const& change) {
    return change.entry.find(marker) != std::string::npos;
}

} // namespace

ChangeCallback ChangeLog::callback() {
    return [this](Kind const& kind, StorageIRI const& watched, StorageIRI const& entry,
                  EntryType const& type, boost::property_tree::ptree extended) {
        auto const other = [&](char const* key) {
            auto const text = extended.get_optional<std::string>(key);
            return text ? below(base_, toLocalPath(StorageIRI(
                                           fl::i18n::ustring(text->begin(), text->end()))))
                        : std::string();
        };
        std::string const text(watched.toString().begin(), watched.toString().end());
        add({kind, below(base_, toLocalPath(watched)), below(base_, toLocalPath(entry)), type,
             other("movedTo"), other("movedFrom"), text});
    };
}

/// Takes over what a change tells: what is in a folder goes and moves with it.
void ChangeLog::takeOver(Change const& change) {
    if (change.kind == Kind::Overflow) {
        view_ = look_("w");
        hasLookedLate_ = true;
    } else if (change.kind == Kind::Created) {
        view_[change.entry] = change.type;
        if (hasLookedLate_ && !change.movedFrom.empty() && change.type == EntryType::Folder) {
            // It may have moved while its old place was looked at, or was yet to be.
            view_.merge(look_(change.entry));
        }
    } else if (change.kind == Kind::Removed) {
        auto const first = view_.lower_bound(change.entry + '/');
        auto const last = view_.lower_bound(change.entry + '0'); // the character behind '/'
        ChangeView moved;
        for (auto item = first; item != last && !change.movedTo.empty() && !hasLookedLate_;
             ++item) {
            moved[change.movedTo + item->first.substr(change.entry.size())] = item->second;
        }
        view_.erase(first, last);
        view_.erase(change.entry);
        view_.merge(moved);
    }
}

void ChangeLog::keepView(std::function<ChangeView(std::string)> look) {
    look_ = std::move(look);
    view_ = look_("w");
}

ChangeView ChangeLog::view() const {
    std::lock_guard const lock(mutex_);
    return view_;
}

ChangeLog::~ChangeLog() {
    std::lock_guard const lock(mutex_); // behind the last call, also to a sanitizer
}

void ChangeLog::add(Change change) {
    std::lock_guard const lock(mutex_);
    if (look_ != nullptr) {
        takeOver(change);
    }
    changes_.push_back(std::move(change));
    changed_.notify_all();
}

bool ChangeLog::waitFor(std::function<bool(std::vector<Change> const&)> const& condition) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, tooLong, [&] { return condition(changes_); });
}

bool ChangeLog::waitUntil(std::function<bool()> const& condition) const {
    auto const end = std::chrono::steady_clock::now() + tooLong;
    for (;;) {
        std::size_t const seen = changes().size();
        if (condition()) {
            return true;
        }
        std::unique_lock lock(mutex_);
        if (!changed_.wait_until(lock, end, [&] { return changes_.size() != seen; })) {
            return false;
        }
    }
}

bool ChangeLog::waitForAny(std::function<bool(Change const&)> const& condition) const {
    std::size_t seen = 0; // each change is looked at once, however many come
    return waitFor([&](auto const& changes) {
        auto const begin = changes.begin() + static_cast<std::ptrdiff_t>(seen);
        seen = changes.size();
        return std::any_of(begin, changes.end(), condition);
    });
}

bool ChangeLog::waitForEntry(Kind kind, std::string_view entry) const {
    return waitForAny(
        [&](Change const& change) { return change.kind == kind && change.entry == entry; });
}

bool ChangeLog::waitForOverflow() const {
    return waitForAny([](Change const& change) { return change.kind == Kind::Overflow; });
}

std::vector<Change> ChangeLog::changes() const {
    std::lock_guard const lock(mutex_);
    return changes_;
}

std::vector<std::string> ChangeLog::lines() const {
    std::vector<std::string> result;
    for (Change const& change : changes()) {
        if (!isMarker(change)) {
            result.push_back(lineOf(change));
        }
    }
    return result;
}

void ChangeLog::clear() {
    std::lock_guard const lock(mutex_);
    changes_.clear();
}

std::string lineOf(Change const& change) {
    constexpr char const* signs[] = {"+", "*", "~", "-", "!"};
    std::string line = signs[static_cast<unsigned>(change.kind)];
    line += change.type == EntryType::File ? " file " : " folder ";
    line += change.entry;
    line += change.movedTo.empty() ? "" : " -> " + change.movedTo;
    line += change.movedFrom.empty() ? "" : " <- " + change.movedFrom;
    return line;
}

LocalWatchTest::LocalWatchTest(LocalOptions const& options)
    : LocalProviderTest(options),
      log_(folder_.path()) {
    makeFolder("w");
}

void LocalWatchTest::TearDown() {
    provider_.reset();
    EXPECT_TRUE(noWatchThreadIsLeft());
}

void LocalWatchTest::publish(std::string_view folder, ChangeKinds const& kinds) {
    provider_->publishFolderEvents(at(folder), log_.callback(), kinds,
                                   RecursiveFileWatching::NonRecursive);
}

void LocalWatchTest::publishTree(std::string_view folder, ChangeKinds const& kinds) {
    provider_->publishFolderEvents(at(folder), log_.callback(), kinds,
                                   RecursiveFileWatching::Recursive);
}

void LocalWatchTest::publishFile(std::string_view file, ChangeKinds const& kinds) {
    provider_->publishFileEvents(at(file), log_.callback(), kinds);
}

void LocalWatchTest::settle(std::string_view folder) {
    for (bool isReported = false; !isReported;) {
        std::string const name =
            std::string(folder) + '/' + std::string(marker) + std::to_string(++markers_);
        std::size_t seen = log_.changes().size();
        bool isLost = false;
        makeFile(name);
        ASSERT_TRUE(log_.waitFor([&](auto const& changes) {
            for (; seen < changes.size() && !isReported && !isLost; ++seen) {
                Change const& change = changes[seen];
                isReported = change.kind == Kind::Created && change.entry == name;
                isLost = change.kind == Kind::Overflow; // and the marker with it, perhaps
            }
            return isReported || isLost;
        })) << name;
    }
}

std::vector<std::string> LocalWatchTest::reports(std::string_view folder) {
    settle(folder);
    return log_.lines();
}

ChangeView LocalWatchTest::disk(std::string const& top) const {
    ChangeView items;
    std::vector<std::string> folders{top};
    while (!folders.empty()) {
        std::string const folder = folders.back();
        folders.pop_back();
        std::error_code error;
        std::filesystem::directory_iterator entry(path(folder), error);
        for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
            std::string const name = folder + '/' + entry->path().filename().string();
            bool const isFolder =
                entry->symlink_status(error).type() == std::filesystem::file_type::directory;
            items[name] = isFolder ? EntryType::Folder : EntryType::File;
            if (isFolder) {
                folders.push_back(name);
            }
            error.clear();
        }
    }
    return items;
}

void LocalWatchTest::hold() {
    makeFolder("gate");
    std::promise<void> entered;
    provider_->publishFolderEvents(
        at("gate"),
        [this, &entered, first = std::make_shared<bool>(true)](Kind const&, StorageIRI const&,
                                                               StorageIRI const&, EntryType const&,
                                                               boost::property_tree::ptree) {
            if (std::exchange(*first, false)) {
                entered.set_value();
                released_.get_future().wait();
            }
        },
        {Kind::Created}, RecursiveFileWatching::NonRecursive);
    makeFile("gate/first");
    entered.get_future().wait();
}

std::vector<std::string> LocalWatchTest::deafFolders(std::string const& top) {
    // What was renamed just now would be told of under the name that it had.
    settle(top);
    std::string const probe = '/' + std::string(marker) + "probe-" + std::to_string(++markers_);
    std::set<std::string> awaited{top};
    for (auto const& [name, type] : disk(top)) {
        if (type == EntryType::Folder) {
            awaited.insert(name);
        }
    }
    std::vector<std::string> const folders(awaited.begin(), awaited.end());
    for (auto const& folder : folders) {
        makeFile(folder + probe);
    }
    std::size_t seen = 0;
    log_.waitFor([&](auto const& changes) {
        for (; seen < changes.size(); ++seen) {
            Change const& change = changes[seen];
            if (change.kind == Kind::Created && change.entry.ends_with(probe)) {
                awaited.erase(change.entry.substr(0, change.entry.size() - probe.size()));
            }
        }
        return awaited.empty();
    });
    for (auto const& folder : folders) {
        remove(folder + probe);
    }
    return {awaited.begin(), awaited.end()};
}

void LocalWatchTest::remove(std::string_view name) const {
    std::filesystem::remove_all(path(name));
}

void LocalWatchTest::rename(std::string_view from, std::string_view to) const {
    if (std::rename(path(from).c_str(), path(to).c_str()) != 0) {
        throw std::system_error(errno, std::generic_category(), std::string(from));
    }
}

std::set<std::string> LocalWatchTest::watchThreads() {
    std::set<std::string> result;
    for (auto const& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream file(task.path() / "comm");
        std::string name;
        if (std::getline(file, name) && name == "vfs-watch") {
            result.insert(task.path().filename().string());
        }
    }
    return result;
}

bool LocalWatchTest::noWatchThreadIsLeft() {
    auto const end = std::chrono::steady_clock::now() + tooLong;
    while (!watchThreads().empty()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

} // namespace foundation::storage::provider::local::test
