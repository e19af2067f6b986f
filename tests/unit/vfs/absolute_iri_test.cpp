#include <foundation/storage/vfs/iri/absolute_iri.hpp>

#include "fake_provider.hpp"

#include <foundation/core/except/exception.hpp>
#include <foundation/storage/provider/malformed_iri_exception.hpp>

#include <boost/exception/errinfo_nested_exception.hpp>
#include <boost/exception/get_error_info.hpp>
#include <boost/exception_ptr.hpp>
#include <boost/functional/hash.hpp>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <utility>

namespace {

using namespace vfs_test;
using vfs::AbsoluteIRI;
using vfs::CanonicalAbsoluteIRI;
using vfs::InvalidIRIException;
using Wrapped = foundation::core::except::detail::AnonymousInternalException<InvalidIRIException>;

fl::filesystem::path const base("/base");

template<class Operation>
Wrapped wrappedFrom(Operation operation) {
    try {
        operation();
    } catch (Wrapped const& e) {
        return e;
    }
    throw std::logic_error("no wrapped InvalidIRIException was thrown");
}

/// The exception that caused another, thrown again.
void rethrowCause(boost::exception const& e) {
    boost::exception_ptr const* cause = boost::get_error_info<boost::errinfo_nested_exception>(e);
    ASSERT_NE(cause, nullptr);
    boost::rethrow_exception(*cause);
}

TEST(AbsoluteIRI, AccessorsForwardToTheStorageIRI) {
    AbsoluteIRI const iri(u"zip:file:///a/b.zip!/x/./c%20d.txt");
    EXPECT_EQ(iri.getName(), u"c d.txt");
    EXPECT_EQ(iri.getPath(), u"/x/./c%20d.txt");
    EXPECT_EQ(iri.getPathView(), iri.getPath());
    EXPECT_EQ(iri.getResolvedPath(), u"/x/c d.txt");
    EXPECT_EQ(iri.getScheme(), u"zip");
    EXPECT_TRUE(iri.hasParent());
    EXPECT_TRUE(iri.hasInnerIRI());
    EXPECT_EQ(iri.getInnerIRI(), AbsoluteIRI(u"file:///a/b.zip"));
    EXPECT_EQ(iri.toString(), u"zip:file:///a/b.zip!/x/./c%20d.txt");
    EXPECT_EQ(iri.toStorageIRI(), StorageIRI(iri.toString()));
    EXPECT_EQ(StorageIRI(AbsoluteIRI(u"file:///a").toIRI()), StorageIRI(u"file:///a"));
}

TEST(AbsoluteIRI, MalformedTextBecomesAWrappedExceptionWithTheTextAndItsCause) {
    Wrapped const e = wrappedFrom([] { AbsoluteIRI(u"no location"); });
    EXPECT_EQ(e.getInvalidIRIString(), u"no location");
    EXPECT_STREQ(e.what(), "foundation::storage::vfs::InvalidIRIException");
    EXPECT_EQ(e.ToUstringImpl(), u"foundation::storage::vfs::InvalidIRIException");
    EXPECT_THROW(rethrowCause(e), provider::MalformedIRIException);
}

TEST(AbsoluteIRI, MissingPathBecomesAWrappedExceptionWithoutACause) {
    Wrapped const e = wrappedFrom([] { AbsoluteIRI(u"file://host"); });
    EXPECT_EQ(e.getInvalidIRIString(), u"file://host");
    EXPECT_EQ(boost::get_error_info<boost::errinfo_nested_exception>(e), nullptr);
}

TEST(AbsoluteIRI, MissingPathIsTakenWhereNoneIsRequired) {
    AbsoluteIRI const iri(StorageIRI(u"file://host"), false);
    EXPECT_FALSE(iri.toStorageIRI().hasPath());
    EXPECT_THROW(AbsoluteIRI(StorageIRI(u"file://host"), true), InvalidIRIException);
}

TEST(AbsoluteIRI, FailuresOfTheChildAndNestedConstructorsPassUnchanged) {
    AbsoluteIRI const folder(u"file:///a");
    EXPECT_THROW(AbsoluteIRI(folder, u"../b"), provider::Exception);
    EXPECT_THROW(AbsoluteIRI(u"1zip", folder, u"/x"), provider::MalformedIRIException);
}

TEST(AbsoluteIRI, ParentMayBeWithoutAPathWhileAnInnerLocationMayNot) {
    AbsoluteIRI const root(u"file://host/");
    AbsoluteIRI const parent = root.getParent();
    EXPECT_FALSE(parent.toStorageIRI().hasPath());

    AbsoluteIRI const nested(StorageIRI(u"zip:file://host"), false);
    EXPECT_TRUE(nested.hasInnerIRI());
    EXPECT_THROW(nested.getInnerIRI(), InvalidIRIException);
}

TEST(AbsoluteIRI, ResolvedLocationHasTheResolvedPath) {
    EXPECT_EQ(AbsoluteIRI(u"mem:/a/./b/../c").getResolvedIRI(), AbsoluteIRI(u"mem:/a/c"));
}

TEST(AbsoluteIRI, EveryKindOfFailureIsCaughtAsInvalidIRIException) {
    auto const textOf = [](auto operation) -> vfs::ustring {
        try {
            operation();
        } catch (InvalidIRIException& e) {
            return e.getInvalidIRIString();
        }
        return u"nothing was thrown";
    };
    EXPECT_EQ(textOf([] { vfs::toAbsoluteIRI(u"file://host", base); }), u"file://host");
    EXPECT_EQ(textOf([] { AbsoluteIRI(u"file:%zz/"); }), u"file:%zz/");
}

TEST(AbsoluteIRI, TextsOfOneLocationDifferAsTextOnly) {
    AbsoluteIRI const a(u"file:/a%62c");
    AbsoluteIRI const b(u"file:///abc");
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a != b);
    EXPECT_FALSE(a < b || b < a);
    EXPECT_EQ(a.hashValue(), b.hashValue());
    EXPECT_EQ(boost::hash<AbsoluteIRI>()(a), boost::hash<AbsoluteIRI>()(b));
    EXPECT_FALSE(a == b.toString());
    EXPECT_TRUE(a != b.toString());
    EXPECT_TRUE(b.toString() == b);
    EXPECT_TRUE(a.toString() != b);
}

