#include <foundation/storage/vfs/resources/path_comparator.hpp>

#include <foundation/storage/vfs/errors/detail/translated.hpp>

#include <utility>

namespace foundation::storage::vfs {

PathComparator::PathComparator(provider::PathComparatorFunction function)
    : function_(std::move(function)) {}

bool PathComparator::operator()(ustring const& a, ustring const& b,
                                provider::CaseModifier modifier) const {
    return detail::translated([&] { return function_(a, b, modifier); });
}

} // namespace foundation::storage::vfs
