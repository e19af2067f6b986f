#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/conformance/contract.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>

namespace foundation::storage::conformance {

/// How a provider is compared with a model of it. A plain value.
struct ModelTest {
    /// Called for each sequence of operations, and for each that a failure is shortened to.
    std::function<Place()> makePlace;
    /// The same number gives the same operations.
    std::uint32_t seed = 1;
    std::size_t operations = 20'000;
    /// As many are done in one place, before another one is made.
    std::size_t operationsInARow = 400;
    /// Whether a stream stays with its file when that is moved, replaced or removed; else files are
    /// only opened for as long as one operation takes.
    bool hasLastingStreams = true;
    /// Left out: what the provider refuses. Of the abilities that a model can tell of, these may be
    /// missing: ReadOnlyItems, TreeRemoval, FileMoves, FolderMoves, FolderChainCreation.
    AbilitySet unsupported = {};
};

/// The shortest sequence found that a provider and the model answer differently.
struct ModelFailure {
    /// The operations as C++ that does them again, with what they gave.
    std::string code;
    std::string given;    ///< by the provider, to the last of them
    std::string expected; ///< by the model
};

FOUNDATION_EXPORT std::ostream& operator<<(std::ostream& out, ModelFailure const& failure);

/// Does random operations on files, folders and open streams, a writable provider's and those of a
/// model in memory, and compares every answer: values, content, codes of failures and the
/// locations that they name. The rules are those of docs/providers.md. The first difference is
/// shortened by leaving operations out. Nothing where there is none.
FOUNDATION_EXPORT std::optional<ModelFailure> compareWithModel(ModelTest const& test);

} // namespace foundation::storage::conformance
