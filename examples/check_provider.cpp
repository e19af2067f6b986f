#include <foundation/storage/conformance/contract.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <iostream>
namespace conformance = foundation::storage::conformance;
namespace provider = foundation::storage::provider;

class Greetings : public provider::IProvider {
    provider::ExistsResult exists(provider::StorageIRI const& location) const override {
        using enum provider::ExistsResult;
        return location.getResolvedPath() == u"/hello" ? File : Nothing;
    }
};

int main() {
    conformance::Contract contract;
    contract.name = "Greetings";
    contract.makePlace = [] {
        return conformance::Place{
            std::make_shared<Greetings>(), provider::StorageIRI(u"hi:/"), {{u"hello"}}};
    };
    contract.unsupported = conformance::allAbilities;
    contract.deviations = {
        {"Existence.ThePlaceIsAFolder", "there is one file, and no folder that it is in"},
        {"Existence.TheCanonicalLocationInAMissingFolderIsNotFound", "no storage is asked"},
    };
    conformance::Report const report = conformance::checkContract(contract);
    std::cout << report;
    return report.isKept() ? 0 : 1;
}
