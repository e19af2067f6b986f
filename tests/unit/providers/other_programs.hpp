#pragma once

#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <functional>
#include <iosfwd>
#include <memory>
#include <string>

/// Archives that other programs make are held to what these programs make of them again.
namespace foundation::storage::provider::test {

/// What a format and its program keep.
enum class Times { Exact, Seconds, None };
enum class Modes { Kept, Lost };

/// How an archive of the folder `tree` is made at $A, and extracted in another folder.
struct OtherProgram {
    char const* title;
    char const* tools; ///< that both need
    char const* make;
    char const* extract;
    Times times = Times::Seconds;
    Modes modes = Modes::Kept;
};

std::ostream& operator<<(std::ostream& out, OtherProgram const& program);

bool isInstalled(std::string const& tool);

/// Makes the tree, the archive and what its program extracts, in a folder of their own, and expects
/// that a provider has the same entries with the same content. A test is skipped, with the name of
/// the tool, where one is not installed.
void expectTheSame(OtherProgram const& program, std::string const& scheme,
                   std::function<std::shared_ptr<IProvider>(StorageItem const&)> const& build);

} // namespace foundation::storage::provider::test
