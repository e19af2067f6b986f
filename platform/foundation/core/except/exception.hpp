#pragma once

#include <fl/i18n/ustring.hpp>
#include <foundation/export.hpp>

#include <boost/exception/exception.hpp>

#include <exception>
#include <string>
#include <type_traits>

namespace foundation::core::except {

using fl::i18n::ustring;

/// Root of the exceptions of this code base. An exception can be cloned and thrown again with its
/// dynamic type, carries Boost error infos, and describes itself as text.
///
/// The order of the bases fixes the order of the virtual operations: clone, rethrow, destructor,
/// what, convert_str twice, ToUstringImpl.
class FOUNDATION_EXPORT IException : public boost::exception_detail::clone_base,
                                     public boost::exception {
  public:
    IException() = default;
    IException(IException const&) = default;
    IException& operator=(IException const&) = default;
    ~IException() noexcept override;

    virtual char const* what() const noexcept;
    /// The text itself.
    virtual ustring convert_str(ustring const& text) const;
    /// Narrow text, taken as UTF-8; a byte that is not becomes the lone unit U+DC00 plus its value.
    virtual ustring convert_str(std::string const& text) const;
    /// Everything that the exception knows, in one line.
    virtual ustring ToUstringImpl() const;
};

/// Root of the exceptions that code, not a person, is meant to handle.
class FOUNDATION_EXPORT IInternalException : public IException {
  public:
    ~IInternalException() noexcept override;
};

/// Joins an interface of this family with a standard exception.
template<class Interface, class Base, class = void>
class FOUNDATION_EXPORT Exception : public Interface, public Base {
  public:
    Exception() = default;
    explicit Exception(Base const& base) : Base(base) {}

    char const* what() const noexcept override {
        // std::exception has no text of its own; any other base has, and it is the one to show.
        if constexpr (std::is_same_v<Base, std::exception>) {
            return Interface::what();
        } else {
            return Base::what();
        }
    }
    ustring ToUstringImpl() const override {
        return Interface::convert_str(std::string(Base::what()));
    }
};

extern template class FOUNDATION_EXPORT Exception<IInternalException, std::exception, void>;

namespace detail {

/// What is thrown where a plain standard exception `T` is meant: caught as `T`, and as IException.
template<class T>
class FOUNDATION_EXPORT AnonymousInternalException final
    : public Exception<IInternalException, T, void> {
  public:
    explicit AnonymousInternalException(T const& exception)
        : Exception<IInternalException, T, void>(exception) {}

    AnonymousInternalException const* clone() const override {
        return new AnonymousInternalException(*this);
    }
    [[noreturn]] void rethrow() const override { throw AnonymousInternalException(*this); }
};

} // namespace detail
} // namespace foundation::core::except
