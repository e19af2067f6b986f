#include "command_run.hpp"

#include <cli/line_queue.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <future>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <unistd.h>
#include <utility>

namespace cli_test {
namespace {

using ::testing::HasSubstr;

// Reads a pipe until `enough`, its end, or a minute without a byte, in which the test has failed.
template<class Enough>
void readUntil(int descriptor, std::string& text, Enough const& enough) {
    while (!enough(text)) {
        pollfd ready{descriptor, POLLIN, 0};
        char buffer[4096];
        ssize_t const count =
            ::poll(&ready, 1, 60'000) == 1 ? ::read(descriptor, buffer, sizeof buffer) : -1;
        if (count <= 0) {
            return;
        }
        text.append(buffer, static_cast<std::size_t>(count));
    }
}

bool endsALine(std::string const& text) {
    return text.ends_with('\n');
}

// `vfs watch` that watches.
class Watching {
  public:
    Watching(TemporaryFolder const& folder, std::vector<std::string> words) {
        words.insert(words.begin(), {"watch", "-v"});
        int out[2];
        int err[2];
        EXPECT_EQ(::pipe2(out, O_CLOEXEC), 0);
        EXPECT_EQ(::pipe2(err, O_CLOEXEC), 0);
        process_ = CommandRun::vfs(std::move(words))
                       .in(folder.path())
                       .outputTo(out[1])
                       .errorsTo(err[1])
                       .start();
        ::close(out[1]);
        ::close(err[1]);
        out_ = out[0];
        err_ = err[0];
        readUntil(err_, said_, endsALine);
    }
    ~Watching() {
        closeOutput();
        ::close(err_);
    }

    // What it said when it began.
    std::string const& said() const { return said_; }
    // Waits until so many lines were printed in all.
    void waitForLines(std::ptrdiff_t count) {
        readUntil(out_, printed_, [&](std::string const& text) {
            return std::count(text.begin(), text.end(), '\n') >= count;
        });
    }
    // Waits until that was printed.
    void waitFor(std::string const& what) {
        readUntil(out_, printed_, [&](std::string const& text) {
            std::size_t const unseen = text.size() - std::min<std::size_t>(text.size(), 8192);
            return text.find(what, unseen) != std::string::npos;
        });
    }
    void closeOutput() {
        if (out_ >= 0) {
            ::close(std::exchange(out_, -1));
        }
    }
    // All that it printed until it ended, and said behind its first line.
    Outcome wait() {
        auto const nothing = [](std::string const&) { return false; };
        if (out_ >= 0) {
            readUntil(out_, printed_, nothing);
        }
        std::string more;
        readUntil(err_, more, nothing);
        Outcome outcome = process_.wait();
        outcome.out = printed_;
        outcome.err = more;
        return outcome;
    }
    Outcome end(int signal = SIGINT) {
        process_.signal(signal);
        return wait();
    }

  private:
    Process process_{-1, -1, -1};
    int out_ = -1;
    int err_ = -1;
    std::string said_;
    std::string printed_;
};

std::string replaced(std::string text, std::string const& what, std::string const& by) {
    for (std::size_t at = text.find(what); at != std::string::npos;
         at = text.find(what, at + by.size())) {
        text.replace(at, what.size(), by);
    }
    return text;
}

// Twenty changes, as somebody would make them beside a watch. What is changed in a new folder waits
// until that folder was told of: before, it is found there, and how often it changed is not known.
char const* const twentyChanges = R"(
waitFor() { for i in {1..6000}; do ! grep -sq "$1" changes || return; sleep 0.01; done; }
vfs watch -r -v $OPTION docs > changes 2> ready & watch=$!
for i in {1..6000}; do ! grep -sq watching ready || break; sleep 0.01; done
mkdir docs/new; waitFor new
echo milk > docs/new/list.txt
chmod 600 docs/new/list.txt
echo bread >> docs/new/list.txt
mv docs/new/list.txt docs/shopping.txt
ln -s shopping.txt docs/link
mv docs/new docs/old
touch docs/old/a
mv docs/notes.txt outside.txt
mv outside.txt docs/old/back.txt
echo butter > docs/b
mv docs/b docs/shopping.txt
rm docs/link
truncate -s 100 docs/shopping.txt
chmod 700 docs
rm docs/old/a
rm docs/old/back.txt
rmdir docs/old
mkdir $'docs/o\ndd\xff'
mkdir docs/end; waitFor end
kill $watch; wait $watch; echo "ended with $?" >> changes
cat changes
)";

std::string outputBesideTwentyChanges(std::string const& option) {
    TemporaryFolder folder;
    std::filesystem::create_directory(folder / "docs");
    writeFile(folder / "docs/notes.txt", "Buy milk.\n");
    Outcome const outcome =
        CommandRun::shell(twentyChanges).in(folder.path()).environment("OPTION", option).run();
    EXPECT_EQ(outcome.err, "");
    return replaced(outcome.out, folder.path().string(), "/tmp/demo");
}

TEST(CommandWatch, PrintsExactlyTheLinesOfTwentyChanges) {
    EXPECT_EQ(outputBesideTwentyChanges(""), R"(created docs/new/
created docs/new/list.txt
modified docs/new/list.txt
attributes docs/new/list.txt
modified docs/new/list.txt
moved docs/new/list.txt -> docs/shopping.txt
created docs/link
moved docs/new/ -> docs/old/
created docs/old/a
attributes docs/old/a
removed docs/notes.txt
created docs/old/back.txt
created docs/b
modified docs/b
moved docs/b -> docs/shopping.txt
removed docs/link
modified docs/shopping.txt
attributes docs/
removed docs/old/a
removed docs/old/back.txt
removed docs/old/
created docs/o\ndd\xff/
created docs/end/
ended with 0
)");
}

TEST(CommandWatch, PrintsExactlyTheObjectsOfTwentyChanges) {
    std::string expected;
    auto const add = [&](std::string const& event, std::string const& path, std::string const& type,
                         std::string const& more = "") {
        std::string const location = "file:///tmp/demo/docs" + (path.empty() ? "" : "/" + path);
        expected += R"({"event":")" + event + R"(","location":")" + location + R"(","path":")" +
                    path + R"(","type":")" + type + '"' + more + "}\n";
    };
    auto const move = [&](std::string const& from, std::string const& to, std::string const& type) {
        std::string const docs = "file:///tmp/demo/docs/";
        add("removed", from, type, R"(,"movedTo":")" + docs + to + '"');
        add("created", to, type, R"(,"movedFrom":")" + docs + from + '"');
    };
    add("created", "new", "folder");
    add("created", "new/list.txt", "file");
    add("modified", "new/list.txt", "file");
    add("attributes", "new/list.txt", "file");
    add("modified", "new/list.txt", "file");
    move("new/list.txt", "shopping.txt", "file");
    add("created", "link", "file");
    move("new", "old", "folder");
    add("created", "old/a", "file");
    add("attributes", "old/a", "file");
    add("removed", "notes.txt", "file");
    add("created", "old/back.txt", "file");
    add("created", "b", "file");
    add("modified", "b", "file");
    move("b", "shopping.txt", "file");
    add("removed", "link", "file");
    add("modified", "shopping.txt", "file");
    add("attributes", "", "folder");
    add("removed", "old/a", "file");
    add("removed", "old/back.txt", "file");
    add("removed", "old", "folder");
    expected += R"({"event":"created","location":"file:///tmp/demo/docs/o%0Add%FF",)"
                R"("path":{"hex":"6f0a6464ff"},"type":"folder"})"
                "\n";
    add("created", "end", "folder");

