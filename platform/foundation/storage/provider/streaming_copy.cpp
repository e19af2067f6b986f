#include <foundation/storage/provider/streaming_copy.hpp>

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <random>
#include <utility>

namespace foundation::storage::provider {

namespace {

// A small file costs no more than the first buffer; whoever fills it gets the large one. Between
// memory and disks no size from 64 KiB to 8 MiB was measurably better than another; it is storages
// with a cost for each call that gain from the large one.
constexpr long firstBufferSize = 64 * 1024;
constexpr long largeBufferSize = 1024 * 1024;

[[noreturn]] void fail(ErrorCode code, StorageIRI const& location) {
    throw Exception(code, location);
}

bool replaces(ReplacementPolicy policy) {
    return policy != ReplacementPolicy::FailIfExists && policy != ReplacementPolicy::KeepExisting;
}

/// What is at a location, absence also where the provider throws for it.
ExtendedExistsResult kindOf(IProvider const& provider, StorageIRI const& location) {
    try {
        return provider.existsExtended(location);
    } catch (Exception const& e) {
        if (e.getErrorCode() != ErrorCode::ResourceNotFound) {
            throw;
        }
        return ExtendedExistsResult::Nothing;
    }
}

/// The canonical location; where a link leads nowhere, or in circles, that of the link itself.
StorageIRI placeOf(IProvider const& provider, StorageIRI const& location) {
    try {
        return provider.getCanonicalLocation(location);
    } catch (Exception const& e) {
        if (e.getErrorCode() != ErrorCode::ResourceNotFound &&
            e.getErrorCode() != ErrorCode::InvalidLocation) {
            throw;
        }
    }
    if (!location.hasParent()) {
        return location;
    }
    try {
        return StorageIRI(provider.getCanonicalLocation(location.getParent()), location.getName());
    } catch (Exception const&) {
        return location; // there is nothing at it that could be harmed
    }
}

/// Refuses what cannot be replaced by a file under the policy. `kind` is that of the destination.
void checkDestination(StorageItem const& destination, ExtendedExistsResult kind,
                      ReplacementPolicy policy) {
    if (kind == ExtendedExistsResult::Nothing) {
        return;
    }
    if (!replaces(policy)) {
        fail(ErrorCode::ResourceAlreadyExists, destination.getLocation());
    }
    if (kind == ExtendedExistsResult::Folder) {
        fail(ErrorCode::InvalidLocation, destination.getLocation());
    }
    if (kind == ExtendedExistsResult::Other) {
        fail(ErrorCode::UnsupportedOperation, destination.getLocation());
    }
    if (kind != ExtendedExistsResult::File) {
        return; // a link has no protection of its own
    }
    try {
        if (!destination.getFileAttributes().isWritable()) {
            fail(ErrorCode::PermissionDenied, destination.getLocation());
        }
    } catch (Exception const& e) {
        // A storage that tells no attributes protects no file.
        if (e.getErrorCode() != ErrorCode::UnsupportedOperation &&
            e.getErrorCode() != ErrorCode::ResourceNotFound) {
            throw;
        }
    }
}

/// Reports to the caller's progress, and turns its refusal into the end of the copy.
class Progress {
  public:
    Progress(IProvider const& provider, StorageIRI const& source, StorageIRI destination,
             CopyProgress const& report)
        : destination_(std::move(destination)),
          report_(report) {
        if (report_) { // the question may cost a round trip, so it is not asked in vain
            try {
                total_ = provider.getFileAttributes(source).values().size;
            } catch (Exception const&) {
                // The size stays unknown; whether the file can be read is for opening it to say.
            }
        }
    }

    void operator()(std::uint64_t done) {
        if (report_ && !report_(done, total_)) {
            canceled_ = true;
            fail(ErrorCode::IOError, destination_);
        }
    }

    bool isCanceled() const noexcept { return canceled_; }

  private:
    StorageIRI destination_;
    CopyProgress const& report_;
    std::optional<std::uint64_t> total_;
    bool canceled_ = false;
};

void copyBytes(ByteStream& from, ByteStream& to, Progress& progress) {
    long size = firstBufferSize;
    auto buffer = std::make_unique_for_overwrite<char[]>(firstBufferSize);
    std::uint64_t done = 0;
    for (;;) {
        long const got = from.read(buffer.get(), size);
        if (got <= 0) {
            break;
        }
        if (to.write(buffer.get(), got) != got) {
            throw ByteStreamWriteFailure("the destination took less than it was given",
                                         ErrorCode::IOError);
        }
        done += static_cast<std::uint64_t>(got);
        progress(done);
        if (got == firstBufferSize && size == firstBufferSize) {
            buffer.reset(); // never both at once
            buffer = std::make_unique_for_overwrite<char[]>(largeBufferSize);
            size = largeBufferSize;
        }
    }
    if (done == 0) {
        progress(0);
    }
    // A storage may find out only here that it did not deliver what it should have, so nothing is
    // published before.
    from.close();
    to.close();
}

/// Takes away again what a failed copy created, and nothing else.
class CreatedFile {
  public:
    explicit CreatedFile(StorageItem const& item) : item_(item) {}
    CreatedFile(CreatedFile const&) = delete;
    CreatedFile& operator=(CreatedFile const&) = delete;
    ~CreatedFile() {
        if (created_) {
            try {
                item_.removeFile();
            } catch (...) {
                // The failure of the copy is on its way out, and is the one to report.
            }
        }
    }

    void created() noexcept { created_ = true; }
    void keep() noexcept { created_ = false; }

