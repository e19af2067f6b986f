#pragma once

#include <foundation/storage/provider/local/detail/kernel_path.hpp>

#include <string>
#include <sys/types.h>

namespace foundation::storage::provider::local::detail {

/// A name that nothing else in a folder has, for something that stands there for a moment.
std::string temporaryName();

/// Whether an error number of StagedFile::settle() says that nothing could be asked.
bool meansNoDescriptor(int error) noexcept;

/// A new file that has no name yet, or a temporary one where the file system knows no unnamed
/// files; publish() gives it its final name in one step. Destroyed without that, it leaves no
/// trace; an unnamed one leaves none either when the process is killed. For one thread at a time.
class StagedFile {
  public:
    enum class Existing { Refuse, Replace };

    /// Opens for reading and writing; `mode` is subject to the umask. Throws provider::Exception
    /// naming `location`. Holds the slot's folder where a temporary name is needed. REQUIRES:
    /// `slot` outlives this.
    StagedFile(FolderSlot& slot, mode_t mode, StorageIRI const& location);
    StagedFile(StagedFile const&) = delete;
    StagedFile& operator=(StagedFile const&) = delete;
    ~StagedFile();

    int descriptor() const noexcept { return file_.get(); }

    /// Reports what the file system has kept back so far (as network file systems do), so that
    /// nothing incomplete is published. The error number, or 0; after one of meansNoDescriptor()
    /// it may be tried again.
    int settle() noexcept;
    /// Gives the file its name. After a failure it may be tried again. The error number, or 0.
    int publish(Existing existing) noexcept;

  private:
    int takeTemporaryName() noexcept;

    FolderSlot& slot_;
    FileDescriptor file_;
    std::string temporary_; ///< the name of a file that has one already
};

} // namespace foundation::storage::provider::local::detail