    EXPECT_EQ(outputBesideTwentyChanges("--json"), expected + "ended with 0\n");
}

// The first block of a language behind a heading of a page.
std::string blockOf(std::string const& page, std::string const& heading,
                    std::string const& language) {
    std::string const start = "\n```" + language + "\n";
    std::size_t const at = page.find(start, page.find("\n" + heading + "\n")) + start.size();
    return page.substr(at, page.find("```\n", at) - at);
}

TEST(CommandWatch, PrintsWhatThePageShows) {
    std::string const page = readFile(VFS_SOURCE_FOLDER "/docs/command.md");
    std::string const lines = blockOf(page, "## watch", "text");
    for (bool const json : {false, true}) {
        TemporaryFolder folder;
        std::filesystem::create_directory(folder / "docs");
        writeFile(folder / "docs/notes.txt", "Buy milk.\n");
        std::vector<std::string> words{"-r", "docs"};
        if (json) {
            words.insert(words.begin(), "--json");
        }
        Watching watching(folder, words);
        std::istringstream script(blockOf(page, "## watch", "sh"));
        int commands = 0;
        for (std::string command; std::getline(script, command);) {
            EXPECT_EQ(shell(folder, command).code, 0) << command;
            watching.waitForLines(++commands);
        }
        EXPECT_GT(commands, 4);
        watching.waitForLines(static_cast<int>(std::count(lines.begin(), lines.end(), '\n')));

        Outcome const outcome = watching.end();

        std::string const out = replaced(outcome.out, folder.path().string(), "/tmp/demo");
        if (json) {
            EXPECT_THAT(out, HasSubstr(blockOf(page, "## watch", "json")));
        } else {
            EXPECT_EQ(out, lines);
        }
    }
}

TEST(CommandWatch, WatchesFilesAndFoldersAtOnceAndSpellsThemAsTheyWereTyped) {
    TemporaryFolder folder;
    std::filesystem::create_directories(folder / "docs/deep");
    writeFile(folder / "notes.txt", "");
    std::string const iri = "file://" + (folder / "docs").string();
    Watching watching(folder, {"notes.txt", "./docs/", iri});
    EXPECT_EQ(watching.said(), "vfs: watch: watching 3 locations\n");

    shell(folder, "echo x >> notes.txt");
    watching.waitForLines(1);
    shell(folder, "rm notes.txt");
    watching.waitForLines(2);
    shell(folder, "mkdir docs/deep/unheard; mkdir docs/heard");
    watching.waitForLines(4);
    Outcome const outcome = watching.end();

    std::istringstream in(outcome.out);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    ASSERT_EQ(lines.size(), 4u) << outcome.out;
    EXPECT_EQ(lines[0], "modified notes.txt");
    EXPECT_EQ(lines[1], "removed notes.txt");
    std::sort(lines.begin() + 2, lines.end()); // of two watches, either may be told first
    EXPECT_EQ(lines[2], "created ./docs/heard/");
    EXPECT_EQ(lines[3], "created " + iri + "/heard/");
}

TEST(CommandWatch, GoesOnWithAFileThatIsReplacedAndAFolderThatIsMadeAgain) {
    TemporaryFolder folder;
    std::filesystem::create_directory(folder / "docs");
    writeFile(folder / "notes.txt", "");
    Watching watching(folder, {"-r", "notes.txt", "docs"});

    shell(folder, "echo new > other; mv other notes.txt");
    watching.waitForLines(1);
    shell(folder, "echo more >> notes.txt");
    watching.waitForLines(2);
    shell(folder, "rmdir docs");
    watching.waitForLines(3);
    shell(folder, "mkdir docs");
    watching.waitForLines(4);
    shell(folder, "mkdir docs/new");
    watching.waitForLines(5);

    EXPECT_EQ(watching.end().out, "created notes.txt\nmodified notes.txt\nremoved docs/\n"
                                  "created docs/\ncreated docs/new/\n");
}

TEST(CommandWatch, PrintsTheKindsThatAreAskedFor) {
    struct Row {
        std::string events;
        std::string out;
    };
    for (Row const& row : {
             Row{"created,removed", "created a\nmoved a -> b\nremoved b\ncreated end/\n"},
             Row{"created", "created a\nmoved a -> b\ncreated end/\n"},
             Row{"removed,created,removed", "created a\nmoved a -> b\nremoved b\ncreated end/\n"},
             Row{"removed", "moved a -> b\nremoved b\nremoved end/\n"},
             Row{"attributes", "attributes b\nattributes end/\n"},
             Row{"modified", "modified a\nmodified end\n"},
         }) {
        TemporaryFolder folder;
        std::filesystem::create_directory(folder / "d");
        Watching watching(folder, {"--events", row.events, "d"});
        std::string const last = row.events == "removed"      ? "mkdir d/end; rmdir d/end"
                                 : row.events == "attributes" ? "mkdir d/end; chmod 700 d/end"
                                 : row.events == "modified"   ? "echo > d/end"
                                                              : "mkdir d/end";
        shell(folder, "echo x > d/a; mv d/a d/b; chmod 600 d/b; rm d/b; " + last);
        watching.waitForLines(std::count(row.out.begin(), row.out.end(), '\n'));

        std::string const out = watching.end().out;

        EXPECT_EQ(replaced(out, "d/", ""), replaced(row.out, "d/", "")) << row.events;
    }
}

TEST(CommandWatch, TellsACopyWhenItIsThere) {
    TemporaryFolder folder;
    shell(folder, "mkdir w; echo milk > a; chmod 640 a");
    Watching watching(folder, {"w"});

    ASSERT_EQ(vfs(folder, {"cp", "a", "w/a"}).code, 0);
    shell(folder, "mkdir w/last");
    watching.waitFor("last");

    EXPECT_EQ(watching.end().out, "created w/a\ncreated w/last/\n");
}

TEST(CommandWatch, RefusesKindsThatThereAreNot) {
    TemporaryFolder folder;
    for (std::string const list :
         {"", "created,", ",created", "moved", "Created", "created;removed", "overflow"}) {
        Outcome const outcome = vfs(folder, {"watch", "--events", list, "."});

        EXPECT_EQ(outcome.code, 2) << list;
        EXPECT_THAT(outcome.err, HasSubstr("vfs: watch: --events takes created, modified, "
                                           "attributes and removed, with commas between them\n"));
    }
}

TEST(CommandWatch, EndsByASignalWithoutFailureAndWithoutAWord) {
    for (int const number : {SIGINT, SIGTERM, SIGHUP}) {
        TemporaryFolder folder;
        Watching watching(folder, {"."});
        EXPECT_EQ(watching.said(), "vfs: watch: watching .\n");
        std::filesystem::create_directory(folder / "a");
        watching.waitForLines(1);

        Outcome const outcome = watching.end(number);

        EXPECT_EQ(outcome.code, 0);
        EXPECT_EQ(outcome.out, "created ./a/\n");
        EXPECT_EQ(outcome.err, "");
    }
}

TEST(CommandWatch, EndsInTheMidstOfChangesBehindAWholeLine) {
    TemporaryFolder folder;
    Watching watching(folder, {"."});
    Process changes =
        CommandRun::shell("for ((i = 0; i < 10000; ++i)); do : > $i; done") // what inotify holds
            .in(folder.path())
            .start();
    watching.waitForLines(100);

    Outcome const outcome = watching.end();
    changes.signal(SIGKILL);
    changes.wait();

    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_TRUE(endsALine(outcome.out)) << outcome.out.substr(outcome.out.rfind('\n'));
    std::istringstream in(outcome.out);
    int number = 0;
    for (std::string line; std::getline(in, line); ++number) {
        ASSERT_EQ(line, "created ./" + std::to_string(number));
    }
    EXPECT_GE(number, 100);
}

// What nobody reads fills the pipe, then what the command keeps, then the kernel's queue.
TEST(CommandWatch, TellsAReaderWhoStoodStillThatChangesWereLost) {
    if (std::stoi(readFile("/proc/sys/fs/inotify/max_queued_events")) > 16384) {
        GTEST_SKIP() << "the kernel queues more events here than are made";
    }
    TemporaryFolder folder;
    Watching watching(folder, {"--json", "."});
    EXPECT_EQ(shell(folder, "name=$(printf 'x%.0s' {1..100}); "
                            "for ((i = 0; i < 30000; ++i)); do : > $name$i; done")
                  .code,
              0);

    watching.waitFor(R"("event":"overflow")");
    Outcome const outcome = watching.end();

    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.err, "");
    std::string const overflow = R"({"event":"overflow","location":"file://)" +
                                 folder.path().string() + R"(","path":"","type":"folder"})";
    EXPECT_NE(outcome.out.find("\n" + overflow + "\n"), std::string::npos);
    EXPECT_TRUE(endsALine(outcome.out));
    if (VFS_SANITIZED == 0) {
        EXPECT_LT(outcome.peakKiB, 32 * 1024);
    }
}

