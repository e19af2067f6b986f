#pragma once

#include <foundation/storage/provider/fwd.hpp>

#include <cstdint>
#include <iosfwd>
#include <memory>

namespace conformance_test {

/// What is wrong with a provider: each a mistake that is easily made.
enum class Flaw : std::uint32_t {
    None,
    ErrorCodeSwapped,         ///< what exists is refused as InvalidLocation
    FailureNamesTheFolder,    ///< the removal of a missing file is about the folder
    RenameOverwrites,         ///< whatever the policy says
    CopyOverwrites,           ///< whatever the policy says
    FullFolderIsRemoved,      ///< removeFolder takes the content too
    RemovalTakesPrefixes,     ///< removing the tree `a` removes the tree `ab`
    StreamLosesTheLastChunk,  ///< of what is longer than its buffer
    ReadsAreShort,            ///< a read gives no more than a block
    AppendTruncates,          ///< an option is read the wrong way round
    SeekBeforeTheStartClamps, ///< a position before the start becomes the start
    HasNextAdvances,          ///< asked a second time, it passes over an entry
    CloneSharesItsPosition,   ///< with the cursor that it was made of
    HiddenNamesAreNotListed,  ///< those that begin with a dot
    RemovalIsNotTold,         ///< to those who watch a folder
    CreationRaces,            ///< looks first, and creates then
    TimesAreRounded,          ///< to seconds
    FeatureIsNotDeclared,     ///< lists trees, and denies it
};

std::ostream& operator<<(std::ostream& out, Flaw flaw);

/// A store in memory that is right in everything but one.
std::shared_ptr<foundation::storage::provider::IProvider> buildFlawedProvider(Flaw flaw);

} // namespace conformance_test
