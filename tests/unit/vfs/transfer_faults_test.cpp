// Every read, write and close of a copy or a move from storage to storage fails or falls short, one
// after the other.

#include "unit/vfs/stream_faults.hpp"

#include <foundation/storage/provider/extensions/i_links.hpp>

#include <array>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

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

TEST(TransferUnderFaults, AFileThatCannotBeTakenAwayAgainHidesNoFailure) {
    auto const storage = memory(true);
    World const world(storage, storage);
    storage->put(u"source", newContent);
    storage->faulty()->failAt(Operation::Write, 2, ErrorCode::NoSpaceLeft);
    storage->faulty()->failAt(Operation::RemoveFile, 1, ErrorCode::PermissionDenied);

    EXPECT_EQ(failureOf([&] {
                  world.source().copyFile(world.target(), ReplacementPolicy::FailIfExists);
              }),
              (Failure{"write", "NoSpaceLeft"}));
    EXPECT_EQ(storage->faulty()->countOfFaults(), 2U);
    EXPECT_TRUE(storage->files().contains("target"));
}

/// The code with which a link in memory is refused as the destination of itself, where the n-th
/// calls for a canonical location fail.
ErrorCode refusalOfALinkToItself(ErrorCode code, std::vector<std::uint64_t> const& calls,
                                 Faulty lasting) {
    auto const store =
        conformance::decorate<FaultInjector>(conformance_test::memoryPlace().provider);
    StorageIRI const link(u"mem:/place/link");
    dynamic_cast<provider::extensions::ILinks&>(*store).createLink(link, u"nowhere");
    for (std::uint64_t const call : calls) {
        store->failAt(Operation::GetCanonicalLocation, call, code, lasting);
    }
    try {
        provider::copyFileByStreams(*store, link, provider::StorageItem(store, link), {});
    } catch (provider::Exception const& e) {
        EXPECT_GE(store->countOfFaults(), calls.size());
        return e.getErrorCode();
    }
    return ErrorCode::Unknown;
}

TEST(TransferUnderFaults, ALinkThatLeadsNowhereIsKnownByItsOwnPlace) {
    EXPECT_EQ(refusalOfALinkToItself(ErrorCode::ResourceNotFound, {1, 3}, Faulty::Once),
              ErrorCode::InvalidLocation)
        << "by its folder and its name";
    EXPECT_EQ(refusalOfALinkToItself(ErrorCode::ResourceNotFound, {1}, Faulty::FromThenOn),
              ErrorCode::InvalidLocation)
        << "by its location";
    EXPECT_EQ(refusalOfALinkToItself(ErrorCode::IOError, {1}, Faulty::Once), ErrorCode::IOError);
}

} // namespace
