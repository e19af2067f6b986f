// Every read, write and close of a copy or a move from storage to storage fails or falls short, one
// after the other.

#include "unit/vfs/stream_faults.hpp"

#include <array>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <tuple>

namespace {

using namespace stream_faults;

struct Way {
    char const* name;
    std::shared_ptr<Storage> (*from)(bool isInPlace);
    std::shared_ptr<Storage> (*to)(bool isInPlace); ///< null for the same storage
    bool isInPlace = false;

    World make() const {
        auto const source = from(isInPlace);
        return World(source, to ? to(isInPlace) : source);
    }
};

std::ostream& operator<<(std::ostream& out, Way const& way) {
    return out << way.name;
}

constexpr std::array ways{
    Way{"WithinMemory", memory, nullptr},
    Way{"WithinADisk", disk, nullptr},
    Way{"FromMemoryToADisk", memory, disk},
    Way{"FromADiskToMemory", disk, memory},
    Way{"WithinMemoryInPlace", memory, nullptr, true},
    Way{"WithinADiskInPlace", disk, nullptr, true},
    Way{"FromMemoryToADiskInPlace", memory, disk, true},
    Way{"FromADiskToMemoryInPlace", disk, memory, true},
};

enum class Onto { Nothing, AFile };
enum class Transfer { Copy, Move };

/// A failure of a stream comes out as the system's exception for it.
Failure failureFor(StreamFault const& fault) {
    switch (fault.operation) {
    case Operation::Read:
        return {"read", fault.codeName()};
    case Operation::Write:
        return {"write", fault.codeName()};
    default:
        return {"close", fault.codeName()};
    }
}

class TransferUnderStreamFaults : public testing::TestWithParam<std::tuple<Way, Transfer, Onto>> {};

TEST_P(TransferUnderStreamFaults, BringsTheWholeFileOrThrowsAndLosesNothing) {
    auto const& [way, transfer, onto] = GetParam();
    bool const moves = transfer == Transfer::Move;
    World const world = way.make();
    vfs::File const source = world.source();
    vfs::File const target = world.target();

    std::map<std::string, std::string> before{{"source", newContent}};
    if (onto == Onto::AFile) {
        before["target"] = oldContent;
    }
    std::map<std::string, std::string> after{{"target", newContent}};
    if (!moves) {
        after["source"] = newContent;
    }
    auto const prepare = [&] {
        world.to().remove(u"target");
        world.from().put(u"source", newContent);
        if (onto == Onto::AFile) {
            world.to().put(u"target", oldContent);
        }
    };
    auto const run = [&] {
        return failureOf([&] {
            if (moves) {
                source.moveFile(target, ReplacementPolicy::ReplaceExisting);
            } else {
                source.copyFile(target, ReplacementPolicy::ReplaceExisting);
            }
        });
    };
    for (Storage const* const storage : world.storages()) {
        for (StreamFault const& fault : faults) {
            unsigned const met = sweep(world, *storage, fault, prepare, run,
                                       [&](std::optional<Failure> const& failure, bool wasMet) {
                                           auto found = world.files();
                                           if (!wasMet || !fault.isFailure()) {
                                               EXPECT_EQ(failure, std::nullopt);
                                               EXPECT_TRUE(found == after);
                                               return;
                                           }
                                           EXPECT_EQ(failure, failureFor(fault));
                                           if (way.isInPlace && onto == Onto::AFile) {
                                               // It is there, and may have a part of what it was to
                                               // have.
                                               EXPECT_TRUE(found.contains("target"));
                                               found["target"] = oldContent;
                                           }
                                           EXPECT_TRUE(found == before);
                                       });
            bool const isMade = fault.operation == Operation::Close ||
                                (fault.operation == Operation::Read && storage == &world.from()) ||
                                (fault.operation == Operation::Write && storage == &world.to());
            EXPECT_EQ(met > 0, isMade) << fault.name;
            if (HasFailure()) {
                return;
            }
        }
    }
}

std::string nameOf(testing::TestParamInfo<std::tuple<Way, Transfer, Onto>> const& info) {
    auto const& [way, transfer, onto] = info.param;
    return std::string(transfer == Transfer::Copy ? "Copy" : "Move") + way.name +
           (onto == Onto::AFile ? "OntoAFile" : "");
}

INSTANTIATE_TEST_SUITE_P(Sweep, TransferUnderStreamFaults,
                         testing::Combine(testing::ValuesIn(ways),
                                          testing::Values(Transfer::Copy, Transfer::Move),
                                          testing::Values(Onto::Nothing, Onto::AFile)),
                         nameOf);

} // namespace
