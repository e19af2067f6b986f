#include <foundation/storage/provider/i_provider.hpp>

class Greetings : public foundation::storage::provider::IProvider {
    using StorageIRI = foundation::storage::provider::StorageIRI;
    using ExistsResult = foundation::storage::provider::ExistsResult;
    ExistsResult exists(StorageIRI const& location) const override {
        return location.getResolvedPath() == u"/hello" ? ExistsResult::File : ExistsResult::Nothing;
    }
};
