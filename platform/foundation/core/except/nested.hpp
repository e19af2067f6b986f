#pragma once

#include <foundation/export.hpp>

#include <boost/exception/exception.hpp>
#include <boost/exception_ptr.hpp>

namespace foundation::core::except {

/// A clone of `exception`, shared; what boost::errinfo_nested_exception takes.
FOUNDATION_EXPORT boost::exception_ptr
copy_exception(boost::exception_detail::clone_base const& exception);

/// The exception being handled, kept exactly, whatever its type: rethrowing the result throws the
/// same object again. boost::current_exception slices classes derived from standard exceptions.
/// REQUIRES: an exception is being handled.
FOUNDATION_EXPORT boost::exception_ptr currentException();

} // namespace foundation::core::except
