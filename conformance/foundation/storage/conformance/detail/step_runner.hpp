#pragma once

#include <foundation/storage/conformance/contract.hpp>
#include <foundation/storage/conformance/detail/model_step.hpp>
#include <foundation/storage/provider/byte_stream.hpp>

#include <array>
#include <memory>
#include <string>

namespace foundation::storage::conformance::detail {

/// Does steps on a provider, and says what they give. For one thread.
class StepRunner {
  public:
    explicit StepRunner(Place place) : place_(std::move(place)) {}

    std::string run(Step const& step);

  private:
    std::string perform(Step const& step);
    std::string list(provider::StorageIRI const& location) const;
    std::string use(Step const& step);
    provider::StorageIRI at(std::string const& path) const;

    Place place_;
    std::array<std::unique_ptr<provider::ByteStream>, streamSlots> streams_;
};

} // namespace foundation::storage::conformance::detail
