#pragma once

#include "listing_fixture.hpp"

#include <string>
#include <string_view>

namespace foundation::storage::provider::local::test {

/// Removes trees.
class RemovalTest : public TreeListingTest {
  protected:
    using LocalProviderTest::names;

    void remove(std::string_view name) const { provider_->removeFolderRecursively(at(name)); }
    /// Removes, and says how that ended: "removed", or the code and what it was about.
    std::string removing(std::string_view name) const;
};

} // namespace foundation::storage::provider::local::test
