#pragma once

#include "call_faults.hpp"

#include <foundation/storage/vfs/vfs.hpp>

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace fault_sweep {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;

/// Where a scenario takes place: a folder, and a second one that may be on another file system, and
/// how to reach what is in them. `here/x` lies in the first, `there/x` in the second.
class Place {
  public:
    Place(std::string here, std::string there, vfs::StorageSystemReference system);

    std::string path(std::string_view name) const;
    provider::StorageIRI location(std::string_view name) const;
    provider::StorageItem item(std::string_view name) const;
    vfs::File file(std::string_view name) const;
    vfs::Folder folder(std::string_view name) const;
    vfs::StorageSystemReference const& system() const noexcept { return system_; }

    std::string const& here() const noexcept { return here_; }
    std::string const& there() const noexcept { return there_; }

    /// In nanoseconds.
    static constexpr std::int64_t timeLongPast = 1'000'000'000'123'456'789;

    /// Make what a scenario begins with, without the system; files have the time long past.
    void makeFile(std::string_view name, std::string const& content, mode_t mode = 0644) const;
    void makeFolder(std::string_view name) const;
    void makeLink(std::string_view name, std::string const& target) const;

  private:
    std::string here_;
    std::string there_;
    vfs::StorageSystemReference system_;
};

/// What an operation said of itself where it did not throw.
enum class Told { Done, DoneWithTimes, Failed };

/// An operation to be done under faults.
struct Scenario {
    std::string name;
    std::function<void(Place const&)> prepare;
    std::function<Told(Place const&)> run;

    /// Paths that are written in place: after a failure anything may be in them.
    std::set<std::string> inPlace = {};
    /// What is there before has to be under one of these pairs of names afterwards, complete: the
    /// first one before, the other perhaps after it.
    std::vector<std::pair<std::string, std::string>> moved = {};
    /// Without these calls.
    std::vector<MissingCall> missing = {};
    /// Empty folders that are removed and made anew, and may be gone after a failure.
    std::set<std::string> madeAnew = {};
    /// What was said of single items and is not so; empty for nothing.
    std::function<std::string(Place const&)> lies = {};
};

/// Bytes of which no part is like another.
std::string contentOfSize(std::size_t size, unsigned seed);

/// Copies of a scenario in which the kernel has less to offer; `calls` are what it then lacks.
std::vector<Scenario> without(std::string const& what, std::vector<MissingCall> const& calls,
                              std::vector<Scenario> const& scenarios);

void addItemScenarios(std::vector<Scenario>& scenarios);
void addCopyScenarios(std::vector<Scenario>& scenarios);
void addMoveScenarios(std::vector<Scenario>& scenarios);
void addStreamScenarios(std::vector<Scenario>& scenarios);
void addTreeScenarios(std::vector<Scenario>& scenarios);

/// Everything that changes something, on the local disk.
std::vector<Scenario> allScenarios();

} // namespace fault_sweep
