#pragma once

#include "output.hpp"

#include <foundation/storage/vfs/storage_system/storage_system.hpp>
#include <foundation/storage/vfs/storage_system/storage_system_reference.hpp>

#include <memory>

namespace cli {

/// What all commands of one process share: the storage system, so that `mem:` keeps what one
/// command of a script wrote for the next, and standard output. For one thread.
class Host {
  public:
    /// With every provider that was built.
    Host();
    explicit Host(std::shared_ptr<foundation::storage::vfs::StorageSystem> system);

    foundation::storage::vfs::StorageSystemReference const& system() const noexcept {
        return reference_;
    }
    Output& output() noexcept { return output_; }

    /// Whether standard input holds a script, and so no data.
    bool inputIsScript() const noexcept { return inputIsScript_; }
    void useInputAsScript() noexcept { inputIsScript_ = true; }

  private:
    std::shared_ptr<foundation::storage::vfs::StorageSystem> system_;
    foundation::storage::vfs::StorageSystemReference reference_;
    Output output_;
    bool inputIsScript_ = false;
};

} // namespace cli
