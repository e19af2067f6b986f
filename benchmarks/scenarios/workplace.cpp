#include "workplace.hpp"

#include "contest.hpp"

#include <fl/filesystem/basic_path.hpp>
#include <fl/i18n/conversion.hpp>
#include <foundation/msg_svc/eventmgr/event_mgr.hpp>
#include <foundation/storage/provider/standard/standard_storage_system.hpp>
#include <foundation/storage/vfs/iri/absolute_iri.hpp>
#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>

#include <boost/make_shared.hpp>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <exception>
#include <stdlib.h>
#include <thread>

namespace bench {

namespace {

class TemporaryFolder {
  public:
    explicit TemporaryFolder(std::filesystem::path const& parent)
        : path_((std::filesystem::absolute(parent) / "bench-XXXXXX").string()) {
        if (::mkdtemp(path_.data()) == nullptr) {
            fail(path_);
        }
    }
    TemporaryFolder(TemporaryFolder const&) = delete;
    TemporaryFolder& operator=(TemporaryFolder const&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    std::string const& path() const { return path_; }

  private:
    std::string path_;
};

int usage(std::string const& program, std::span<Work const> works) {
    std::string names;
    for (Work const& work : works) {
        names += (names.empty() ? "" : "|") + std::string(work.name);
    }
    std::fprintf(stderr, "usage: %s [--runs N] [FOLDER [%s]]\n", program.c_str(), names.c_str());
    return 2;
}

void runIn(std::filesystem::path const& parent, std::string const& wanted, int runs,
           std::span<Work const> works) {
    namespace vfs = foundation::storage::vfs;
    TemporaryFolder const temporary(parent);
    foundation::storage::provider::standard::StandardOptions options;
    options.eventMgr = boost::make_shared<foundation::msg_svc::eventmgr::EventMgr>();
    auto const system = foundation::storage::provider::standard::makeStandardStorageSystem(options);
    vfs::StorageSystemReference const reference{std::weak_ptr<vfs::StorageSystem>(system)};
    vfs::AbsoluteIRI const location =
        vfs::toAbsoluteIRI(fl::i18n::to_ustring(temporary.path()), fl::filesystem::path());
    Workplace const place{temporary.path(), vfs::Folder(location, reference),
                          std::filesystem::read_symlink("/proc/self/exe").parent_path() / "vfs",
                          runs};
    for (Work const& work : works) {
        if (wanted.empty() || wanted == work.name) {
            work.hold(place);
        }
    }
}

/// 0 for what is no number of runs.
int runsIn(char const* text) {
    int runs = 0;
    char const* const end = text + std::strlen(text);
    auto const [rest, error] = std::from_chars(text, end, runs);
    return error == std::errc() && rest == end && runs > 0 ? runs : 0;
}

} // namespace

int runWorks(std::string const& program, int argc, char** argv, std::span<Work const> works) {
    int runs = 3;
    if (argc > 1 && std::strcmp(argv[1], "--runs") == 0) {
        runs = argc > 2 ? runsIn(argv[2]) : 0;
        if (runs == 0) {
            return usage(program, works);
        }
        argc -= 2;
        argv += 2;
    }
    std::string const wanted = argc > 2 ? argv[2] : "";
    bool const known = std::any_of(works.begin(), works.end(), [&](Work const& work) {
        return wanted.empty() || wanted == work.name;
    });
    if (argc > 3 || !known) {
        return usage(program, works);
    }
    try {
        // Until a process has had a second thread, its reference counts are not atomic. Hosts have
        // one.
        std::thread([] {}).join();
        runIn(argc > 1 ? argv[1] : ".", wanted, runs, works);
        return 0;
    } catch (std::exception const& failure) {
        std::fprintf(stderr, "%s: %s\n", program.c_str(), failure.what());
        return 1;
    }
}

} // namespace bench
