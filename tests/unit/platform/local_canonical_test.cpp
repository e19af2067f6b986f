#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/local_path.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using fl::i18n::ustring;
using foundation::storage::provider::canonicalLocalLocation;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::fromLocalPath;
using foundation::storage::provider::StorageIRI;
using foundation::storage::provider::toCanonicalizedStorageIRI;
using foundation::storage::provider::toLocalPath;

namespace {

class CanonicalLocation : public testing::Test {
  protected:
    CanonicalLocation() {
        std::string name =
            (std::filesystem::temp_directory_path() / "vfs-canonical-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no temporary folder");
        }
        // The temporary folder may itself be reached through a link.
        root_ = std::filesystem::canonical(name).string();
    }
    ~CanonicalLocation() override {
        std::error_code ignored;
        std::filesystem::permissions(root_ + "/denied", std::filesystem::perms::owner_all, ignored);
        std::filesystem::remove_all(root_, ignored);
    }

    std::string at(std::string const& relative) const { return root_ + "/" + relative; }
    void file(std::string const& relative) const { std::ofstream(at(relative)) << "x"; }
    void folder(std::string const& relative) const {
        std::filesystem::create_directories(at(relative));
    }
    void link(std::string const& relative, std::string const& target) const {
        ASSERT_EQ(::symlink(target.c_str(), at(relative).c_str()), 0);
    }

    /// The canonical path below the temporary folder.
    std::string canonical(std::string const& relative) const {
        std::string const whole = toLocalPath(canonicalLocalLocation(fromLocalPath(at(relative))));
        EXPECT_TRUE(whole.starts_with(root_ + "/")) << whole;
        return whole.substr(root_.size() + 1);
    }

    std::optional<ErrorCode> failure(std::string const& relative) const {
        StorageIRI const location = fromLocalPath(at(relative));
        try {
            StorageIRI const result = canonicalLocalLocation(location);
            ADD_FAILURE() << relative << " became " << result;
        } catch (foundation::storage::provider::Exception const& e) {
            EXPECT_EQ(e.getStorageIRI().toString(), location.toString());
            return e.getErrorCode();
        }
        return std::nullopt;
    }

    std::string root_;
};

/// Runs `body` in a child process without privileges, and gives what it returned.
int asUnprivileged(std::function<int()> const& body) {
    pid_t const child = ::fork();
    if (child == 0) {
        if (::geteuid() == 0 &&
            (::setresgid(65534, 65534, 65534) != 0 || ::setresuid(65534, 65534, 65534) != 0)) {
            ::_exit(100);
        }
        int result = 101;
        try {
            result = body();
        } catch (...) {
        }
        ::_exit(result);
    }
    int status = 0;
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : 102;
}

} // namespace

TEST_F(CanonicalLocation, FollowsLinksAndDotsAsTheKernelDoes) {
    folder("real/deep");
    file("real/deep/f");
    link("short", "real/deep");
    link("absolute", at("real"));
    link("chain", "absolute/deep/f");

    EXPECT_EQ(canonical("short/f"), "real/deep/f");
    EXPECT_EQ(canonical("absolute/deep/../deep/./f"), "real/deep/f");
    EXPECT_EQ(canonical("short/../deep"), "real/deep")
        << "two dots go up from where the link leads";
    EXPECT_EQ(canonical("chain"), "real/deep/f");
    EXPECT_EQ(canonical("real//deep//"), "real/deep");
}

TEST_F(CanonicalLocation, AMissingLastSegmentIsAllowed) {
    folder("real");
    link("short", "real");

    EXPECT_EQ(canonical("real/new"), "real/new");
    EXPECT_EQ(canonical("short/new"), "real/new");
    EXPECT_EQ(canonical("short/../real/new/"), "real/new");
}

TEST_F(CanonicalLocation, ALinkThatLeadsNowhereIsWhereItLeads) {
    folder("real");
    link("relative", "real/new");
    link("absolute", at("real/new"));
    link("second", "relative");
    link("trailing", "real/new/");
    link("astray", "missing/new");

    EXPECT_EQ(canonical("relative"), "real/new");
    EXPECT_EQ(canonical("absolute"), "real/new");
    EXPECT_EQ(canonical("second"), "real/new");
    EXPECT_EQ(canonical("trailing"), "real/new");
    EXPECT_EQ(failure("astray"), ErrorCode::ResourceNotFound);
}

TEST_F(CanonicalLocation, AMissingFolderIsNotFound) {
    file("f");

    EXPECT_EQ(failure("missing/new"), ErrorCode::ResourceNotFound);
    EXPECT_EQ(failure("missing/.."), ErrorCode::ResourceNotFound);
    EXPECT_EQ(failure("missing/."), ErrorCode::ResourceNotFound);
    EXPECT_EQ(failure("f/new"), ErrorCode::ResourceNotFound);
}

