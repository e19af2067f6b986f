// The same random operations on the memory provider and on the local disk must give the same
// results, and fail with the same codes about the same locations.

#include "listing.hpp"
#include "model_storage.hpp"

#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/local/local_factory.hpp>
#include <foundation/storage/provider/memory/memory_factory.hpp>

#include <fl/i18n/conversion.hpp>

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <random>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace foundation::storage::provider;
using namespace model;
using memory_test::NamedListing;

// Whatever links climb, they stay within folders of the test's own.
constexpr int levelsAboveBase = 30;

/// Makes operations, the same for the same seed.
class Generator {
  public:
    Generator(unsigned seed, ustring base) : random_(seed), base_(std::move(base)) {}

    /// The next operation, and its description.
    std::pair<std::string, Operation> next() {
        std::ostringstream text;
        Operation operation = choose(text);
        return {text.str(), std::move(operation)};
    }

  private:
    unsigned upTo(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
    bool oneIn(unsigned chances) { return upTo(chances) == 0; }

    /// Often one of those that were used last: what happens to one item is what can go wrong.
    ustring path() {
        if (!recent_.empty() && !oneIn(3)) {
            return recent_[upTo(static_cast<unsigned>(recent_.size()))];
        }
        ustring path = names[upTo(names.size())];
        for (int depth = 1; depth < deepest && oneIn(2); ++depth) {
            path += u'/';
            path += names[upTo(names.size())];
        }
        recent_.push_back(path);
        if (recent_.size() > 5) {
            recent_.pop_front();
        }
        return path;
    }
    ustring linkTarget() {
        switch (upTo(6)) {
        case 0:
            return base_ + u"/" + path();
        case 1:
            return u"../" + path();
        case 2:
            return u"../..";
        case 3:
            return u"./" + path() + u"/..";
        default:
            return path();
        }
    }
    ReplacementPolicy policy() { return static_cast<ReplacementPolicy>(upTo(5)); }
    std::string bytes() {
        std::string text(oneIn(8) ? upTo(200'000) : upTo(40), '\0');
        for (char& c : text) {
            c = static_cast<char>('a' + upTo(26));
        }
        return text;
    }

    Operation choose(std::ostream& text) {
        switch (upTo(24)) {
        case 0:
        case 1:
            return simple(text, "createFile", [](Storage& s, ustring const& p, std::ostream&) {
                s.provider->createFile(s.at(p));
            });
        case 2:
            if (oneIn(4)) {
                return simple(text, "createFolderRecursive",
                              [](Storage& s, ustring const& p, std::ostream&) {
                                  s.provider->createFolderRecursive(s.at(p));
                              });
            }
            return simple(text, "createFolder", [](Storage& s, ustring const& p, std::ostream&) {
                s.provider->createFolder(s.at(p));
            });
        case 3:
            if (oneIn(4)) {
                return oneIn(2) ? clear(text) : removeTree(text);
            }
            return openStream(text);
        case 4:
            return copy(text);
        case 5:
            return simple(text, "removeFile", [](Storage& s, ustring const& p, std::ostream&) {
                s.provider->removeFile(s.at(p));
            });
        case 6:
            return simple(text, "removeFolder", [](Storage& s, ustring const& p, std::ostream&) {
                s.provider->removeFolder(s.at(p));
            });
        case 7:
            return question(text);
        case 8:
            return simple(text, "getFileAttributes",
                          [](Storage& s, ustring const& p, std::ostream& out) {
                              auto const attributes = s.provider->getFileAttributes(s.at(p));
                              bool const isFile = s.provider->existsExtended(s.at(p)) !=
                                                  ExtendedExistsResult::LinkToFolder;
                              describe(out, attributes.values(), isFile);
                          });
        case 9:
            return simple(
                text, "getFolderAttributes", [](Storage& s, ustring const& p, std::ostream& out) {
                    describe(out, s.provider->getFolderAttributes(s.at(p)).values(), false);
                });
        case 10:
            return setWritable(text);
        case 11:
            return setLastModified(text);
        case 12:
        case 13:
            return copy(text);
        case 14:
            return move(text, false);
        case 15:
            return move(text, true);
        case 16:
            return createLink(text);
        case 17:
            return openStream(text);
        case 18:
            return openReplacement(text);
        case 19:
        case 20:
            return list(text);
        default:
            return useStream(text);
        }
    }

    /// Takes a whole tree away, as far as it lets itself be taken, so that none fills up for good.
    Operation clear(std::ostream& text) {
        ustring const p = path();
        text << "clear " << narrow(p);
        return [p](Storage& s, std::ostream& out) { clearTree(s, p, out); };
    }

    /// The same in one operation. Which of several read-only folders is met first is the storage's
    /// own affair; what is left where it ends is then taken away on both sides.
    Operation removeTree(std::ostream& text) {
        ustring const p = path();
        text << "removeFolderRecursively " << narrow(p);
        return [p](Storage& s, std::ostream& out) {
            try {
                s.provider->removeFolderRecursively(s.at(p));
                out << "removed";
            } catch (Exception const& e) {
                if (e.getErrorCode() != ErrorCode::PermissionDenied) {
                    throw;
                }
                out << "denied";
                std::ostringstream ignored;
                clearTree(s, p, ignored);
            }
        };
    }

    template<class Call>
    Operation simple(std::ostream& text, char const* name, Call call) {
        ustring const p = path();
        text << name << ' ' << narrow(p);
        return [p, call](Storage& s, std::ostream& out) {
            call(s, p, out);
            out << " done";
        };
    }

    Operation question(std::ostream& text) {
        ustring const p = path();
        unsigned const kind = upTo(7);
        text << "question " << kind << " about " << narrow(p);
        return [p, kind](Storage& s, std::ostream& out) {
            switch (kind) {
            case 0:
                out << static_cast<int>(s.provider->exists(s.at(p)));
                break;
            case 1:
                out << static_cast<int>(s.provider->existsExtended(s.at(p)));
                break;
            case 2:
                out << s.provider->fileExists(s.at(p));
                break;
            case 3:
                out << s.provider->folderExists(s.at(p));
                break;
            case 4:
                out << narrow(s.provider->getCanonicalLocation(s.at(p)).getResolvedPath());
                break;
            case 5:
                out << s.provider->getExtendedAttributes(s.at(p)).at("posix.mode");
                break;
            default:
                out << narrow(dynamic_cast<extensions::ILinks&>(*s.provider).readLink(s.at(p)));
            }
        };
    }

    Operation list(std::ostream& text) {
        ustring const p = oneIn(8) ? ustring() : path();
        ustring const pattern =
            std::array{u"", u"", u"*", u"?", u"a*", u"*\u00e4", u"* ?%"}[upTo(7)];
        NamedListing const& listing = memory_test::listings.at(upTo(8));
        text << listing.name << ' ' << narrow(pattern) << " in " << narrow(p);
        return [p, pattern, &listing](Storage& s, std::ostream& out) {
            describeListing(*(s.provider.get()->*listing.list)(s.at(p), pattern), out);
        };
    }

    Operation setWritable(std::ostream& text) {
        ustring const p = path();
        bool const writable = !oneIn(3);
        text << "setWritable " << writable << ' ' << narrow(p);
        return [p, writable](Storage& s, std::ostream&) {
            s.provider->setWritable(s.at(p), writable);
        };
    }

    Operation setLastModified(std::ostream& text) {
        ustring const p = path();
        Timestamp const time{static_cast<std::int64_t>(upTo(900'000'000)),
                             static_cast<std::int32_t>(upTo(1'000'000) * 1000)};
        text << "setLastModified " << narrow(p);
        return [p, time](Storage& s, std::ostream&) {
            s.provider->setLastModified(s.at(p), toPtime(time));
        };
    }

    Operation copy(std::ostream& text) {
        ustring const from = path();
        ustring const to = path();
        ReplacementPolicy const chosen = policy();
        bool const canceled = oneIn(10);
        text << "copyFile " << narrow(from) << " to " << narrow(to) << " policy "
             << static_cast<int>(chosen) << (canceled ? " canceled" : "");
        return [from, to, chosen, canceled](Storage& s, std::ostream& out) {
            CopyFileOptions options{chosen, 0, {}};
            if (canceled) {
                options.progress = [](std::uint64_t, std::optional<std::uint64_t>) {
                    return false;
                };
            }
            try {
                out << static_cast<int>(s.provider->copyFile(s.at(from), s.item(to), options));
            } catch (Exception const& e) {
                // Of a cancellation and a folder that takes no entries either may be met first.
                bool const either = canceled && (e.getErrorCode() == ErrorCode::IOError ||
                                                 e.getErrorCode() == ErrorCode::PermissionDenied);
                if (!either) {
                    throw;
                }
                out << "canceled or denied";
            }
        };
    }

    Operation move(std::ostream& text, bool folder) {
        ustring const from = path();
        ustring const to = path();
        ReplacementPolicy const chosen = policy();
        text << (folder ? "moveFolder " : "moveFile ") << narrow(from) << " to " << narrow(to)
             << " policy " << static_cast<int>(chosen);
        return [from, to, chosen, folder](Storage& s, std::ostream&) {
            if (folder) {
                s.provider->moveFolder(s.at(from), s.at(to), chosen);
            } else {
                s.provider->moveFile(s.at(from), s.at(to), chosen);
            }
        };
    }

    Operation createLink(std::ostream& text) {
        ustring const p = path();
        ustring const target = linkTarget();
        text << "createLink " << narrow(p) << " to " << narrow(target);
        return [p, target](Storage& s, std::ostream&) {
            dynamic_cast<extensions::ILinks&>(*s.provider).createLink(s.at(p), target);
        };
    }

    Operation openStream(std::ostream& text) {
        ustring const p = path();
        unsigned const slot = upTo(openStreams);
        bool const readOnly = oneIn(3);
        ByteStreamOpenOptions const options{static_cast<ByteStreamAccess>(upTo(2)),
                                            static_cast<ByteStreamCreation>(upTo(2)), upTo(2),
                                            upTo(2)};
        text << "open " << narrow(p) << " as " << slot;
        if (readOnly) {
            text << " read-only";
        } else {
            text << " access " << static_cast<int>(options.access) << " creation "
                 << static_cast<int>(options.creation) << " withoutTruncate "
                 << options.withoutTruncate << " withoutAppend " << options.withoutAppend;
        }
        return [p, slot, readOnly, options](Storage& s, std::ostream&) {
            s.streams[slot] = readOnly ? s.provider->openReadOnlyStream(s.at(p))
                                       : s.provider->openStream(s.at(p), options);
        };
    }

    Operation openReplacement(std::ostream& text) {
        ustring const p = path();
        unsigned const slot = upTo(openStreams);
        ReplacementPolicy const chosen = policy();
        text << "openReplacement " << narrow(p) << " as " << slot << " policy "
             << static_cast<int>(chosen);
        return [p, slot, chosen](Storage& s, std::ostream&) {
            auto& replacing = dynamic_cast<extensions::IReplacingStreams&>(*s.provider);
            s.streams[slot] = replacing.openReplacement(s.at(p), chosen);
        };
    }

    Operation useStream(std::ostream& text) {
        unsigned const slot = upTo(openStreams);
        switch (upTo(5)) {
        case 0: {
            long const count = static_cast<long>(upTo(oneIn(5) ? 300'000 : 50));
            text << "read " << count << " of " << slot;
            return [slot, count](Storage& s, std::ostream& out) {
                if (s.streams[slot]) {
                    std::string buffer(static_cast<std::size_t>(count), '\0');
                    long const got = s.streams[slot]->read(buffer.data(), count);
                    buffer.resize(static_cast<std::size_t>(std::max(got, 0L)));
                    out << got << ' ' << std::hash<std::string>()(buffer);
                }
            };
        }
        case 1: {
            auto const way =
                std::array{std::ios_base::beg, std::ios_base::cur, std::ios_base::end}[upTo(3)];
            long const offset = static_cast<long>(upTo(150'000)) - 50'000;
            text << "seek " << offset << " in " << slot;
            return [slot, way, offset](Storage& s, std::ostream& out) {
                if (s.streams[slot]) {
                    out << s.streams[slot]->seek(offset, way);
                }
            };
        }
        case 2:
            text << "close " << slot;
            return [slot](Storage& s, std::ostream& out) {
                if (s.streams[slot]) {
                    s.streams[slot]->close();
                    out << "closed";
                }
            };
        default: {
            std::string const data = bytes();
            text << "write " << data.size() << " to " << slot;
            return [slot, data](Storage& s, std::ostream& out) {
                if (s.streams[slot]) {
                    out << s.streams[slot]->write(data.data(), static_cast<long>(data.size()));
                }
            };
        }
        }
    }

    std::mt19937 random_;
    ustring base_;
    std::deque<ustring> recent_;
};

/// Of two results of many lines the first pair that differs.
std::pair<std::string, std::string> firstDifference(std::string const& a, std::string const& b) {
    std::istringstream left(a);
    std::istringstream right(b);
    std::string fromLeft;
    std::string fromRight;
    while (fromLeft == fromRight && (left || right)) {
        if (!std::getline(left, fromLeft)) {
            fromLeft.clear();
        }
        if (!std::getline(right, fromRight)) {
            fromRight.clear();
        }
    }
    return {fromLeft, fromRight};
}

/// The first disagreement, or nothing.
std::string compare(std::string const& folder, unsigned seed, int steps) {
    std::string base = folder;
    for (int i = 0; i < levelsAboveBase; ++i) {
        base += "/up";
    }
    std::filesystem::create_directories(base);
    ustring const path = fl::i18n::to_ustring(base);
    Storage disk{local::buildLocalProvider(), StorageIRI(u"file://" + path), {}};
    Storage memory{memory::buildMemoryProvider(), StorageIRI(u"mem:" + path), {}};
    memory.provider->createFolderRecursive(memory.base);

    Generator generator(seed, path);
    std::deque<std::string> history;
    auto const check = [&](std::string const& text, Operation const& operation) -> std::string {
        std::string const expected = resultOf(disk, operation);
        std::string const found = resultOf(memory, operation);
        if (expected == found) {
            history.push_back(text + " => " + expected.substr(0, expected.find('\n')));
            if (history.size() > 400) {
                history.pop_front();
            }
            return {};
        }
        auto const [onDisk, inMemory] = firstDifference(expected, found);
        std::ostringstream report;
        report << "seed " << seed << ": " << text << "\n  on disk:   " << onDisk
               << "\n  in memory: " << inMemory << "\n  before:\n";
        for (std::string const& line : history) {
            report << "    " << line << '\n';
        }
        return report.str();
    };
    for (int step = 0; step < steps; ++step) {
        auto const [text, operation] = generator.next();
        if (std::string const difference = check(text, operation); !difference.empty()) {
            return difference;
        }
        if (step % 200 == 199) {
            std::string const difference =
                check("look at everything", [](Storage& s, std::ostream& out) {
                    describeTree(s, u"", 1, out);
                    describeListing(*s.provider->listAllRecursive(s.base, u""), out);
                });
            if (!difference.empty()) {
                return difference;
            }
        }
    }
    return {};
}

/// Runs as somebody to whom permissions apply, in a process of its own: root may do everything.
std::string compareUnprivileged(unsigned seed, int steps) {
    std::string folder = std::filesystem::temp_directory_path() / "vfs-model-XXXXXX";
    if (::mkdtemp(folder.data()) == nullptr) {
        return "no temporary folder";
    }
    constexpr uid_t nobody = 65534;
    bool const isRoot = ::geteuid() == 0;
    if (isRoot && ::chown(folder.c_str(), nobody, nobody) != 0) {
        return "the temporary folder cannot be given away";
    }
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) {
        return "no pipe";
    }
    pid_t const child = ::fork();
    if (child == 0) {
        ::close(ends[0]);
        std::string difference = "the privileges cannot be dropped";
        if (!isRoot || (::setresgid(nobody, nobody, nobody) == 0 &&
                        ::setresuid(nobody, nobody, nobody) == 0)) {
            ::umask(022);
            try {
                difference = compare(folder, seed, steps);
            } catch (std::exception const& e) {
                difference = std::string("unexpected: ") + e.what();
            }
        }
        if (difference.empty()) {
            difference = "the same";
        }
        for (std::size_t done = 0; done < difference.size();) {
            ssize_t const put =
                ::write(ends[1], difference.data() + done, difference.size() - done);
            if (put <= 0) {
                break;
            }
            done += static_cast<std::size_t>(put);
        }
        ::_exit(0);
    }
    ::close(ends[1]);
    std::string report;
    std::array<char, 4096> buffer;
    for (ssize_t got = 0; (got = ::read(ends[0], buffer.data(), buffer.size())) > 0;) {
        report.append(buffer.data(), static_cast<std::size_t>(got));
    }
    ::close(ends[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    if (!WIFEXITED(status)) {
        report += "the process ended by a signal";
    }
    if (!isRoot) {
        for (auto const& entry : std::filesystem::recursive_directory_iterator(folder)) {
            if (std::filesystem::is_directory(entry.symlink_status())) { // links may go in circles
                std::filesystem::permissions(entry, std::filesystem::perms::owner_all,
                                             std::filesystem::perm_options::add);
            }
        }
    }
    std::filesystem::remove_all(folder);
    return report;
}

class MemoryMatchesLocal : public testing::TestWithParam<unsigned> {};

TEST_P(MemoryMatchesLocal, InTheResultOfEveryOperation) {
    std::string const report = compareUnprivileged(GetParam(), 10'000);
    EXPECT_TRUE(report == "the same") << report;
}

INSTANTIATE_TEST_SUITE_P(Seeds, MemoryMatchesLocal, testing::Range(1U, 9U));

} // namespace
