#pragma once

#include "location.hpp"

#include <foundation/storage/provider/copy_file_options.hpp>
#include <foundation/storage/vfs/storage_system/storage_system_reference.hpp>

#include <cstddef>
#include <memory>

namespace cli {

/// The complete new content of one file, on its way. Where the storage replaces files as a whole,
/// nothing is seen under the name before publish(); elsewhere the file is written in place. Without
/// publish() the destructor takes back what was created. For one thread.
class NewContent {
  public:
    enum class IfThere { Refuse, Replace };

    /// Throws Refusal where the policy forbids it, and what the storage throws.
    NewContent(foundation::storage::vfs::StorageSystemReference const& system,
               Location const& location, IfThere ifThere);
    ~NewContent();

    void write(char const* bytes, std::size_t count);
    void publish();

  private:
    class Target;
    class Replacement;
    class InPlace;

    std::unique_ptr<Target> target_;
};

} // namespace cli