TEST(CommandWatch, EndsWhenNobodyReadsAnyMore) {
    TemporaryFolder folder;
    Watching watching(folder, {"."});

    watching.closeOutput(); // and nothing changes

    Outcome const outcome = watching.wait();
    EXPECT_EQ(outcome.code, 128 + SIGPIPE);
    EXPECT_EQ(outcome.err, "");
}

TEST(CommandWatch, SaysThatNobodyReadsWhereThatSignalIsIgnored) {
    TemporaryFolder folder;

    Outcome const outcome =
        shell(folder, "trap '' PIPE; { vfs watch .; echo $? > code; } | true; cat code");

    EXPECT_EQ(outcome.out, "1\n");
    EXPECT_EQ(outcome.err, "vfs: watch: standard output: Broken pipe\n");
}

TEST(CommandWatch, PrintsAtOnceAlsoIntoAFile) {
    TemporaryFolder folder;
    std::filesystem::create_directory(folder / "d");

    Outcome const outcome = shell(folder, R"(vfs watch -v d > out 2> ready &
        for i in {1..6000}; do ! grep -sq watching ready || break; sleep 0.01; done
        mkdir d/a
        for i in {1..6000}; do ! grep -sq created out || break; sleep 0.01; done
        cat out; kill -9 $!)");

    EXPECT_EQ(outcome.out, "created d/a/\n");
}

