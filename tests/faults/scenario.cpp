#include "scenario.hpp"

#include <foundation/storage/provider/local_path.hpp>

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <sys/stat.h>

namespace fault_sweep {

namespace fs = std::filesystem;

Place::Place(std::string here, std::string there, vfs::StorageSystemReference system)
    : here_(std::move(here)),
      there_(std::move(there)),
      system_(std::move(system)) {}

std::string Place::path(std::string_view name) const {
    if (name.starts_with("here/")) {
        return here_ + std::string(name.substr(4));
    }
    if (name.starts_with("there/")) {
        return there_ + std::string(name.substr(5));
    }
    throw std::logic_error("no place has the path " + std::string(name));
}

provider::StorageIRI Place::location(std::string_view name) const {
    return provider::fromLocalPath(path(name));
}

provider::StorageItem Place::item(std::string_view name) const {
    provider::StorageIRI const where = location(name);
    return {system_.buildProvider(where), where};
}

vfs::File Place::file(std::string_view name) const {
    return {vfs::AbsoluteIRI(location(name), true), system_};
}

vfs::Folder Place::folder(std::string_view name) const {
    return {vfs::AbsoluteIRI(location(name), true), system_};
}

namespace {

void age(std::string const& path) {
    constexpr std::int64_t second = 1'000'000'000;
    timespec const time{Place::timeLongPast / second, Place::timeLongPast % second};
    timespec const times[] = {time, time};
    if (::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0) {
        throw std::runtime_error("no time for " + path);
    }
}

} // namespace

void Place::makeFile(std::string_view name, std::string const& content, mode_t mode) const {
    std::string const where = path(name);
    std::ofstream out(where, std::ios_base::binary);
    out << content;
    out.close();
    if (!out || ::chmod(where.c_str(), mode) != 0) {
        throw std::runtime_error("no file at " + where);
    }
    age(where);
}

void Place::makeFolder(std::string_view name) const {
    fs::create_directory(path(name));
}

void Place::makeLink(std::string_view name, std::string const& target) const {
    fs::create_symlink(target, path(name));
    age(path(name));
}

std::string contentOfSize(std::size_t size, unsigned seed) {
    std::string content(size, '\0');
    std::uint64_t state = seed * 2654435761U + 1;
    for (char& byte : content) {
        state = state * 6364136223846793005U + 1442695040888963407U;
        byte = static_cast<char>(state >> 56);
    }
    return content;
}

std::vector<Scenario> without(std::string const& what, std::vector<MissingCall> const& calls,
                              std::vector<Scenario> const& scenarios) {
    std::vector<Scenario> result = scenarios;
    for (Scenario& scenario : result) {
        scenario.name += ", without " + what;
        scenario.missing.insert(scenario.missing.end(), calls.begin(), calls.end());
    }
    return result;
}

std::vector<Scenario> allScenarios() {
    std::vector<Scenario> scenarios;
    addItemScenarios(scenarios);
    addCopyScenarios(scenarios);
    addMoveScenarios(scenarios);
    addStreamScenarios(scenarios);
    addTreeScenarios(scenarios);
    return scenarios;
}

} // namespace fault_sweep
