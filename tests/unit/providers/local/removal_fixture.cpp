#include "removal_fixture.hpp"

#include <foundation/storage/provider/local_path.hpp>

namespace foundation::storage::provider::local::test {

std::string RemovalTest::removing(std::string_view name) const {
    auto const refusal = refusalOf([&] { remove(name); });
    return refusal ? std::to_string(static_cast<int>(refusal->code)) + " about " +
                         toLocalPath(refusal->location).substr(folder_.path().size() + 1)
                   : "removed";
}

} // namespace foundation::storage::provider::local::test
