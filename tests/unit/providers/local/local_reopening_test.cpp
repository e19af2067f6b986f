#include "allocation_failure.hpp"
#include "child_process.hpp"
#include "listed_entries.hpp"
#include "local_fixture.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace foundation::storage::provider::local::test {
namespace {

/// Listings whose clones are behind, and have to open their folder again.
class LocalReopening : public LocalProviderTest {
  protected:
    Cursor flat(std::string_view name) const { return provider_->listAllNamesOnly(at(name), u""); }
    Cursor tree(std::string_view name) const {
        return provider_->listAllRecursiveNamesOnly(at(name), u"");
    }

    /// A folder of several chunks.
    void makeLong(std::string const& folder, std::string const& prefix = "own ") const {
        makeFolder(folder);
        fill(folder, prefix);
    }
    void fill(std::string const& folder, std::string const& prefix) const {
        for (int i = 0; i < many; ++i) {
            std::string const file =
                path(folder + "/" + prefix + std::string(160, 'n') + std::to_string(i));
            ASSERT_EQ(::mknod(file.c_str(), S_IFREG | 0644, 0), 0);
        }
    }
    static constexpr int many = 1200;

    /// Makes a folder anew until it has the number `inode`. False where that does not happen.
    bool makeWithNumber(std::string const& folder, ino_t inode) const {
        bool made = false;
        int spares = 0;
        while (!made && spares < 200) {
            makeFolder(folder);
            made = status(folder).st_ino == inode;
            if (!made) { // keeps its number, so that another is next
                ++spares;
                std::filesystem::rename(path(folder), path("spare" + std::to_string(spares)));
            }
        }
        for (; spares != 0; --spares) {
            std::filesystem::remove(path("spare" + std::to_string(spares)));
        }
        return made;
    }
};

constexpr char const* numbersAreNew =
    "this file system does not give the number of a removed folder to another one";

constexpr int handleToCompare = 0x200; // AT_HANDLE_FID

bool hasHandles(std::string const& folder) {
    alignas(file_handle) char space[sizeof(file_handle) + MAX_HANDLE_SZ];
    auto* const handle = reinterpret_cast<file_handle*>(space);
    int mount = 0;
    for (int const flags : {handleToCompare, 0}) {
        handle->handle_bytes = MAX_HANDLE_SZ;
        if (::name_to_handle_at(AT_FDCWD, folder.c_str(), handle, &mount, flags) == 0) {
            return true;
        }
    }
    return false;
}

/// Goes on until an entry in `folder` is shown.
void goInto(IFolderEntryIterator& cursor, std::string const& folder) {
    do {
        cursor.advance();
    } while (!textOf(cursor.currentEntry()).starts_with(folder + "/") ||
             textOf(cursor.currentEntry()) == folder + "/");
}

bool anyHas(std::vector<std::string> const& entries, char const* part) {
    return std::any_of(entries.begin(), entries.end(),
                       [&](auto const& name) { return name.find(part) != std::string::npos; });
}

TEST_F(LocalReopening, AFolderWithTheNumberOfTheListedOneIsNotTakenForIt) {
    makeLong("many");
    Cursor const cursor = flat("many");
    Cursor const behind = clone(cursor);
    restOf(*cursor); // the descriptor is closed now
    ino_t const inode = status("many").st_ino;
    std::filesystem::remove_all(path("many"));
    if (!makeWithNumber("many", inode)) {
        GTEST_SKIP() << numbersAreNew;
    }
    fill("many", "foreign ");

    EXPECT_TRUE(isRefused([&] { restOf(*behind); }, ErrorCode::ResourceNotFound, at("many")));
}

TEST_F(LocalReopening, AFolderMadeAtOnceWithTheNumberOfOneBelowIsNotEntered) {
    if (!hasHandles(path(""))) {
        GTEST_SKIP() << "this file system has no handles, and its clock has steps";
    }
    bool happened = false;
    for (int round = 0; round < 30; ++round) {
        makeFolder("tree");
        makeFolder("tree/a");
        makeFolder("tree/a/x");
        Cursor cursor = tree("tree");
        goInto(*cursor, "a");
        Cursor const behind = clone(cursor);
        cursor.reset(); // a folder that is open keeps its number
        ino_t const inode = status("tree/a").st_ino;
        std::filesystem::remove_all(path("tree/a"));
        if (makeWithNumber("tree/a", inode)) {
            happened = true;
            makeFolder("tree/a/x");
            makeFile("tree/a/x/foreign");
            ASSERT_FALSE(anyHas(restOf(*behind), "foreign")) << round;
        }
        std::filesystem::remove_all(path("tree"));
    }
    if (!happened) {
        GTEST_SKIP() << numbersAreNew;
    }
}

TEST_F(LocalReopening, FoldersOfOneNumberAreToldByTheirAgeOrTheirHandle) {
    if (!hasHandles(path(""))) {
        GTEST_SKIP() << "this file system has no handles";
    }
    makeLong("many");
    makeLong("other", "foreign ");
    struct {
        char const* what;
        bool hasAge;
        std::vector<CallFault> faults;
        char const* outcome;
    } const systems[] = {
        {"age", true, {{SYS_name_to_handle_at, 0, 0, EOPNOTSUPP}}, "not found"},
        {"handle", false, {}, "not found"},
        {"handle of an older kernel",
         false,
         {{SYS_name_to_handle_at, 4, handleToCompare, EINVAL}},
         "not found"},
        {"neither", false, {{SYS_name_to_handle_at, 0, 0, EOPNOTSUPP}}, "foreign"},
    };
    for (auto const& [what, hasAge, faults, expected] : systems) {
        std::string const outcome = inChild([&, hasAge = hasAge, &faults = faults] {
            std::atomic<int> age = 1000;
            injectFaults(faults);
            interceptCalls(
                SYS_statx, 2, AT_EMPTY_PATH, [&](auto const* arguments) -> std::optional<long> {
                    auto* const item = reinterpret_cast<struct statx*>(arguments[4]);
                    long const result =
                        ::syscall(SYS_statx, arguments[0], "", arguments[2], arguments[3], item);
                    item->stx_ino = 1;
                    item->stx_mask &= ~STATX_BTIME;
                    item->stx_mask |= hasAge ? STATX_BTIME : 0;
                    item->stx_btime = {};
                    item->stx_btime.tv_sec = age;
                    return result < 0 ? -errno : result;
                });
            Cursor const cursor = flat("many");
            Cursor const behind = clone(cursor);
            Cursor const again = clone(cursor);
            restOf(*cursor);
            if (anyHas(restOf(*again), "foreign")) {
                return std::string("the folder itself is not known again");
            }
            std::filesystem::rename(path("many"), path("kept"));
            std::filesystem::rename(path("other"), path("many"));
            ++age;
            std::string result = "own";
            auto const refusal =
                refusalOf([&] { result = anyHas(restOf(*behind), "foreign") ? "foreign" : "own"; });
            std::filesystem::rename(path("many"), path("other"));
            std::filesystem::rename(path("kept"), path("many"));
            return refusal && refusal->code == ErrorCode::ResourceNotFound ? "not found" : result;
        });
        EXPECT_EQ(outcome, expected) << what;
    }
}

/// What a clone says that is in `a` below the listed folder, when that has changed: "code location"
/// and whether this ended the listing with the entry before still readable.
std::string afterwards(Cursor const& behind, StorageIRI const& listed) {
    std::string last = textOf(behind->currentEntry());
    auto const refusal = refusalOf([&] {
        while (behind->hasNext()) {
            behind->advance();
            last = textOf(behind->currentEntry());
        }
    });
    if (!refusal) {
        return "no failure";
    }
    std::string result = std::to_string(static_cast<int>(refusal->code));
    result += refusal->location == listed ? " of the listed folder" : " of another";
    result += textOf(behind->currentEntry()) == last ? "" : ", another entry";
    result += behind->hasNext() ? ", more" : ", end";
    try {
        behind->advance();
        result += ", advanced";
    } catch (std::logic_error const&) {
    }
    return result;
}

TEST_F(LocalReopening, AListedFolderThatIsMovedOrDeniedEndsTheTreeWithAFailure) {
    for (bool const reads : {true, false}) { // reads on in `a`, or enters a folder there
        makeFolder("above");
        makeFolder("above/tree");
        if (reads) {
            makeLong("above/tree/a");
        } else {
            makeFolder("above/tree/a");
        }
        for (char const* name : {"a/x", "a/y", "b", "c"}) {
            makeFolder(std::string("above/tree/") + name);
            makeFile(std::string("above/tree/") + name + "/file");
        }
        std::size_t const all = treeOnDisk(path("above/tree")).size();
        struct {
            char const* what;
            std::function<void()> change;
            std::function<void()> undo;
            char const* outcome;
        } const changes[] = {
            {"moved", [&] { std::filesystem::rename(path("above/tree"), path("moved")); },
             [&] { std::filesystem::rename(path("moved"), path("above/tree")); },
             "4 of the listed folder, end"},
            {"replaced",
             [&] {
                 std::filesystem::rename(path("above/tree"), path("moved"));
                 makeFolder("above/tree");
                 makeFolder("above/tree/a");
             },
             [&] {
                 std::filesystem::remove_all(path("above/tree"));
                 std::filesystem::rename(path("moved"), path("above/tree"));
             },
             "4 of the listed folder, end"},
            {"denied above", [&] { ::chmod(path("above").c_str(), 0); },
             [&] { ::chmod(path("above").c_str(), 0755); }, "2 of the listed folder, end"},
            {"denied", [&] { ::chmod(path("above/tree").c_str(), 0); },
             [&] { ::chmod(path("above/tree").c_str(), 0755); }, "2 of the listed folder, end"},
            {"denied below", [&] { ::chmod(path("above/tree/a").c_str(), 0); },
             [&] { ::chmod(path("above/tree/a").c_str(), 0755); }, "no failure"},
        };
        for (auto const& [what, change, undo, expected] : changes) {
            // The super-user is denied nothing, and makes the change while its child waits.
            std::string const outcome = inChild([&, &change = change] {
                int turns[2][2];
                if (::pipe(turns[0]) != 0 || ::pipe(turns[1]) != 0) {
                    return std::string("no pipe");
                }
                char turn = 0;
                pid_t const other = ::fork();
                if (other == 0) {
                    ::close(turns[0][1]);
                    if (::read(turns[0][0], &turn, 1) == 1) {
                        change();
                        turn = ::write(turns[1][1], &turn, 1) == 1;
                    }
                    ::_exit(0);
                }
                becomeUnprivileged();
                Cursor const cursor = tree("above/tree");
                goInto(*cursor, "a");
                Cursor const behind = clone(cursor);
                if (::write(turns[0][1], &turn, 1) != 1 || ::read(turns[1][0], &turn, 1) != 1) {
                    return std::string("no turn");
                }
                return afterwards(behind, at("above/tree"));
            });
            undo();
            EXPECT_EQ(outcome, expected) << what << (reads ? ", reading" : ", entering");
        }
        EXPECT_EQ(treeOnDisk(path("above/tree")).size(), all);
        std::filesystem::remove_all(path("above"));
    }
}

TEST_F(LocalReopening, AWalkThatHoldsItsFolderGoesOnInATreeThatIsMoved) {
    makeFolder("tree");
    makeLong("tree/a");
    std::vector<std::string> const all = treeOnDisk(path("tree"));
    Cursor const cursor = tree("tree");
    goInto(*cursor, "a");
    std::filesystem::rename(path("tree"), path("moved"));

    EXPECT_EQ(restOf(*cursor).size(), all.size() - 2);
}

/// How many failures of the storage come out of a listing that goes on behind every failure, those
/// of memory included.
int failuresIn(IFolderEntryIterator& cursor) {
    for (int failures = 0;;) {
        try {
            while (cursor.hasNext()) {
                cursor.advance();
            }
            return failures;
        } catch (Exception const&) {
            ++failures;
        } catch (std::bad_alloc const&) {
        }
    }
}

TEST_F(LocalReopening, NoFailureIsLostWhereMemoryForItFails) {
    makeFolder("tree");
    makeLong("tree/a");
    for (std::string const what : {"reading on", "opening it again", "opening the listed folder"}) {
        std::string const outcome = inChild([&] {
            std::atomic<bool> fails = false;
            bool const reads = what == "reading on";
            std::string const bad = what == "opening it again" ? "a" : path("tree");
            interceptCalls(reads ? SYS_getdents64 : SYS_openat, 0, 0,
                           [&](auto const* arguments) -> std::optional<long> {
                               bool const isBad =
                                   reads || bad == reinterpret_cast<char const*>(arguments[1]);
                               return fails && isBad ? std::optional<long>(-EIO) : std::nullopt;
                           });
            int rounds = 0;
            for (bool happened = true; happened; ++rounds) {
                fails = false;
                Cursor const cursor = tree("tree");
                goInto(*cursor, "a");
                Cursor const behind = clone(cursor);
                fails = true;
                int failures = 0;
                {
                    AllocationFailure const failure(static_cast<std::size_t>(rounds), happened);
                    failures = failuresIn(*behind);
                }
                if (failures != 1) {
                    return std::to_string(failures) + " failures in round " +
                           std::to_string(rounds);
                }
            }
            return std::string(rounds > 1 ? "one each" : "no allocation");
        });
        EXPECT_EQ(outcome, "one each") << what;
    }
}

} // namespace
} // namespace foundation::storage::provider::local::test
