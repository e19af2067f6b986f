#include "flawed_provider.hpp"

#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/memory/memory_factory.hpp>

namespace conformance_test {

using namespace foundation::storage::provider;

namespace {

class FlawedProvider : public foundation::storage::conformance::ProviderDecorator {
  public:
    void createFile(StorageIRI const& location) override {
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
            if (is(Flaw::MissingFileIsAnotherOne)) {
                throw Exception(e.getErrorCode(), location.getParent());
            }
            throw;
        }
    }

  protected:
    FlawedProvider(std::shared_ptr<IProvider> inner, Flaw flaw)
        : ProviderDecorator(std::move(inner)),
          flaw_(flaw) {}

  private:
    bool is(Flaw flaw) const { return flaw_ == flaw; }

    Flaw const flaw_;
};

} // namespace

std::shared_ptr<IProvider> buildFlawedProvider(Flaw flaw) {
    return foundation::storage::conformance::decorate<FlawedProvider>(memory::buildMemoryProvider(),
                                                                      flaw);
}

} // namespace conformance_test
