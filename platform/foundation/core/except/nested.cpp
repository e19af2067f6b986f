#include <foundation/core/except/nested.hpp>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include <exception>
#include <utility>

namespace foundation::core::except {

namespace {

/// Gives boost::exception_ptr something to rethrow that keeps the original object.
class KeptException final : public boost::exception_detail::clone_base {
  public:
    explicit KeptException(std::exception_ptr exception) : exception_(std::move(exception)) {}

    clone_base const* clone() const override { return new KeptException(*this); }
    [[noreturn]] void rethrow() const override { std::rethrow_exception(exception_); }

  private:
    std::exception_ptr exception_;
};

} // namespace

boost::exception_ptr copy_exception(boost::exception_detail::clone_base const& exception) {
    return boost::exception_ptr(
        boost::shared_ptr<boost::exception_detail::clone_base const>(exception.clone()));
}

boost::exception_ptr currentException() {
    return boost::exception_ptr(boost::make_shared<KeptException>(std::current_exception()));
}

} // namespace foundation::core::except
