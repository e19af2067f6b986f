#include "flawed_provider.hpp"

#include "flawed_pieces.hpp"

#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/memory/memory_factory.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <boost/property_tree/ptree.hpp>

#include <algorithm>
#include <chrono>
#include <ostream>
#include <thread>
#include <utility>

namespace conformance_test {

using namespace foundation::storage::provider;
using foundation::storage::conformance::Operation;
using foundation::storage::conformance::ProviderDecorator;

namespace {

class FlawedProvider : public ProviderDecorator {
  public:
    bool hasFeature(StorageIRI const& location, ExtendedFeature const& feature) const override {
        return !(is(Flaw::FeatureIsNotDeclared) && feature == ExtendedFeature::RecursiveListing) &&
               ProviderDecorator::hasFeature(location, feature);
    }

    void createFile(StorageIRI const& location) override {
        if (is(Flaw::CreationRaces)) {
            if (exists(location) != ExistsResult::Nothing) {
                throw Exception(ErrorCode::ResourceAlreadyExists, location);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            openStream(location, {})->close();
            return;
        }
        try {
            ProviderDecorator::createFile(location);
        } catch (Exception const& e) {
            if (is(Flaw::ErrorCodeSwapped) &&
                e.getErrorCode() == ErrorCode::ResourceAlreadyExists) {
                throw Exception(ErrorCode::InvalidLocation, e.getStorageIRI());
            }
            throw;
        }
    }

    void removeFile(StorageIRI const& location) override {
        try {
            ProviderDecorator::removeFile(location);
        } catch (Exception const& e) {
            if (is(Flaw::FailureNamesTheFolder)) {
                throw Exception(e.getErrorCode(), location.getParent());
            }
            throw;
        }
    }

    void removeFolder(StorageIRI const& location) override {
        if (is(Flaw::FullFolderIsRemoved)) {
            ProviderDecorator::removeFolderRecursively(location);
        } else {
            ProviderDecorator::removeFolder(location);
        }
    }

    void removeFolderRecursively(StorageIRI const& location) override {
        ProviderDecorator::removeFolderRecursively(location);
        if (is(Flaw::RemovalTakesPrefixes)) {
            StorageIRI const folder = location.getParent();
            auto const cursor = getInner()->listFoldersNamesOnly(folder, location.getName() + u"*");
            while (cursor->hasNext()) {
                cursor->advance();
                StorageIRI const alike(folder, cursor->currentEntry().getName());
                ProviderDecorator::removeFolderRecursively(alike);
            }
        }
    }

    void setLastModified(StorageIRI const& location,
                         boost::posix_time::ptime const& time) override {
        Timestamp stamp = toTimestamp(time);
        if (is(Flaw::TimesAreRounded)) {
            stamp.nanoseconds = 0;
        }
        ProviderDecorator::setLastModified(location, toPtime(stamp));
    }

    CopyStatus copyFile(StorageIRI const& source, StorageItem const& destination,
                        CopyFileOptions const& options) override {
        CopyFileOptions changed = options;
        if (is(Flaw::CopyOverwrites)) {
            changed.policy = ReplacementPolicy::ReplaceExisting;
        }
        return ProviderDecorator::copyFile(source, destination, changed);
    }

    void moveFile(StorageIRI const& source, StorageIRI const& destination,
                  ReplacementPolicy const& policy) override {
        ProviderDecorator::moveFile(source, destination,
                                    is(Flaw::RenameOverwrites) ? ReplacementPolicy::ReplaceExisting
                                                               : policy);
    }

    std::unique_ptr<ByteStream> openStream(StorageIRI const& location,
                                           ByteStreamOpenOptions const& options) override {
        ByteStreamOpenOptions changed = options;
        if (is(Flaw::AppendTruncates) && options.withoutAppend == 0) {
            changed.withoutTruncate = 0;
        }
        return withFlaw(ProviderDecorator::openStream(location, changed));
    }
    std::unique_ptr<ByteStream> openReadOnlyStream(StorageIRI const& location) const override {
        return withFlaw(ProviderDecorator::openReadOnlyStream(location));
    }

    void publishFolderEvents(StorageIRI const& location, ChangeCallback callback,
                             ChangeKinds const& kinds, RecursiveFileWatching recursive) override {
        ChangeKinds told = kinds;
        if (is(Flaw::RemovalIsNotTold)) {
            std::erase(told, foundation::storage::events::Kind::Removed);
        }
        ProviderDecorator::publishFolderEvents(location, std::move(callback), told, recursive);
    }

  protected:
    FlawedProvider(std::shared_ptr<IProvider> inner, Flaw flaw)
        : ProviderDecorator(std::move(inner)),
          flaw_(flaw) {}

    std::unique_ptr<IFolderEntryIterator> doList(Operation operation, Listing listing,
                                                 StorageIRI const& location,
                                                 ustring const& filter) const override {
        auto cursor = ProviderDecorator::doList(operation, listing, location, filter);
        switch (flaw_) {
        case Flaw::HasNextAdvances:
            return std::make_unique<CursorThatIsMovedByAsking>(std::move(cursor));
        case Flaw::CloneSharesItsPosition:
            return std::make_unique<CursorThatIsShared>(std::move(cursor));
        case Flaw::HiddenNamesAreNotListed:
            return std::make_unique<CursorOverWhatIsNotHidden>(*cursor);
        default:
            return cursor;
        }
    }

  private:
    bool is(Flaw flaw) const { return flaw_ == flaw; }

    std::unique_ptr<ByteStream> withFlaw(std::unique_ptr<ByteStream> stream) const {
        switch (flaw_) {
        case Flaw::StreamLosesTheLastChunk:
            return std::make_unique<StreamThatLosesTheLastChunk>(std::move(stream));
        case Flaw::ReadsAreShort:
            return std::make_unique<StreamOfShortReads>(std::move(stream));
        case Flaw::SeekBeforeTheStartClamps:
            return std::make_unique<StreamThatClampsPositions>(std::move(stream));
        default:
            return stream;
        }
    }

    Flaw const flaw_;
};

} // namespace

std::ostream& operator<<(std::ostream& out, Flaw flaw) {
    return out << "flaw " << static_cast<std::uint32_t>(flaw);
}

std::shared_ptr<IProvider> buildFlawedProvider(Flaw flaw) {
    return foundation::storage::conformance::decorate<FlawedProvider>(memory::buildMemoryProvider(),
                                                                      flaw);
}

} // namespace conformance_test
