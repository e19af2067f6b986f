#include "sweep.hpp"

#include <foundation/storage/provider/exception.hpp>

#include <gmock/gmock.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace fault_sweep {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

SweepResult sweepBriefly(Scenario const& scenario, unsigned secondsAtMost = 30) {
    std::string const own = "/faults-test-" + std::to_string(::getpid());
    return sweep(scenario,
                 {"/dev/shm" + own, testing::TempDir() + own, fewFaults(), secondsAtMost});
}

/// As scripts/faults does, with the two faults that find the most.
void expectNothingFound(void (*add)(std::vector<Scenario>&)) {
    std::vector<Scenario> scenarios;
    add(scenarios);
    for (Scenario const& scenario : scenarios) {
        SweepResult const result = sweepBriefly(scenario);
        EXPECT_THAT(result.findings, IsEmpty()) << scenario.name;
        EXPECT_GT(result.points, 0U) << scenario.name;
    }
}

TEST(FaultSweep, OfSingleItemsFindsNothing) {
    expectNothingFound(addItemScenarios);
}
TEST(FaultSweep, OfCopiesFindsNothing) {
    expectNothingFound(addCopyScenarios);
}
TEST(FaultSweep, OfMovesFindsNothing) {
    expectNothingFound(addMoveScenarios);
}
TEST(FaultSweep, OfStreamsFindsNothing) {
    expectNothingFound(addStreamScenarios);
}
TEST(FaultSweep, OfTreesFindsNothing) {
    expectNothingFound(addTreeScenarios);
}

// Operations with a defect each, so that it is known that the sweep can fail.

[[noreturn]] void fail(Place const& place) {
    throw provider::Exception(provider::ErrorCode::IOError, place.location("here/file"));
}

constexpr char half[] = "half of ";
constexpr char rest[] = "the content";

bool writeAll(int file, char const* bytes) {
    for (std::string_view left = bytes; !left.empty();) {
        ssize_t const put = ::write(file, left.data(), left.size());
        if (put < 0) {
            return false;
        }
        left.remove_prefix(static_cast<std::size_t>(put));
    }
    return true;
}

int create(Place const& place, char const* name) {
    int const file = ::open(place.path(name).c_str(), O_CREAT | O_EXCL | O_WRONLY, 0644);
    if (file < 0) {
        fail(place);
    }
    return file;
}

Scenario defective(std::function<Told(Place const&)> run) {
    return {"defective", [](Place const&) {}, std::move(run)};
}

TEST(FaultSweep, FindsAHalfFileUnderItsFinalName) {
    SweepResult const result = sweepBriefly(defective([](Place const& place) {
        int const file = create(place, "here/file");
        bool const written = writeAll(file, half) && writeAll(file, rest);
        if (::close(file) != 0 || !written) {
            fail(place);
        }
        return Told::Done;
    }));

    EXPECT_THAT(result.findings,
                Contains(HasSubstr("EIO at call 3, write: fails with provider::Exception with "
                                   "IOError, and here/file is neither the old nor the new one")));
}

TEST(FaultSweep, FindsATemporaryFile) {
    SweepResult const result = sweepBriefly(defective([](Place const& place) {
        int const file = create(place, "here/temporary");
        bool const written = writeAll(file, half) && writeAll(file, rest);
        if (::close(file) != 0 || !written ||
            ::rename(place.path("here/temporary").c_str(), place.path("here/file").c_str()) != 0) {
            fail(place);
        }
        return Told::Done;
    }));

    EXPECT_THAT(result.findings, SizeIs(4)); // two writes, close, rename
    EXPECT_THAT(result.findings, Contains(HasSubstr("and leaves here/temporary")));
}

TEST(FaultSweep, FindsASuccessThatIsNone) {
    SweepResult const result = sweepBriefly(defective([](Place const& place) {
        int const file = create(place, "here/file");
        static_cast<void>(::write(file, half, sizeof half - 1) < 0);
        ::close(file);
        return Told::Done;
    }));

    EXPECT_THAT(result.findings,
                Contains("EIO at call 2, write: says it is done, and here/file is not complete"));
    EXPECT_THAT(result.findings, Contains("short counts from there on at call 1, write: says it is "
                                          "done, and here/file is not complete"));
}

TEST(FaultSweep, FindsAnOpenDescriptor) {
    SweepResult const result = sweepBriefly(defective([](Place const& place) {
        int const file = ::open(place.here().c_str(), O_RDONLY | O_DIRECTORY);
        if (file < 0 || ::mkdir(place.path("here/folder").c_str(), 0777) != 0) {
            fail(place);
        }
        ::close(file);
        return Told::Done;
    }));

    EXPECT_THAT(result.findings, SizeIs(1));
    EXPECT_THAT(result.findings, Contains(HasSubstr("descriptors open")));
}

TEST(FaultSweep, FindsAnExceptionThatIsNotPromised) {
    SweepResult const result = sweepBriefly(defective([](Place const& place) {
        if (::mkdir(place.path("here/folder").c_str(), 0777) != 0) {
            throw std::runtime_error("no folder");
        }
        return Told::Done;
    }));

    EXPECT_THAT(result.findings, SizeIs(1));
    EXPECT_THAT(result.findings, Contains(HasSubstr("throws something else: no folder")));
}

TEST(FaultSweep, FindsWhatAMoveLost) {
    Scenario scenario = defective([](Place const& place) {
        ::unlink(place.path("here/from").c_str());
        int const file = create(place, "here/to");
        bool const written = writeAll(file, half);
        if (::close(file) != 0 || !written) {
            fail(place);
        }
        return Told::Done;
    });
    scenario.prepare = [](Place const& place) { place.makeFile("here/from", half); };
    scenario.moved = {{"here/from", "here/to"}};

    EXPECT_THAT(sweepBriefly(scenario).findings, Contains(HasSubstr("loses here/from")));
}

TEST(FaultSweep, FindsWhatHangs) {
    SweepResult const result =
        sweepBriefly(defective([](Place const& place) {
                         bool const made = ::mkdir(place.path("here/folder").c_str(), 0777) == 0;
                         while (!made) {
                             ::usleep(1000);
                         }
                         return Told::Done;
                     }),
                     1);

    EXPECT_THAT(result.findings, Contains("EIO at call 1: hangs"));
}

TEST(FaultSweep, FindsWhatDies) {
    SweepResult const result = sweepBriefly(defective([](Place const& place) {
        if (::mkdir(place.path("here/folder").c_str(), 0777) != 0) {
            ::_exit(3);
        }
        return Told::Done;
    }));

    EXPECT_THAT(result.findings, Contains(HasSubstr("ends the process")));
}

} // namespace
} // namespace fault_sweep
