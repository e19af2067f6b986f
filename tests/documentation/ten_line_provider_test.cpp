#include "examples/ten_line_provider.hpp"

#include <foundation/storage/vfs/vfs.hpp>

#include <gtest/gtest.h>

namespace {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;

class TenLineProvider : public testing::Test {
  protected:
    TenLineProvider() {
        system->registerPhysicalProvider("hi", [] { return std::make_shared<Greetings>(); });
    }

    vfs::File file(char16_t const* text) const {
        return vfs::File(vfs::AbsoluteIRI(text), vfs::StorageSystemReference(system));
    }

    std::shared_ptr<vfs::PluggableStorageSystem> system =
        std::make_shared<vfs::PluggableStorageSystem>(nullptr);
};

TEST_F(TenLineProvider, AnswersWhatIsThere) {
    EXPECT_TRUE(file(u"hi:/hello").fileExists());
    EXPECT_FALSE(file(u"hi:/goodbye").fileExists());
    EXPECT_EQ(
        vfs::existsExtended(vfs::AbsoluteIRI(u"hi:/hello"), vfs::StorageSystemReference(system)),
        provider::ExtendedExistsResult::File);
}

TEST_F(TenLineProvider, RefusesTheRestByName) {
    try {
        file(u"hi:/hello").openReadOnly();
        FAIL();
    } catch (vfs::Exception const& e) {
        EXPECT_EQ(e.getErrorCode(), vfs::ErrorCode::UnsupportedOperation);
        EXPECT_EQ(e.getLocation(), vfs::AbsoluteIRI(u"hi:/hello"));
    }
}

} // namespace