  private:
    StorageItem const& item_;
    bool created_ = false;
};

void writeInPlace(ByteStream& from, StorageItem const& destination, ReplacementPolicy policy,
                  Progress& progress) {
    ExtendedExistsResult kind = kindOf(*destination.getProvider(), destination.getLocation());
    checkDestination(destination, kind, policy);
    if (kind != ExtendedExistsResult::Nothing && kind != ExtendedExistsResult::File) {
        destination.removeFile(); // a link is replaced, not written through
        kind = ExtendedExistsResult::Nothing;
    }
    CreatedFile created(destination); // goes after the stream: an open file need not be removable
    bool createdByOpening = false;
    if (kind == ExtendedExistsResult::Nothing) {
        try {
            destination.createFile(); // exclusive: what somebody else creates now stays theirs
            created.created();
        } catch (Exception const& e) {
            createdByOpening = e.getErrorCode() == ErrorCode::UnsupportedOperation;
            bool const replaced =
                e.getErrorCode() == ErrorCode::ResourceAlreadyExists && replaces(policy);
            if (!createdByOpening && !replaced) {
                throw;
            }
        }
    }
    auto const to =
        destination.openStream({ByteStreamAccess::WriteOnly, ByteStreamCreation::OpenOrCreate,
                                /*withoutTruncate=*/0, /*withoutAppend=*/1});
    if (createdByOpening) {
        created.created();
    }
    try {
        copyBytes(from, *to, progress);
    } catch (...) {
        if (progress.isCanceled()) {
            created.created(); // no part of the new content stays, and the old is gone
        }
        throw;
    }
    created.keep();
}

CopyStatus copyFileContent(IProvider& sourceProvider, StorageIRI const& source,
                           StorageItem const& destination, CopyFileOptions const& options) {
    auto const from = sourceProvider.openReadOnlyStream(source);
    Progress progress(sourceProvider, source, destination.getLocation(), options.progress);
    auto* replacing = dynamic_cast<extensions::IReplacingStreams*>(destination.getProvider().get());
    if (replacing) {
        auto const to = replacing->openReplacement(destination.getLocation(), options.policy);
        copyBytes(*from, *to, progress);
    } else {
        writeInPlace(*from, destination, options.policy, progress);
    }
    return CopyStatus::Copied;
}

StorageIRI temporaryNameBeside(StorageIRI const& location) {
    static constexpr char16_t digits[] = u"0123456789abcdefghijklmnopqrstuv";
    std::random_device random;
    ustring name = u".link-";
    for (int i = 0; i < 16; ++i) {
        name += digits[random() % 32];
    }
    return StorageIRI(location.getParent(), name);
}

CopyStatus copyLink(extensions::ILinks const& sourceLinks, StorageIRI const& source,
                    StorageItem const& destination, extensions::ILinks& destinationLinks,
                    ReplacementPolicy policy) {
    ustring const target = sourceLinks.readLink(source);
    StorageIRI const location = destination.getLocation();
    ExtendedExistsResult const kind = kindOf(*destination.getProvider(), location);
    checkDestination(destination, kind, policy);
    if (kind == ExtendedExistsResult::Nothing) {
        destinationLinks.createLink(location, target);
        return CopyStatus::Copied;
    }
    // Made beside the old item and moved over it, so that one of the two is always there.
    StorageItem const temporary(destination.getProvider(), temporaryNameBeside(location));
    destinationLinks.createLink(temporary.getLocation(), target);
    CreatedFile created(temporary);
    created.created();
    try {
        temporary.moveFile(location, policy);
        created.keep();
    } catch (Exception const& e) {
        if (e.getErrorCode() != ErrorCode::UnsupportedOperation) {
            // The caller knows nothing of the temporary item.
            fail(e.getErrorCode(), location);
        }
        destination.removeFile();
        destinationLinks.createLink(location, target);
    }
    return CopyStatus::Copied;
}

} // namespace

CopyStatus copyFileByStreams(IProvider& sourceProvider, StorageIRI const& source,
                             StorageItem const& destination, CopyFileOptions const& options) {
    ExtendedExistsResult const kind = kindOf(sourceProvider, source);
    switch (kind) {
    case ExtendedExistsResult::Nothing:
        fail(ErrorCode::ResourceNotFound, source);
    case ExtendedExistsResult::Folder:
        fail(ErrorCode::InvalidLocation, source);
    case ExtendedExistsResult::Other:
        fail(ErrorCode::UnsupportedOperation, source);
    case ExtendedExistsResult::File:
    case ExtendedExistsResult::LinkToFile:
    case ExtendedExistsResult::LinkToFolder:
    case ExtendedExistsResult::DanglingLink:
        break;
    }
    IProvider& destinationProvider = *destination.getProvider();
    if (&sourceProvider == &destinationProvider &&
        placeOf(sourceProvider, source) == placeOf(sourceProvider, destination.getLocation())) {
        fail(ErrorCode::InvalidLocation, source);
    }
    if (kind != ExtendedExistsResult::File) {
        auto* sourceLinks = dynamic_cast<extensions::ILinks*>(&sourceProvider);
        auto* destinationLinks = dynamic_cast<extensions::ILinks*>(&destinationProvider);
        if (sourceLinks && destinationLinks) {
            return copyLink(*sourceLinks, source, destination, *destinationLinks, options.policy);
        }
        if (kind != ExtendedExistsResult::LinkToFile) {
            fail(ErrorCode::UnsupportedOperation, source);
        }
    }
    return copyFileContent(sourceProvider, source, destination, options);
}

} // namespace foundation::storage::provider