TEST(CommandWatch, BeginsNothingUnlessEverythingCanBeWatched) {
    TemporaryFolder folder;
    std::filesystem::create_directory(folder / "docs");
    writeFile(folder / "notes.txt", "");

    Outcome const outcome =
        vfs(folder, {"watch", "-v", "docs", "missing", "notes.txt/", "odd:/a", "mem:"});

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err,
              "vfs: watch: missing: no such file or folder\n"
              "vfs: watch: notes.txt/: is not a folder\n"
              "vfs: watch: odd:/a: no provider for the scheme 'odd'\n"
              "vfs: watch: mem:/: the memory of this process is changed by nobody while it "
              "watches\n");
}

TEST(CommandWatch, IsSilentAboutItsBeginningUnlessAsked) {
    TemporaryFolder folder;
    std::filesystem::create_directory(folder / "d");

    Outcome const outcome = shell(folder, R"(vfs watch d > out &
        for i in {1..6000}; do ! grep -sq created out || break; mkdir d/a; rmdir d/a; sleep 0.01; done
        kill $!; wait $!)");

    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.err, "");
}

TEST(CommandWatch, IsNotForScripts) {
    TemporaryFolder folder;

    Outcome const outcome = shell(folder, "printf 'watch .\\nput a\\n' | vfs sh -e");

    EXPECT_EQ(outcome.code, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, HasSubstr("vfs: watch: a script cannot watch: the commands behind it "
                                       "would never run\n"));
}

