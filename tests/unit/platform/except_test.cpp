#include <foundation/core/except/exception.hpp>
#include <foundation/core/except/nested.hpp>

#include <boost/exception/all.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace foundation::core::except;

namespace {

/// A standard exception with a text and a member of its own.
class Refused : public std::runtime_error {
  public:
    explicit Refused(int number) : std::runtime_error("refused"), number_(number) {}
    int number() const { return number_; }

  private:
    int number_;
};

using Wrapped = detail::AnonymousInternalException<Refused>;
using TagNumber = boost::error_info<struct TagNumberName, int>;

} // namespace

TEST(Except, AWrappedExceptionIsCaughtAsAllItsBases) {
    EXPECT_THROW(throw Wrapped(Refused(7)), Refused);
    EXPECT_THROW(throw Wrapped(Refused(7)), std::runtime_error);
    EXPECT_THROW(throw Wrapped(Refused(7)), std::exception);
    EXPECT_THROW(throw Wrapped(Refused(7)), IInternalException);
    EXPECT_THROW(throw Wrapped(Refused(7)), IException);
    EXPECT_THROW(throw Wrapped(Refused(7)), boost::exception);
}

TEST(Except, AWrappedExceptionKeepsTheTextOfWhatItWraps) {
    Wrapped const wrapped{Refused(7)};

    EXPECT_STREQ(static_cast<Refused const&>(wrapped).what(), "refused");
    EXPECT_STREQ(static_cast<IException const&>(wrapped).what(), "refused");
    EXPECT_EQ(wrapped.ToUstringImpl(), u"refused");
    EXPECT_EQ(wrapped.number(), 7);
}

TEST(Except, AnExceptionWithoutATextOfItsOwnGivesTheName) {
    class Plain : public Exception<IInternalException, std::exception, void> {
      public:
        Plain const* clone() const override { return new Plain(*this); }
        [[noreturn]] void rethrow() const override { throw Plain(*this); }
    };
    EXPECT_STREQ(static_cast<IException const&>(Plain()).what(),
                 "foundation::core::except::IException");
}

TEST(Except, CloneAndRethrowKeepTypeMembersAndInfos) {
    Wrapped original{Refused(7)};
    original << TagNumber(42);
    std::unique_ptr<boost::exception_detail::clone_base const> const clone(original.clone());

    try {
        clone->rethrow();
        FAIL() << "nothing thrown";
    } catch (Wrapped const& e) {
        EXPECT_EQ(e.number(), 7);
        ASSERT_NE(boost::get_error_info<TagNumber>(e), nullptr);
        EXPECT_EQ(*boost::get_error_info<TagNumber>(e), 42);
    }
}

TEST(Except, TextConvertsByteForByte) {
    Wrapped const wrapped{Refused(1)};

    EXPECT_EQ(wrapped.convert_str(std::string("é\xFF")), u"é\xDCFF");
    EXPECT_EQ(wrapped.convert_str(fl::i18n::ustring(u"é")), u"é");
}

TEST(Except, ACopiedExceptionIsIndependent) {
    boost::exception_ptr copy;
    {
        Wrapped const original{Refused(9)};
        copy = foundation::core::except::copy_exception(original);
    }
    try {
        boost::rethrow_exception(copy);
        FAIL() << "nothing thrown";
    } catch (Refused const& e) {
        EXPECT_EQ(e.number(), 9);
    }
}

TEST(Except, TheCurrentExceptionIsKeptExactly) {
    boost::exception_ptr kept;
    Refused const* thrown = nullptr;
    try {
        throw Refused(3);
    } catch (Refused const& e) {
        thrown = &e;
        kept = currentException();
    }
    try {
        boost::rethrow_exception(kept);
        FAIL() << "nothing thrown";
    } catch (Refused const& e) {
        EXPECT_EQ(e.number(), 3) << "not sliced to its standard base";
        EXPECT_EQ(&e, thrown) << "the same object";
    }
}

TEST(Except, TheCurrentExceptionMayBeOfAnyType) {
    boost::exception_ptr kept;
    try {
        throw 5; // NOLINT: anything can be thrown
    } catch (...) {
        kept = currentException();
    }
    EXPECT_THROW(boost::rethrow_exception(kept), int);
}

TEST(Except, OneStoredExceptionIsRethrownOnManyThreads) {
    boost::exception_ptr kept;
    try {
        throw Wrapped(Refused(11));
    } catch (...) {
        kept = currentException();
    }
    std::vector<std::thread> threads;
    std::vector<int> numbers(8, 0);
    for (int& number : numbers) {
        threads.emplace_back([&kept, &number] {
            try {
                boost::rethrow_exception(kept);
            } catch (Refused const& e) {
                number = e.number();
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(numbers, std::vector<int>(8, 11));
}
