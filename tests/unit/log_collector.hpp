#pragma once

#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>

#include <string>
#include <vector>

/// A record of the diagnostic log, as it left the logger.
struct LogRecord {
    std::string channel;
    int severity;
    std::string text;
};

/// A sink that keeps what it is given.
class LogCollector
    : public boost::log::sinks::basic_sink_backend<boost::log::sinks::synchronized_feeding> {
  public:
    void consume(boost::log::record_view const& record) {
        records.push_back({boost::log::extract<std::string>("Channel", record).get(),
                           boost::log::extract<int>("Severity", record).get(),
                           boost::log::extract<std::string>("Message", record).get()});
    }
    std::vector<LogRecord> records;
};
