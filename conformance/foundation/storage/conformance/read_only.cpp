#include <foundation/storage/conformance/read_only.hpp>

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <utility>

namespace foundation::storage::conformance {

using namespace foundation::storage::provider;

namespace {

/// Of a copy it depends on where to; what the extensions change is not asked for.
bool changes(Operation operation) {
    switch (operation) {
    case Operation::SetLastModified:
    case Operation::SetWritable:
    case Operation::CreateFile:
    case Operation::CreateFolder:
    case Operation::CreateFolderRecursive:
    case Operation::RemoveFile:
    case Operation::RemoveFolder:
    case Operation::RemoveFolderRecursively:
    case Operation::MoveFile:
    case Operation::MoveFolder:
    case Operation::OpenStream:
    case Operation::CreateLink:
        return true;
    default:
        return false;
    }
}

} // namespace

ReadOnly::ReadOnly(std::shared_ptr<IProvider> inner) : ProviderDecorator(std::move(inner)) {}

bool ReadOnly::hasFeature(StorageIRI const& location, ExtendedFeature const& feature) const {
    return feature != ExtendedFeature::RecursiveFolderRemoval &&
           ProviderDecorator::hasFeature(location, feature);
}

CopyStatus ReadOnly::copyFile(StorageIRI const& source, StorageItem const& destination,
                              CopyFileOptions const& options) {
    if (destination.getProvider().get() == this) {
        throw Exception(ErrorCode::ReadOnlyProvider, destination.getLocation());
    }
    return ProviderDecorator::copyFile(source, destination, options);
}

void ReadOnly::before(Operation operation, StorageIRI const* location) const {
    if (changes(operation)) {
        throw Exception(ErrorCode::ReadOnlyProvider, *location);
    }
}

} // namespace foundation::storage::conformance
