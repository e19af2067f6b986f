#include "listing_peers.hpp"

#include "contest.hpp"
#include "program.hpp"

#include <cstdint>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fts.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace bench {

namespace {

/// Keeps the compiler from leaving out work whose result nobody uses.
std::uint64_t volatile seen;

class CallWalk {
  public:
    CallWalk(Reach reach, Facts facts) : reach_(reach), facts_(facts) {}

    std::size_t count(int parent, char const* name) {
        int const folder = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (folder < 0) {
            fail(name);
        }
        std::vector<std::string> below;
        std::size_t entries = 0;
        for (;;) {
            ssize_t const got = ::getdents64(folder, buffer_, sizeof buffer_);
            if (got < 0) {
                fail(name);
            }
            if (got == 0) {
                break;
            }
            for (ssize_t at = 0; at < got;) {
                auto const* const entry = reinterpret_cast<dirent64 const*>(buffer_ + at);
                at += entry->d_reclen;
                std::string_view const text = entry->d_name;
                if (text == "." || text == "..") {
                    continue;
                }
                ++entries;
                if (facts_ == Facts::Attributes) {
                    struct statx item {};
                    if (::statx(folder, entry->d_name, AT_SYMLINK_NOFOLLOW,
                                STATX_BASIC_STATS | STATX_BTIME, &item) != 0) {
                        fail(entry->d_name);
                    }
                    seen = static_cast<std::uint64_t>(item.stx_mtime.tv_sec);
                }
                if (reach_ == Reach::Tree && entry->d_type == DT_DIR) {
                    below.emplace_back(text);
                }
            }
        }
        for (std::string const& child : below) {
            entries += count(folder, child.c_str());
        }
        ::close(folder);
        return entries;
    }

  private:
    Reach reach_;
    Facts facts_;
    alignas(dirent64) char buffer_[32U << 10];
};

template<class Iterator>
std::size_t countBy(std::filesystem::path const& path, Facts facts) {
    std::size_t entries = 0;
    for (std::filesystem::directory_entry const& entry : Iterator(path)) {
        ++entries;
        seen = entry.path().native().size();
        if (facts == Facts::Attributes) {
            struct statx item {};
            if (::statx(AT_FDCWD, entry.path().c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS,
                        &item) != 0) {
                fail(entry.path().string());
            }
            seen = static_cast<std::uint64_t>(item.stx_mtime.tv_sec);
        }
    }
    return entries;
}

} // namespace

std::size_t countByCalls(std::filesystem::path const& path, Reach reach, Facts facts) {
    return CallWalk(reach, facts).count(AT_FDCWD, path.c_str());
}

std::size_t countByStd(std::filesystem::path const& path, Reach reach, Facts facts) {
    return reach == Reach::Tree
               ? countBy<std::filesystem::recursive_directory_iterator>(path, facts)
               : countBy<std::filesystem::directory_iterator>(path, facts);
}

std::size_t countByFts(std::filesystem::path const& path, Facts facts) {
    std::string root = path.string();
    char* const roots[] = {root.data(), nullptr};
    FTS* const tree =
        ::fts_open(roots, FTS_PHYSICAL | (facts == Facts::Names ? FTS_NOSTAT : 0), nullptr);
    if (tree == nullptr) {
        fail(root);
    }
    std::size_t entries = 0;
    while (FTSENT const* const entry = ::fts_read(tree)) {
        if (entry->fts_info != FTS_DP && entry->fts_level > 0) {
            ++entries;
            seen = entry->fts_namelen;
        }
    }
    ::fts_close(tree);
    return entries;
}

void runFind(std::filesystem::path const& path, Facts facts) {
    runProgram({"find", path.string(), "-mindepth", "1", "-printf",
                facts == Facts::Names ? "%P\\0" : "%P %s %T@\\0"});
}

} // namespace bench