TEST(AbsoluteIRI, AncestryAndRelativePaths) {
    AbsoluteIRI const folder(u"mem:/a/b");
    AbsoluteIRI const file(folder, u"c d/e");
    EXPECT_TRUE(folder.isAncestorOf(file));
    EXPECT_FALSE(file.isAncestorOf(folder));
    EXPECT_FALSE(folder.isAncestorOf(folder));
    EXPECT_EQ(file.makePathRelativeTo(folder), u"c d/e");
}

TEST(AbsoluteIRI, PrintsItsText) {
    std::ostringstream out;
    out << AbsoluteIRI(u"mem:/caf\u00e9");
    EXPECT_EQ(out.str(), "mem:/caf\xc3\xa9");
}

TEST(AbsoluteIRI, CopiesAndStorageIRIsShareOneValue) {
    AbsoluteIRI const iri(u"mem:/a");
    AbsoluteIRI const copy = iri;
    EXPECT_EQ(&copy.toString(), &iri.toString());
    StorageIRI const storage = iri.toStorageIRI();
    EXPECT_EQ(&storage.toString(), &iri.toString());
}

TEST(AbsoluteIRI, MovedFromValueMayBeAssignedTo) {
    AbsoluteIRI iri(u"mem:/a");
    AbsoluteIRI const taken = std::move(iri);
    iri = AbsoluteIRI(u"mem:/b");
    EXPECT_EQ(taken.toString(), u"mem:/a");
    EXPECT_EQ(iri.toString(), u"mem:/b");
}

TEST(AbsoluteIRI, FlatLocationHasNoInnerOne) {
    EXPECT_THROW(AbsoluteIRI(u"mem:/a").getInnerIRI(), provider::MalformedIRIException);
}

TEST(AbsoluteIRI, SelfAssignmentIsHarmless) {
    AbsoluteIRI iri(u"mem:/a");
    AbsoluteIRI const& same = iri;
    iri = same;
    EXPECT_EQ(iri.toString(), u"mem:/a");
}

TEST(CanonicalAbsoluteIRI, ParentIsCanonicalWithoutAskingAnybody) {
    CanonicalAbsoluteIRI const iri(u"mem:/a/b");
    CanonicalAbsoluteIRI const parent = iri.getParent();
    EXPECT_EQ(parent, AbsoluteIRI(u"mem:/a"));
    EXPECT_EQ(CanonicalAbsoluteIRI(parent, u"c"), AbsoluteIRI(u"mem:/a/c"));
}

TEST(ToAbsoluteIRI, TakesLocationsAndPlainPaths) {
    EXPECT_EQ(vfs::toAbsoluteIRI(u"mem:/x", base), AbsoluteIRI(u"mem:/x"));
    EXPECT_EQ(vfs::toAbsoluteIRI(u"/x y", base), AbsoluteIRI(u"file:///x%20y"));
    EXPECT_EQ(vfs::toAbsoluteIRI(u"x", base), AbsoluteIRI(u"file:///base/x"));
}

TEST(ToAbsoluteIRI, FailureOfThePathStepNestsTheInnerException) {
    Wrapped const e = wrappedFrom([] { vfs::toAbsoluteIRI(u"mem://h", base); });
    EXPECT_EQ(e.getInvalidIRIString(), u"mem://h");
    try {
        rethrowCause(e);
        FAIL();
    } catch (InvalidIRIException const& cause) {
        EXPECT_EQ(cause.getInvalidIRIString(), u"mem://h");
    }
}

