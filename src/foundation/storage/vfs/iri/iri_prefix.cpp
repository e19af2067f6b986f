#include <foundation/storage/vfs/iri/absolute_iri.hpp>

#include <fl/i18n/conversion.hpp>
#include <foundation/log/diagnostic_logger.hpp>
#include <foundation/storage/provider/iri_prefix.hpp>
#include <foundation/storage/vfs/iri/detail/guarded_prefix_test.hpp>

#include <boost/exception/diagnostic_information.hpp>

#include <string>

namespace foundation::storage::vfs {

namespace {

constexpr int diagnosticLevel = 16;

foundation::log::diagnostic_logger const logger("foundation::storage::vfs");

} // namespace

bool detail::guardedPrefixTest(std::u32string const& text, bool (*test)(std::u32string_view text)) {
    try {
        return test(text);
    } catch (...) {
        if (logger.isEnabled(diagnosticLevel)) {
            logger.write(diagnosticLevel,
                         "Exception caught: " +
                             boost::current_exception_diagnostic_information(true));
        }
        return false;
    }
}

bool hasIRIPrefix(ustring const& text) {
    return detail::guardedPrefixTest(fl::i18n::to_u32string(text), provider::hasIRIPrefix);
}

} // namespace foundation::storage::vfs
