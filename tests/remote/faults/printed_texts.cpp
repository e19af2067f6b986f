#include "printed_texts.hpp"

#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/make_shared.hpp>

#include <utility>

namespace remote_faults {

namespace {

class LogTexts
    : public boost::log::sinks::basic_sink_backend<boost::log::sinks::synchronized_feeding> {
  public:
    explicit LogTexts(PrintedTexts& texts) : texts_(texts) {}
    void consume(boost::log::record_view const& record) {
        texts_.add(boost::log::extract_or_default<std::string>("Message", record, std::string()));
    }

  private:
    PrintedTexts& texts_;
};

} // namespace

void PrintedTexts::add(std::string text) {
    std::lock_guard const lock(mutex_);
    texts_.push_back(std::move(text));
}

std::vector<std::string> PrintedTexts::take() {
    std::lock_guard const lock(mutex_);
    return std::exchange(texts_, {});
}

PrintedTexts& printedTexts() {
    static PrintedTexts texts;
    static bool const isListening = [] {
        boost::log::core::get()->add_sink(
            boost::make_shared<boost::log::sinks::synchronous_sink<LogTexts>>(
                boost::make_shared<LogTexts>(texts)));
        return true;
    }();
    static_cast<void>(isListening);
    return texts;
}

} // namespace remote_faults
