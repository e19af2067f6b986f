// A provider may lack any one ability: what it declares so is refused, and no case wants it all the
// same.

#include <foundation/storage/conformance/contract.hpp>
#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/memory/memory_factory.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <boost/property_tree/ptree.hpp>
#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <sstream>

namespace {

using namespace foundation::storage::provider;
using namespace foundation::storage::conformance;

/// The ability that an operation alone stands for.
std::optional<Ability> abilityOf(Operation operation) {
    static std::map<Operation, Ability> const abilities{
        {Operation::GetFileAttributes, Ability::FileAttributes},
        {Operation::GetFolderAttributes, Ability::FolderAttributes},
        {Operation::GetExtendedAttributes, Ability::ExtendedAttributes},
        {Operation::SetLastModified, Ability::Times},
        {Operation::SetWritable, Ability::ReadOnlyItems},
        {Operation::CreateFile, Ability::FileCreation},
        {Operation::CreateFolder, Ability::FolderCreation},
        {Operation::CreateFolderRecursive, Ability::FolderChainCreation},
        {Operation::RemoveFile, Ability::FileRemoval},
        {Operation::RemoveFolder, Ability::FolderRemoval},
        {Operation::RemoveFolderRecursively, Ability::TreeRemoval},
        {Operation::MoveFile, Ability::FileMoves},
        {Operation::OpenReadOnlyStream, Ability::Reading},
        {Operation::OpenStream, Ability::Writing},
        {Operation::ListAll, Ability::Listing},
        {Operation::ListFiles, Ability::Listing},
        {Operation::ListFolders, Ability::Listing},
        {Operation::ListAllNamesOnly, Ability::Listing},
        {Operation::ListFilesNamesOnly, Ability::Listing},
        {Operation::ListFoldersNamesOnly, Ability::Listing},
        {Operation::ListAllRecursive, Ability::RecursiveListing},
        {Operation::ListAllRecursiveNamesOnly, Ability::RecursiveListing},
        {Operation::CreateLink, Ability::LinkCreation},
    };
    auto const found = abilities.find(operation);
    return found != abilities.end() ? std::optional(found->second) : std::nullopt;
}

Ability abilityOf(ExtendedFeature feature) {
    switch (feature) {
    case ExtendedFeature::RecursiveFolderRemoval:
        return Ability::TreeRemoval;
    case ExtendedFeature::RecursiveListing:
        return Ability::RecursiveListing;
    case ExtendedFeature::FlatWildcardListing:
        return Ability::FlatWildcards;
    case ExtendedFeature::RecursiveChangeEvents:
        return Ability::RecursiveChangeEvents;
    case ExtendedFeature::RecursiveWildcardListing:
        break;
    }
    return Ability::RecursiveWildcards;
}

class Lesser : public ProviderDecorator {
  public:
    bool hasFeature(StorageIRI const& location, ExtendedFeature const& feature) const override {
        return !lacking_.contains(abilityOf(feature)) &&
               ProviderDecorator::hasFeature(location, feature);
    }
    CopyStatus copyFile(StorageIRI const& source, StorageItem const& destination,
                        CopyFileOptions const& options) override {
        if (lacking_.contains(Ability::FileCopies) && destination.getProvider().get() == this) {
            throw Exception(ErrorCode::UnsupportedOperation, source);
        }
        return ProviderDecorator::copyFile(source, destination, options);
    }
    void moveFolder(StorageIRI const& source, StorageIRI const& destination,
                    ReplacementPolicy const& policy) override {
        if (lacking_.contains(Ability::FolderMoves)) {
            IProvider::moveFolder(source, destination, policy);
        }
        ProviderDecorator::moveFolder(source, destination, policy);
    }
    void publishFileEvents(StorageIRI const& location, ChangeCallback callback,
                           ChangeKinds const& kinds) override {
        refuseEvents(location, Ability::ChangeEvents);
        ProviderDecorator::publishFileEvents(location, std::move(callback), kinds);
    }
    void publishFolderEvents(StorageIRI const& location, ChangeCallback callback,
                             ChangeKinds const& kinds, RecursiveFileWatching recursive) override {
        refuseEvents(location, Ability::ChangeEvents);
        if (recursive == RecursiveFileWatching::Recursive) {
            refuseEvents(location, Ability::RecursiveChangeEvents);
        }
        ProviderDecorator::publishFolderEvents(location, std::move(callback), kinds, recursive);
    }
    void stopPublishingFileEvents(StorageIRI const& location) override {
        refuseEvents(location, Ability::ChangeEvents);
        ProviderDecorator::stopPublishingFileEvents(location);
    }
    void stopPublishingFolderEvents(StorageIRI const& location) override {
        refuseEvents(location, Ability::ChangeEvents);
        ProviderDecorator::stopPublishingFolderEvents(location);
    }

  protected:
    Lesser(std::shared_ptr<IProvider> inner, AbilitySet lacking)
        : ProviderDecorator(std::move(inner)),
          lacking_(lacking) {}

    void before(Operation operation, StorageIRI const* location) const override {
        auto const ability = abilityOf(operation);
        if (ability && lacking_.contains(*ability)) {
            throw Exception(ErrorCode::UnsupportedOperation, *location);
        }
    }
    std::unique_ptr<IFolderEntryIterator> doList(Operation operation, Listing listing,
                                                 StorageIRI const& location,
                                                 ustring const& filter) const override {
        bool const isTree = abilityOf(operation) == Ability::RecursiveListing;
        bool const ignored =
            lacking_.contains(isTree ? Ability::RecursiveWildcards : Ability::FlatWildcards);
        return ProviderDecorator::doList(operation, listing, location, ignored ? u"" : filter);
    }

  private:
    void refuseEvents(StorageIRI const& location, Ability ability) const {
        if (lacking_.contains(ability)) {
            throw ChangeEventsNotSupportedException(location);
        }
    }

    AbilitySet const lacking_;
};

/// What goes with an ability that a provider lacks.
AbilitySet withWhatFollows(Ability ability) {
    switch (ability) {
    case Ability::RecursiveListing:
        return ability | Ability::RecursiveWildcards;
    case Ability::ChangeEvents:
        return ability | Ability::RecursiveChangeEvents;
    default:
        return ability;
    }
}

class ContractOfAProviderWithout : public testing::TestWithParam<Ability> {};

TEST_P(ContractOfAProviderWithout, IsKept) {
    AbilitySet const lacking = withWhatFollows(GetParam());
    Report const report = checkContract(
        {.name = "Lesser",
         .makePlace =
             [lacking] {
                 return Place{decorate<Lesser>(memory::buildMemoryProvider(), lacking),
                              StorageIRI(u"mem:/")};
             },
         .unsupported = lacking | Ability::Flushing});
    EXPECT_TRUE(report.isKept()) << report;
    EXPECT_GT(report.count(Outcome::Kept), 150U);
}

std::vector<Ability> singleAbilities() {
    std::vector<Ability> abilities;
    for (std::uint32_t number = 0; number < abilityCount; ++number) {
        auto const ability = static_cast<Ability>(number);
        // Extensions are there or not by the provider's class.
        AbilitySet const extensions = Ability::Links | Ability::Replacement |
                                      Ability::FolderAttributeChange | Ability::Flushing;
        if (!extensions.contains(ability)) {
            abilities.push_back(ability);
        }
    }
    return abilities;
}

INSTANTIATE_TEST_SUITE_P(AnyOneAbility, ContractOfAProviderWithout,
                         testing::ValuesIn(singleAbilities()), [](auto const& tested) {
                             std::ostringstream name;
                             name << tested.param;
                             return name.str();
                         });

} // namespace
