#include <foundation/log/diagnostic_logger.hpp>

#include <boost/log/keywords/channel.hpp>
#include <boost/log/keywords/severity.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/sources/severity_channel_logger.hpp>

namespace foundation::log {

struct basic_diagnostic_logger<char>::Impl {
    using Source = boost::log::sources::severity_channel_logger_mt<int, std::string>;

    explicit Impl(std::string loggerName)
        : name(std::move(loggerName)),
          source(boost::log::keywords::channel = name) {}

    std::string const name;
    Source source;
};

basic_diagnostic_logger<char>::basic_diagnostic_logger(std::string name)
    : impl_(std::make_unique<Impl>(std::move(name))) {}

basic_diagnostic_logger<char>::~basic_diagnostic_logger() = default;

std::string const& basic_diagnostic_logger<char>::name() const noexcept {
    return impl_->name;
}

bool basic_diagnostic_logger<char>::isEnabled(int level) const {
    return static_cast<bool>(impl_->source.open_record(boost::log::keywords::severity = level));
}

void basic_diagnostic_logger<char>::write(int level, std::string_view text) const {
    boost::log::record record = impl_->source.open_record(boost::log::keywords::severity = level);
    if (!record) {
        return;
    }
    boost::log::record_ostream stream(record);
    stream.write(text.data(), static_cast<std::streamsize>(text.size()));
    stream.flush();
    impl_->source.push_record(std::move(record));
}

} // namespace foundation::log
