#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/attributes.hpp>
#include <foundation/storage/provider/byte_stream_device.hpp>
#include <foundation/storage/provider/byte_stream_open_options.hpp>
#include <foundation/storage/provider/change_events.hpp>
#include <foundation/storage/provider/copy_file_options.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/vfs/iri/absolute_iri.hpp>
#include <foundation/storage/vfs/resources/resource.hpp>
#include <foundation/storage/vfs/storage_system/storage_system_reference.hpp>

#include <iosfwd>
#include <memory>

namespace foundation::storage::vfs {

/// A handle on a file. It names the file and its provider and says nothing about whether the file
/// is there; it holds no open resource and caches nothing. It keeps the provider alive, not the
/// storage system: operations that only need the provider go on working when the system is gone.
///
/// A copy costs one reference count. Const operations may run on any number of threads, as far as
/// the provider allows; assignment and swap need a handle of their own. A moved-from handle may
/// only be assigned to or destroyed.
///
/// Unless stated otherwise, operations throw vfs::Exception with the location that the provider
/// named.
class FOUNDATION_EXPORT File : public Resource {
  public:
    /// Ask the system for the provider, and touch nothing else. Throw vfs::Exception,
    /// UnsupportedIRISchemeException, and std::runtime_error where the system is gone.
    File(AbsoluteIRI const& location, StorageSystemReference storageSystem);
    /// The handle answers getCanonicalLocation() without asking the provider.
    File(CanonicalAbsoluteIRI const& location, StorageSystemReference storageSystem);
    /// The file `name` in `parent`, of the same provider. Throws provider::Exception, untranslated,
    /// for a name that is empty, absolute or climbs.
    File(Folder const& parent, ustring const& name);
    File(provider::StorageItem item, StorageSystemReference storageSystem);

    File(File const&) = default;
    File(File&&) noexcept = default;
    File& operator=(File const&) = default;
    File& operator=(File&&) noexcept = default;
    ~File() override;

    AbsoluteIRI getLocation() const override;
    CanonicalAbsoluteIRI getCanonicalLocation() const;
    /// Provider exceptions are not translated by these three.
    ustring getName() const;
    /// From the last dot of the name to its end, dot included; empty without a dot.
    ustring getExtension() const;
    Folder getParent() const;
    StorageSystemReference getStorageSystem() const;

    void createFile() const;
    void removeFile() const;
    bool fileExists() const;
    provider::FileAttributes getAttributes() const;
    provider::ExtendedAttributes getExtendedAttributes() const;
    void setLastModified(boost::posix_time::ptime const& time) const;
    void setWritable(bool writable) const;

    /// The open bytes, unbuffered. What the device then throws is the provider's own; IODevice
    /// translates.
    provider::GenericByteStreamDevice<provider::ByteStream>
    open(provider::ByteStreamOpenOptions const& options) const;
    provider::GenericByteStreamDevice<provider::ByteStream> openReadOnly() const;

    /// Copies the bytes, by the provider where it can. Within one scheme the time of the last
    /// change is carried over where possible. Under ReplaceReadOnly a read-only destination is
    /// unlocked, and locked again where the provider kept the times.
    void copyFile(File const& destination, provider::ReplacementPolicy const& policy) const;
    provider::CopyStatus copyFile(File const& destination,
                                  provider::CopyFileOptions const& options) const;
    /// Moves by the provider where both have one scheme, otherwise copies and removes. A failed
    /// removal leaves both files.
    void moveFile(File const& destination, provider::ReplacementPolicy const& policy) const;

    /// Adds a publication of this file's changes: the provider calls a copy of the publisher with
    /// each of these kinds, and with overflows, until it is stopped (events/event_publisher.hpp).
    void publishEvents(EventPublisher const& publisher, provider::ChangeKinds const& kinds) const;
    /// Throws vfs::Exception with InvalidLocation: nothing is below a file.
    [[noreturn]] void publishEventsRecursively(RecursiveEventPublisher const& publisher,
                                               provider::ChangeKinds const& kinds) const;
    /// Ends what the oldest publication of this file's changes started.
    void stopPublishingEvents() const;

    /// Exchanges what the handles name; each keeps its storage system and whether it is canonical.
    void swap(File& other);

    /// Compare locations alone, as provider::StorageIRI does.
    bool operator==(File const& other) const;
    bool operator!=(File const& other) const;
    bool operator<(File const& other) const;

  private:
    struct Impl;

    provider::CopyStatus doCopyFile(File const& destination,
                                    provider::CopyFileOptions const& options) const;
    void doMoveFile(File const& destination, provider::ReplacementPolicy const& policy) const;
    void carryTimeOver(File const& destination) const;

    std::shared_ptr<Impl const> impl_;
};

/// Writes the location.
FOUNDATION_EXPORT std::ostream& operator<<(std::ostream& out, File const& file);

} // namespace foundation::storage::vfs