TEST_F(CanonicalLocation, ALoopOfLinksIsAnInvalidLocation) {
    link("a", "b");
    link("b", "a");
    link("self", "self/x");

    EXPECT_EQ(failure("a"), ErrorCode::InvalidLocation);
    EXPECT_EQ(failure("a/x"), ErrorCode::InvalidLocation);
    EXPECT_EQ(failure("self"), ErrorCode::InvalidLocation);
}

TEST_F(CanonicalLocation, ANameTooLongIsAnInvalidLocation) {
    EXPECT_EQ(failure(std::string(300, 'n')), ErrorCode::InvalidLocation);
}

TEST_F(CanonicalLocation, AFolderThatDeniesAccessIsDenied) {
    folder("denied/inside");
    ASSERT_EQ(::chmod(root_.c_str(), 0755), 0);
    ASSERT_EQ(::chmod(at("denied").c_str(), 0), 0);

    for (char const* relative : {"denied/inside", "denied/new", "denied/inside/new"}) {
        StorageIRI const location = fromLocalPath(at(relative));
        EXPECT_EQ(asUnprivileged([&] {
                      try {
                          canonicalLocalLocation(location);
                      } catch (foundation::storage::provider::Exception const& e) {
                          return static_cast<int>(e.getErrorCode());
                      }
                      return 103;
                  }),
                  static_cast<int>(ErrorCode::PermissionDenied))
            << relative;
    }
}

TEST_F(CanonicalLocation, NamesThatAreNotUtf8Survive) {
    folder("\xFF\xC3");
    link("l\xE9", "\xFF\xC3");

    EXPECT_EQ(canonical("l\xE9"), "\xFF\xC3");
    EXPECT_EQ(canonical("l\xE9/new\x80"), "\xFF\xC3/new\x80");
}

TEST_F(CanonicalLocation, PlainTextAndLocationsComeOutAlike) {
    folder("real");
    file("real/f");
    link("short", "real");
    StorageIRI const expected = fromLocalPath(at("real/f"));

    EXPECT_EQ(toCanonicalizedStorageIRI(u"short/f", root_), expected);
    EXPECT_EQ(toCanonicalizedStorageIRI(u"short/../real/f", root_).toString(), expected.toString());
    EXPECT_EQ(toCanonicalizedStorageIRI(fromLocalPath(at("short/f")).toString(), "/"), expected);
}

TEST_F(CanonicalLocation, OfANestedLocationIsThatOfItsInnermostOne) {
    folder("real");
    file("real/a.zip");
    link("short", "real");
    ustring const root = fromLocalPath(root_).toString();

    EXPECT_EQ(toCanonicalizedStorageIRI(u"zip:" + root + u"/short/a.zip!/x/../y", {}).toString(),
              u"zip:" + root + u"/real/a.zip!/y");
    EXPECT_EQ(toCanonicalizedStorageIRI(u"zip:zip:" + root + u"/short/a.zip!/b!/c", {}).toString(),
              u"zip:zip:" + root + u"/real/a.zip!/b!/c");
    EXPECT_EQ(toCanonicalizedStorageIRI(u"zip:" + root + u"/short/a.zip", {}).toString(),
              u"zip:" + root + u"/real/a.zip");
}

TEST_F(CanonicalLocation, AFailureNamesTheLocationAsked) {
    ustring const text = u"zip:" + fromLocalPath(at("missing/a.zip")).toString() + u"!/x";
    try {
        toCanonicalizedStorageIRI(text, {});
        ADD_FAILURE() << "accepted";
    } catch (foundation::storage::provider::Exception const& e) {
        EXPECT_EQ(e.getErrorCode(), ErrorCode::ResourceNotFound);
        EXPECT_EQ(e.getStorageIRI().toString(), text);
    }
    try {
        toCanonicalizedStorageIRI(u"missing/x", root_);
        ADD_FAILURE() << "accepted";
    } catch (foundation::storage::provider::Exception const& e) {
        EXPECT_EQ(e.getErrorCode(), ErrorCode::ResourceNotFound);
        EXPECT_EQ(e.getStorageIRI(), fromLocalPath(at("missing/x")));
    }
}

TEST_F(CanonicalLocation, OfOtherStoragesIsTheResolvedPathWithoutAsking) {
    EXPECT_EQ(toCanonicalizedStorageIRI(u"s3://Bucket/a/../b//c?q", {}).toString(),
              u"s3://Bucket/b/c?q");
    EXPECT_EQ(toCanonicalizedStorageIRI(u"mem:/a", {}).toString(), u"mem:/a");
    EXPECT_EQ(toCanonicalizedStorageIRI(u"file://", {}).toString(), u"file://");
}