TEST(ToAbsoluteIRI, MalformedTextNestsItsCause) {
    Wrapped const e = wrappedFrom([] { vfs::toAbsoluteIRI(u"mem:/%", base); });
    EXPECT_EQ(e.getInvalidIRIString(), u"mem:/%");
    EXPECT_THROW(rethrowCause(e), provider::MalformedIRIException);
}

TEST(ToCanonicalAbsoluteIRI, ProviderFailureIsTranslatedAndEveryOtherIsAnInvalidIRI) {
    EXPECT_EQ(codeOf([] { vfs::toCanonicalAbsoluteIRI(u"/no/such/parent/x", base); }),
              vfs::ErrorCode::ResourceNotFound);
    try {
        vfs::toCanonicalAbsoluteIRI(u"/no/such/parent/x", base);
        FAIL();
    } catch (vfs::Exception const& e) {
        EXPECT_EQ(e.getLocation(), AbsoluteIRI(u"file:///no/such/parent/x"));
    }
    Wrapped const e = wrappedFrom([] { vfs::toCanonicalAbsoluteIRI(u"mem:/%", base); });
    EXPECT_EQ(e.getInvalidIRIString(), u"mem:/%");
    EXPECT_THROW(rethrowCause(e), provider::MalformedIRIException);
    Wrapped const pathless = wrappedFrom([] { vfs::toCanonicalAbsoluteIRI(u"mem://h", base); });
    EXPECT_EQ(pathless.getInvalidIRIString(), u"mem://h");
    EXPECT_THROW(rethrowCause(pathless), InvalidIRIException);
}

TEST(ToCanonicalAbsoluteIRI, LinksOfTheLocalDiskAreResolved) {
    char folder[] = "/tmp/vfs-canonical-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    std::string const link = std::string(folder) + "/link";
    ASSERT_EQ(symlink("target", link.c_str()), 0);
    std::string const target = std::string(folder) + "/target";
    ASSERT_EQ(mkdir(target.c_str(), 0700), 0);

    auto const canonical =
        vfs::toCanonicalAbsoluteIRI(u"link/x", fl::filesystem::path(std::string(folder)));

    EXPECT_EQ(vfs::fromAbsoluteIRI(canonical),
              fl::filesystem::path(target + "/x").external_string());
    rmdir(target.c_str());
    unlink(link.c_str());
    rmdir(folder);
}

TEST(FromAbsoluteIRI, IsThePathForTheLocalDiskAndTheTextForOthers) {
    EXPECT_EQ(vfs::fromAbsoluteIRI(AbsoluteIRI(u"file:///a%20b/%25")), u"/a b/%");
    EXPECT_EQ(vfs::fromAbsoluteIRI(AbsoluteIRI(u"mem:/a%20b")), u"mem:/a%20b");
}

struct PrefixCase {
    char16_t const* text;
    bool prefix;
};

class HasIRIPrefix : public testing::TestWithParam<PrefixCase> {};

TEST_P(HasIRIPrefix, AnswersByTheGrammar) {
    EXPECT_EQ(vfs::hasIRIPrefix(GetParam().text), GetParam().prefix);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, HasIRIPrefix,
    testing::Values(PrefixCase{u"", false}, PrefixCase{u"ab:", false}, PrefixCase{u"ab:/", true},
                    PrefixCase{u"a:/x", false}, PrefixCase{u"1b:/", false},
                    PrefixCase{u"a+.-:/", true}, PrefixCase{u"ab/:/", false},
                    PrefixCase{u"ab:cd:/", true}, PrefixCase{u"ab:cd:e", false},
                    PrefixCase{u"ab:c", false}, PrefixCase{u"ab:c:/", false},
                    PrefixCase{u"a\u00e9:/", false}, PrefixCase{u"\u00e9b:/", false},
                    PrefixCase{u"ab\u00e9:/", false}, PrefixCase{u"abcd", false},
                    PrefixCase{u"abc:", false}, PrefixCase{u"+bc:/", false},
                    PrefixCase{u"ab1:/", true}, PrefixCase{u"ab:cd:ef:/x", true},
                    PrefixCase{u"ab:/no more is looked at:%", true}));

TEST(HasIRIPrefixOfHostileText, NeitherALoneSurrogateNorALongChainIsAProblem) {
    EXPECT_FALSE(vfs::hasIRIPrefix(vfs::ustring{u'a', char16_t(0xD800), u':', u'/'}));
    vfs::ustring chain;
    for (int i = 0; i < 1000000; ++i) {
        chain += u"ab:";
    }
    EXPECT_FALSE(vfs::hasIRIPrefix(chain));
    EXPECT_TRUE(vfs::hasIRIPrefix(chain + u"/"));
}

} // namespace
