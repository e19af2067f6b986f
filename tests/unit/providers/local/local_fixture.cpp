#include "local_fixture.hpp"

#include <foundation/storage/provider/local/local_factory.hpp>
#include <foundation/storage/provider/local_path.hpp>

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

namespace foundation::storage::provider::local::test {

namespace {

void check(bool done, std::string const& what) {
    if (!done) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

} // namespace

TemporaryFolder::TemporaryFolder() : TemporaryFolder(std::filesystem::temp_directory_path()) {}

TemporaryFolder::TemporaryFolder(std::string const& parent) {
    path_ = std::filesystem::canonical(parent).string() + "/local-provider-XXXXXX";
    check(::mkdtemp(path_.data()) != nullptr, path_);
    check(::chmod(path_.c_str(), 0777) == 0, path_); // children of other users work in it
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

LocalProviderTest::LocalProviderTest(LocalOptions const& options)
    : provider_(buildLocalProvider(options)) {}

std::string LocalProviderTest::path(std::string_view name) const {
    return name.empty() ? folder_.path() : folder_.path() + '/' + std::string(name);
}

StorageIRI LocalProviderTest::at(std::string_view name) const {
    return fromLocalPath(path(name));
}

void LocalProviderTest::makeFile(std::string_view name, std::string_view content,
                                 mode_t mode) const {
    std::ofstream file(path(name), std::ios::binary);
    file << content;
    file.close();
    check(file.good() && ::chmod(path(name).c_str(), mode) == 0, path(name));
}

void LocalProviderTest::makeFolder(std::string_view name, mode_t mode) const {
    check(::mkdir(path(name).c_str(), 0755) == 0 && ::chmod(path(name).c_str(), mode) == 0,
          path(name));
}

void LocalProviderTest::makeLink(std::string_view name, std::string const& target) const {
    check(::symlink(target.c_str(), path(name).c_str()) == 0, path(name));
}

void LocalProviderTest::makeFifo(std::string_view name) const {
    check(::mkfifo(path(name).c_str(), 0644) == 0, path(name));
}

void LocalProviderTest::setTimes(std::string_view name, timespec accessed,
                                 timespec modified) const {
    timespec const times[] = {accessed, modified};
    check(::utimensat(AT_FDCWD, path(name).c_str(), times, AT_SYMLINK_NOFOLLOW) == 0, path(name));
}

std::string LocalProviderTest::content(std::string_view name) const {
    std::ifstream file(path(name), std::ios::binary);
    check(file.is_open(), path(name));
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return std::move(bytes).str();
}

bool LocalProviderTest::isThere(std::string_view name) const {
    struct stat item {};
    return ::lstat(path(name).c_str(), &item) == 0;
}

struct stat LocalProviderTest::status(std::string_view name) const {
    struct stat item {};
    check(::lstat(path(name).c_str(), &item) == 0, path(name));
    return item;
}

std::string LocalProviderTest::target(std::string_view link) const {
    return std::filesystem::read_symlink(path(link)).string();
}

std::vector<std::string> LocalProviderTest::names(std::string_view name) const {
    std::vector<std::string> result;
    for (auto const& entry : std::filesystem::directory_iterator(path(name))) {
        result.push_back(entry.path().filename().string());
    }
    std::sort(result.begin(), result.end());
    return result;
}

CopyStatus LocalProviderTest::copy(std::string_view from, std::string_view to,
                                   ReplacementPolicy policy, CopyProgress progress) const {
    CopyFileOptions options;
    options.policy = policy;
    options.progress = std::move(progress);
    return provider_->copyFile(at(from), item(to), options);
}

std::optional<Refusal> refusalOf(std::function<void()> const& call) {
    try {
        call();
    } catch (Exception const& e) {
        return Refusal{e.getErrorCode(), e.getStorageIRI()};
    }
    return std::nullopt;
}

::testing::AssertionResult isRefused(std::function<void()> const& call, ErrorCode code,
                                     StorageIRI const& location) {
    std::optional<Refusal> const refusal = refusalOf(call);
    if (!refusal) {
        return ::testing::AssertionFailure() << "not refused";
    }
    if (refusal->code != code || refusal->location != location) {
        return ::testing::AssertionFailure()
               << "refused with " << refusal->code << " about " << refusal->location;
    }
    return ::testing::AssertionSuccess();
}

std::string readAll(ByteStream& stream) {
    std::string result;
    char buffer[4096];
    for (long got = 0; (got = stream.read(buffer, sizeof buffer)) > 0;) {
        result.append(buffer, static_cast<std::size_t>(got));
    }
    return result;
}

void writeAll(ByteStream& stream, std::string_view bytes) {
    auto const size = static_cast<long>(bytes.size());
    if (stream.write(bytes.data(), size) != size) {
        throw std::logic_error("a write is complete, or it throws");
    }
}

std::size_t openDescriptors() {
    auto const entries = std::filesystem::directory_iterator("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

} // namespace foundation::storage::provider::local::test
