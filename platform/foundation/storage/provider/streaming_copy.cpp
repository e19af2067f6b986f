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
#include <typeinfo>
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

/// How a file comes to be what a copy writes into.
enum class Made { Before, Here, ByOpening };

/// Sees to it that a file may be written at the destination, and creates one where nothing is.
Made prepareInPlace(StorageItem const& destination, ReplacementPolicy policy) {
    for (bool mayLookAgain = true;; mayLookAgain = false) {
        ExtendedExistsResult const kind =
            kindOf(*destination.getProvider(), destination.getLocation());
        checkDestination(destination, kind, policy);
        if (kind == ExtendedExistsResult::File) {
            return Made::Before;
        }
        if (kind != ExtendedExistsResult::Nothing) {
            destination.removeFile(); // a link is replaced, not written through
        }
        try {
            destination.createFile(); // exclusive: what somebody else creates now stays theirs
            return Made::Here;
        } catch (Exception const& e) {
            if (e.getErrorCode() == ErrorCode::UnsupportedOperation) {
                return Made::ByOpening;
            }
            // What has come into being meanwhile is for the policy to judge.
            if (e.getErrorCode() != ErrorCode::ResourceAlreadyExists || !mayLookAgain) {
                throw;
            }
        }
    }
}

void writeInPlace(ByteStream& from, StorageItem const& destination, ReplacementPolicy policy,
                  Progress& progress) {
    CreatedFile created(destination); // goes after the stream: an open file need not be removable
    Made const made = prepareInPlace(destination, policy);
    if (made == Made::Here) {
        created.created();
    }
    auto const to =
        destination.openStream({ByteStreamAccess::WriteOnly, ByteStreamCreation::OpenOrCreate,
                                /*withoutTruncate=*/0, /*withoutAppend=*/1});
    if (made == Made::ByOpening) {
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

/// Gives the new file the mode and the time of its source; false where one of the two storages
/// knows nothing of them.
bool describe(ByteStream& to, IProvider const& sourceProvider, StorageIRI const& source) {
    auto* const described = dynamic_cast<extensions::INewFileAttributes*>(&to);
    if (!described) {
        return false;
    }
    try {
        AttributeValues const values = sourceProvider.getFileAttributes(source).values();
        described->setNewFileAttributes({values.mode, values.lastModified});
        return true;
    } catch (Exception const& e) {
        if (e.getErrorCode() != ErrorCode::UnsupportedOperation) {
            throw;
        }
        return false;
    }
}

CopyStatus copyFileContent(IProvider& sourceProvider, StorageIRI const& source,
                           StorageItem const& destination, CopyFileOptions const& options) {
    auto const from = sourceProvider.openReadOnlyStream(source);
    Progress progress(sourceProvider, source, destination.getLocation(), options.progress);
    auto* replacing = dynamic_cast<extensions::IReplacingStreams*>(destination.getProvider().get());
    if (replacing) {
        auto const to = replacing->openReplacement(destination.getLocation(), options.policy);
        bool const isDescribed = describe(*to, sourceProvider, source);
        copyBytes(*from, *to, progress);
        if (isDescribed) {
            return CopyStatus::CopiedWithTimes;
        }
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

bool isLink(ExtendedExistsResult kind) {
    return kind == ExtendedExistsResult::LinkToFile || kind == ExtendedExistsResult::LinkToFolder ||
           kind == ExtendedExistsResult::DanglingLink;
}

/// Puts a link at a location where something is.
void replaceByLink(StorageItem const& destination, ExtendedExistsResult kind,
                   extensions::ILinks& links, ustring const& target, ReplacementPolicy policy) {
    StorageIRI const location = destination.getLocation();
    if (isLink(kind) && links.readLink(location) == target) {
        return;
    }
    // Made beside the old item and moved over it, so that one of the two is always there.
    StorageItem const temporary(destination.getProvider(), temporaryNameBeside(location));
    links.createLink(temporary.getLocation(), target);
    CreatedFile created(temporary);
    created.created();
    try {
        temporary.moveFile(location, policy);
        created.keep();
        return;
    } catch (Exception const& e) {
        // Two links that lead to one item may be taken for that item; to take a link away for
        // another loses nothing.
        bool const sameTarget = e.getErrorCode() == ErrorCode::InvalidLocation && isLink(kind);
        if (e.getErrorCode() != ErrorCode::UnsupportedOperation && !sameTarget) {
            fail(e.getErrorCode(), location); // the caller knows nothing of the temporary item
        }
    }
    destination.removeFile();
    links.createLink(location, target);
}

CopyStatus copyLink(extensions::ILinks const& sourceLinks, StorageIRI const& source,
                    StorageItem const& destination, extensions::ILinks& destinationLinks,
                    CopyFileOptions const& options) {
    ustring const target = sourceLinks.readLink(source);
    StorageIRI const location = destination.getLocation();
    ExtendedExistsResult const kind = kindOf(*destination.getProvider(), location);
    checkDestination(destination, kind, options.policy);
    if (options.progress && !options.progress(0, 0)) {
        fail(ErrorCode::IOError, location);
    }
    if (kind == ExtendedExistsResult::Nothing) {
        destinationLinks.createLink(location, target);
    } else {
        replaceByLink(destination, kind, destinationLinks, target, options.policy);
    }
    // What the caller would do next to the destination, it would do to what the link leads to,
    // which was not copied. After unlocking a destination the lesser harm is a time, not a lock.
    return options.policy == ReplacementPolicy::ReplaceReadOnly ? CopyStatus::Copied
                                                                : CopyStatus::CopiedWithTimes;
}

/// Whether writing to the destination may destroy the source. Providers of one kind may serve one
/// storage without knowing of each other; where the destination replaces whole files, a source that
/// is the destination keeps its content.
bool mayBeOneItem(IProvider const& sourceProvider, StorageIRI const& source,
                  StorageItem const& destination) {
    IProvider const& destinationProvider = *destination.getProvider();
    if (&sourceProvider != &destinationProvider) {
        if (typeid(sourceProvider) != typeid(destinationProvider) ||
            dynamic_cast<extensions::IReplacingStreams const*>(&destinationProvider) ||
            kindOf(destinationProvider, destination.getLocation()) ==
                ExtendedExistsResult::Nothing) {
            return false;
        }
    }
    return placeOf(sourceProvider, source) ==
           placeOf(destinationProvider, destination.getLocation());
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
    if (mayBeOneItem(sourceProvider, source, destination)) {
        fail(ErrorCode::InvalidLocation, source);
    }
    if (kind != ExtendedExistsResult::File) {
        auto* sourceLinks = dynamic_cast<extensions::ILinks*>(&sourceProvider);
        auto* destinationLinks = dynamic_cast<extensions::ILinks*>(&destinationProvider);
        if (sourceLinks && destinationLinks) {
            return copyLink(*sourceLinks, source, destination, *destinationLinks, options);
        }
        if (kind != ExtendedExistsResult::LinkToFile) {
            fail(ErrorCode::UnsupportedOperation, source);
        }
    }
    return copyFileContent(sourceProvider, source, destination, options);
}

} // namespace foundation::storage::provider