TEST(CommandWatch, DeniesAFolderThatCannotBeRead) {
    TemporaryFolder folder;
    std::filesystem::create_directory(folder / "closed");
    std::filesystem::permissions(folder / "closed", std::filesystem::perms::none);

    Outcome const outcome =
        CommandRun::vfs({"watch", "closed"}).in(folder.path()).unprivileged().run();

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "vfs: watch: closed: permission denied\n");
}

TEST(LineQueue, GivesLinesInTheirOrderAndThenNothing) {
    cli::LineQueue queue;
    queue.add("a\n");
    queue.add("b\n");

    EXPECT_EQ(queue.take(), "a\nb\n");
    EXPECT_EQ(queue.take(), "");
}

TEST(LineQueue, CanBeWaitedFor) {
    cli::LineQueue queue;
    pollfd ready{queue.descriptor(), POLLIN, 0};
    EXPECT_EQ(::poll(&ready, 1, 0), 0);

    queue.add("a\n");
    EXPECT_EQ(::poll(&ready, 1, 0), 1);

    queue.take();
    EXPECT_EQ(::poll(&ready, 1, 0), 0);
}

TEST(LineQueue, LetsNobodyInWhileItIsFull) {
    cli::LineQueue queue(4);
    queue.add("full");
    auto const added = std::async(std::launch::async, [&] { queue.add("more"); });
    EXPECT_EQ(added.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);

    EXPECT_EQ(queue.take(), "full");

    added.wait();
    EXPECT_EQ(queue.take(), "more");
}

TEST(LineQueue, KeepsNobodyWaitingAtTheEnd) {
    cli::LineQueue queue(4);
    queue.add("full");
    auto const added = std::async(std::launch::async, [&] { queue.add("more"); });

    queue.letAllIn();

    added.wait();
    EXPECT_EQ(queue.take(), "fullmore");
}

TEST(LineQueue, ThrowsTheFirstFailureBehindTheLinesThatCame) {
    cli::LineQueue queue;
    queue.add("a\n");
    queue.fail(std::make_exception_ptr(std::runtime_error("first")));
    queue.fail(std::make_exception_ptr(std::runtime_error("second")));
    pollfd ready{queue.descriptor(), POLLIN, 0};

    EXPECT_EQ(queue.take(), "a\n");

    EXPECT_EQ(::poll(&ready, 1, 0), 1);
    try {
        queue.take();
        FAIL() << "nothing was thrown";
    } catch (std::runtime_error const& failure) {
        EXPECT_STREQ(failure.what(), "first");
    }
    EXPECT_EQ(queue.take(), "");
}

} // namespace
} // namespace cli_test
