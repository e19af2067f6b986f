#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/extensions/i_resting_stream.hpp>
#include <foundation/storage/provider/fwd.hpp>

#include <memory>

namespace foundation::storage::provider::extensions {

/// Second base of a stream for reading that is of the version of the file that was there when it
/// was opened: where there is another one by now, reading fails, as far as the storage tells one
/// version from another; a server may tell no more than size and time. It may be kept as long as
/// one likes; found by a dynamic cast.
class FOUNDATION_EXPORT IPinnedStream : public IRestingStream {
  public:
    ~IPinnedStream() override;
    /// Another stream of the same version, at its start. The storage is not asked before it is
    /// read, and not for bytes that came with the opening of this one. Safe on any thread, as long
    /// as nobody does anything else with this one. REQUIRES: it is not closed.
    virtual std::unique_ptr<ByteStream> openAnother() const = 0;
    /// Whether reading has failed by there being another version of the file, so that what was made
    /// of this one is outdated; not where it failed by what may pass.
    virtual bool isOutdated() const noexcept = 0;
};

} // namespace foundation::storage::provider::extensions
