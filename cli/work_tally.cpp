#include "work_tally.hpp"

#include "display.hpp"

#include <fmt/format.h>

#include <string_view>

namespace cli {

namespace {

std::string counted(std::uint64_t count, std::string_view noun) {
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

} // namespace

std::string WorkTally::inWords(std::string const& verb) const {
    std::string text = counted(files, "file");
    if (folders > 0) {
        text += " and " + counted(folders, "folder");
    }
    text += " " + verb;
    if (bytes > 0) {
        text += " (" + shortSize(static_cast<double>(bytes)) + ")";
    }
    if (copiedOnly > 0) {
        text += ", " + counted(copiedOnly, "file") + " copied and still at the source";
    }
    if (kept > 0) {
        text += fmt::format(", {} kept", kept);
    }
    return text;
}

void FailureTally::add(std::string const& subject) {
    ++count_;
    if (named_.size() < namedAtMost) {
        named_.push_back(subject);
    }
}

std::string FailureTally::inWords() const {
    std::string text = fmt::format("{} failed", count_);
    std::string_view separator = ": ";
    for (std::string const& subject : named_) {
        text += separator;
        text += subject;
        separator = ", ";
    }
    if (count_ > named_.size()) {
        text += fmt::format(" and {} more", count_ - named_.size());
    }
    return text;
}

} // namespace cli
