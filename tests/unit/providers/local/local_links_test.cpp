#include "local_fixture.hpp"

#include <foundation/storage/provider/extensions/i_links.hpp>

namespace foundation::storage::provider::local::test {
namespace {

class LocalLinks : public LocalProviderTest {
  protected:
    LocalLinks() { makeFile("file", "content"); }

    extensions::ILinks& links() const { return dynamic_cast<extensions::ILinks&>(*provider_); }
};

TEST_F(LocalLinks, TheTargetIsReadAsItWasWritten) {
    std::string const targets[] = {"file", "/somewhere/absolute", "../up/./here//",
                                   std::string(300, 't'), "caf\xe9 \xf0\x9f\x98\x80"};
    for (std::string const& written : targets) {
        makeLink("link", written);
        ustring const read = links().readLink(at("link"));
        links().createLink(at("second"), read);

        EXPECT_EQ(target("second"), written);
        provider_->removeFile(at("link"));
        provider_->removeFile(at("second"));
    }
}

TEST_F(LocalLinks, ALinkMayLeadNowhere) {
    links().createLink(at("link"), u"missing/far away");

    EXPECT_EQ(target("link"), "missing/far away");
    EXPECT_EQ(provider_->existsExtended(at("link")), ExtendedExistsResult::DanglingLink);
}

TEST_F(LocalLinks, WhatIsNoLinkHasNoTarget) {
    EXPECT_TRUE(
        isRefused([&] { links().readLink(at("file")); }, ErrorCode::InvalidLocation, at("file")));
    EXPECT_TRUE(isRefused([&] { links().readLink(at("")); }, ErrorCode::InvalidLocation, at("")));
    EXPECT_TRUE(isRefused([&] { links().readLink(at("missing")); }, ErrorCode::ResourceNotFound,
                          at("missing")));
}

TEST_F(LocalLinks, ALinkReplacesNothing) {
    makeLink("link", "missing");
    for (char const* name : {"file", "link", ""}) {
        EXPECT_TRUE(isRefused([&] { links().createLink(at(name), u"target"); },
                              ErrorCode::ResourceAlreadyExists, at(name)));
    }
    EXPECT_EQ(content("file"), "content");
}

TEST_F(LocalLinks, ATargetThatNoLinkCanHoldIsRefused) {
    EXPECT_TRUE(isRefused([&] { links().createLink(at("link"), u""); }, ErrorCode::ResourceNotFound,
                          at("link")));
    EXPECT_TRUE(isRefused([&] { links().createLink(at("link"), ustring(u"a\0b", 3)); },
                          ErrorCode::InvalidLocation, at("link")));
    EXPECT_TRUE(isRefused([&] { links().createLink(at("link"), ustring(1, u'\xd800')); },
                          ErrorCode::InvalidLocation, at("link")));
    EXPECT_TRUE(isRefused([&] { links().createLink(at("link"), ustring(5000, u't')); },
                          ErrorCode::InvalidLocation, at("link")));
    EXPECT_FALSE(isThere("link"));
}

} // namespace
} // namespace foundation::storage::provider::local::test
