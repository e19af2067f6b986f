#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/iri/absolute_iri.hpp>

#include <boost/exception/errinfo_nested_exception.hpp>
#include <boost/exception/get_error_info.hpp>
#include <boost/exception_ptr.hpp>
#include <boost/functional/hash.hpp>

#include <gtest/gtest.h>

#include <sstream>
#include <utility>

namespace {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;
using vfs::AbsoluteIRI;
using vfs::CanonicalAbsoluteIRI;
using vfs::InvalidIRIException;
using vfs::ustring;

fl::filesystem::path const base("/base");

TEST(AbsoluteIRI, IsMadeOfATextAStorageIriABaseOrAnItem) {
    EXPECT_EQ(AbsoluteIRI(u"mem:/a").toString(), u"mem:/a");
    EXPECT_EQ(AbsoluteIRI(provider::StorageIRI(u"mem:/a"), true), AbsoluteIRI(u"mem:/a"));
    EXPECT_EQ(AbsoluteIRI(provider::StorageIRI(u"mem://h"), false).toString(), u"mem://h");
    EXPECT_EQ(AbsoluteIRI(AbsoluteIRI(u"mem:/a"), u"b").toString(), u"mem:/a/b");
    EXPECT_EQ(AbsoluteIRI(u"zip", AbsoluteIRI(u"mem:/a.zip"), u"/b").toString(),
              u"zip:mem:/a.zip!/b");
}

TEST(AbsoluteIRI, IsAValue) {
    AbsoluteIRI first(u"mem:/a");
    AbsoluteIRI second(first);
    AbsoluteIRI const third(std::move(second));
    EXPECT_EQ(third, first);
    second = AbsoluteIRI(u"mem:/b");
    first = second;
    EXPECT_EQ(first.toString(), u"mem:/b");
}

TEST(AbsoluteIRI, TellsItsParts) {
    AbsoluteIRI const iri(u"mem://host/a/%62");
    EXPECT_EQ(iri.getName(), u"b");
    EXPECT_EQ(iri.getPath(), u"/a/%62");
    EXPECT_EQ(iri.getPathView(), iri.getPath());
    EXPECT_EQ(iri.getResolvedPath(), u"/a/b");
    EXPECT_EQ(iri.getScheme(), u"mem");
    EXPECT_TRUE(iri.hasParent());
    EXPECT_EQ(iri.getParent(), AbsoluteIRI(u"mem://host/a"));
    EXPECT_FALSE(iri.hasInnerIRI());
    EXPECT_EQ(provider::StorageIRI(iri.toIRI()), iri.toStorageIRI());
    EXPECT_EQ(iri.toStorageIRI(), provider::StorageIRI(u"mem://host/a/b"));
}

TEST(AbsoluteIRI, LeadsToOthers) {
    AbsoluteIRI const nested(u"zip:mem:/a.zip!/x/../b");
    EXPECT_TRUE(nested.hasInnerIRI());
    EXPECT_EQ(nested.getInnerIRI(), AbsoluteIRI(u"mem:/a.zip"));
    EXPECT_EQ(nested.getResolvedIRI(), AbsoluteIRI(u"zip:mem:/a.zip!/b"));
    AbsoluteIRI const folder(u"mem:/a");
    AbsoluteIRI const below(u"mem:/a/b/c");
    EXPECT_TRUE(folder.isAncestorOf(below));
    EXPECT_FALSE(below.isAncestorOf(folder));
    EXPECT_EQ(below.makePathRelativeTo(folder), u"b/c");
}

TEST(AbsoluteIRI, ComparesHashesAndPrints) {
    AbsoluteIRI const iri(u"mem:/b");
    AbsoluteIRI const spelledOtherwise(u"mem:/%62");
    AbsoluteIRI const other(u"mem:/c");
    EXPECT_TRUE(iri == spelledOtherwise);
    EXPECT_TRUE(iri != other);
    EXPECT_TRUE(iri < other);
    EXPECT_FALSE(other < iri);

    ustring const text = u"mem:/b";
    EXPECT_TRUE(iri == text && text == iri);
    EXPECT_TRUE(spelledOtherwise != text && text != spelledOtherwise);

    EXPECT_EQ(iri.hashValue(), spelledOtherwise.hashValue());
    EXPECT_EQ(hash_value(iri), iri.hashValue());
    EXPECT_EQ(boost::hash<AbsoluteIRI>()(iri), iri.hashValue());
    EXPECT_NE(hash_value(other), hash_value(iri));

    std::ostringstream out;
    out << AbsoluteIRI(u"mem:/\u00FC");
    EXPECT_EQ(out.str(), "mem:/\xC3\xBC");
}

TEST(CanonicalAbsoluteIRI, IsVouchedForAndItsParentToo) {
    CanonicalAbsoluteIRI const iri(u"mem:/a");
    CanonicalAbsoluteIRI const child(iri, u"b");
    EXPECT_EQ(child.toString(), u"mem:/a/b");
    CanonicalAbsoluteIRI const parent = child.getParent();
    EXPECT_EQ(parent, iri);
}

TEST(AbsoluteIRI, IsMadeOfWhatAPersonTypedAndBack) {
    EXPECT_EQ(vfs::toAbsoluteIRI(u"x", base), AbsoluteIRI(u"file:///base/x"));
    EXPECT_EQ(vfs::toAbsoluteIRI(u"mem:/x", base), AbsoluteIRI(u"mem:/x"));
    CanonicalAbsoluteIRI const canonical = vfs::toCanonicalAbsoluteIRI(u"mem:/a/../x", base);
    EXPECT_EQ(canonical, AbsoluteIRI(u"mem:/x"));
    EXPECT_EQ(vfs::fromAbsoluteIRI(AbsoluteIRI(u"file:///base/x")), u"/base/x");
    EXPECT_EQ(vfs::fromAbsoluteIRI(AbsoluteIRI(u"mem:/x")), u"mem:/x");
}

TEST(AbsoluteIRI, IsToldFromAPathByItsPrefix) {
    EXPECT_TRUE(vfs::hasIRIPrefix(u"mem:/x"));
    EXPECT_TRUE(vfs::hasIRIPrefix(u"zip:mem:/x"));
    EXPECT_FALSE(vfs::hasIRIPrefix(u"c:/x"));
}

TEST(InvalidIRIException, HoldsTheTextAndTheCause) {
    for (bool const asTyped : {false, true}) {
        try {
            asTyped ? vfs::toAbsoluteIRI(u"mem:/%", base) : AbsoluteIRI(u"mem:/%");
            FAIL() << "nothing was thrown";
        } catch (InvalidIRIException const& failure) {
            EXPECT_EQ(failure.getInvalidIRIString(), u"mem:/%");
            EXPECT_STREQ(failure.what(), "foundation::storage::vfs::InvalidIRIException");
            EXPECT_NE(boost::get_error_info<boost::errinfo_nested_exception>(failure), nullptr);
        }
    }
    EXPECT_EQ(InvalidIRIException(u"x").getInvalidIRIString(), u"x");
}

TEST(InvalidIRIException, IsCaughtInItsWrappedForm) {
    using Wrapped =
        foundation::core::except::detail::AnonymousInternalException<InvalidIRIException>;
    try {
        (void)AbsoluteIRI(u"mem://h");
        FAIL() << "nothing was thrown";
    } catch (Wrapped const& failure) {
        EXPECT_EQ(failure.getInvalidIRIString(), u"mem://h");
        EXPECT_EQ(failure.ToUstringImpl(), u"foundation::storage::vfs::InvalidIRIException");
        EXPECT_THROW(failure.rethrow(), Wrapped);
    }
    EXPECT_THROW((void)AbsoluteIRI(u"mem://h"), foundation::core::except::IInternalException);
}

TEST(ToCanonicalAbsoluteIRI, ReportsWhatTheDiskSaysAsAnExceptionOfTheSystem) {
    try {
        vfs::toCanonicalAbsoluteIRI(u"/no such folder/at all", base);
        FAIL() << "nothing was thrown";
    } catch (vfs::Exception const& failure) {
        EXPECT_EQ(failure.getErrorCode(), vfs::ErrorCode::ResourceNotFound);
    }
}

} // namespace
