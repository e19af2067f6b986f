#include "progress.hpp"

#include "display.hpp"

#include <fl/i18n/conversion.hpp>

#include <fmt/format.h>

#include <cmath>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace cli {

namespace {

std::size_t terminalColumns() {
    winsize size{};
    bool const known = ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return known ? size.ws_col : 80;
}

// The end of a label is what tells files apart. Counts code points as columns.
std::string cutToColumns(std::string const& label, std::size_t columns) {
    std::u32string const points = fl::i18n::to_u32string(fl::i18n::storageNameToUstring(label));
    if (points.size() <= columns) {
        return label;
    }
    if (columns < 4) {
        return {};
    }
    // UTF-8 without the bytes that continue a character.
    std::size_t skip = points.size() - (columns - 3);
    std::size_t at = 0;
    while (skip > 0) {
        ++at;
        while (at < label.size() && (static_cast<unsigned char>(label[at]) & 0xc0u) == 0x80u) {
            ++at;
        }
        --skip;
    }
    return "..." + label.substr(at);
}

// A small file takes about as long as so many bytes of a large one.
constexpr double bytesForAFile = 64 * 1024;

double weightOf(WorkAmount const& amount) {
    return static_cast<double>(amount.bytes) + bytesForAFile * static_cast<double>(amount.files);
}

std::string timeInWords(double seconds) {
    auto const whole = static_cast<std::uint64_t>(std::llround(seconds));
    std::uint64_t const hours = whole / 3600;
    std::uint64_t const minutes = whole / 60 % 60;
    return hours > 0 ? fmt::format("{}:{:02}:{:02}", hours, minutes, whole % 60)
                     : fmt::format("{}:{:02}", minutes, whole % 60);
}

} // namespace

std::string progressText(std::string const& label, std::uint64_t done,
                         std::optional<std::uint64_t> total, double seconds, std::size_t columns) {
    double const bytes = static_cast<double>(done);
    std::string figures = "  " + shortSize(bytes);
    if (total && *total > 0 && done <= *total) {
        double const whole = static_cast<double>(*total);
        figures += fmt::format(" of {}  {:.0f}%", shortSize(whole), 100 * bytes / whole);
    }
    if (seconds > 0) {
        figures += fmt::format("  {}/s", shortSize(bytes / seconds));
    }
    std::size_t const room = columns > figures.size() ? columns - figures.size() : 0;
    return cutToColumns(label, room) + figures;
}

ProgressLine::ProgressLine(std::string label)
    : label_(std::move(label)),
      wanted_(::isatty(STDERR_FILENO) == 1),
      start_(Clock::now()),
      next_(start_ + std::chrono::milliseconds(500)) {}

ProgressLine::~ProgressLine() {
    if (shown_) {
        std::fputs("\r\x1b[K", stderr);
    }
}

void ProgressLine::update(std::uint64_t done, std::optional<std::uint64_t> total) {
    if (!wanted_) {
        return;
    }
    Clock::time_point const now = Clock::now();
    if (now < next_) {
        return;
    }
    next_ = now + std::chrono::milliseconds(100);
    double const seconds = std::chrono::duration<double>(now - start_).count();
    // The last column stays free: a terminal may wrap behind it.
    std::string const text = progressText(label_, done, total, seconds, terminalColumns() - 1);
    std::fputs(("\r" + text + "\x1b[K").c_str(), stderr);
    shown_ = true;
}

std::string workProgressText(std::string const& label, WorkAmount const& done,
                             std::optional<WorkAmount> const& total, double seconds,
                             std::size_t columns) {
    bool const known = total && done.files <= total->files && done.bytes <= total->bytes;
    std::string files = fmt::format("  {}", done.files);
    std::string bytes = "  " + shortSize(static_cast<double>(done.bytes));
    std::string part;
    std::string rate;
    std::string left;
    if (known) {
        files += fmt::format(" of {}", total->files);
        bytes += " of " + shortSize(static_cast<double>(total->bytes));
    }
    files += done.files == 1 && !known ? " file" : " files";
    if (seconds > 0) {
        rate = "  " + shortSize(static_cast<double>(done.bytes) / seconds) + "/s";
    }
    double const weight = weightOf(done);
    if (known && weight > 0) {
        double const whole = weightOf(*total);
        part = fmt::format("  {:.0f}%", 100 * weight / whole);
        if (seconds > 0) {
            left = "  " + timeInWords(seconds * (whole - weight) / weight) + " left";
        }
    }
    std::string figures = files + bytes + part + rate + left;
    if (figures.size() > columns) {
        figures = files + bytes + part + left;
    }
    if (figures.size() > columns) {
        figures = files + part + left;
    }
    std::size_t const room = columns > figures.size() ? columns - figures.size() : 0;
    return cutToColumns(label, room) + figures;
}

WorkProgress::WorkProgress()
    : wanted_(::isatty(STDERR_FILENO) == 1),
      start_(Clock::now()),
      next_(start_ + std::chrono::milliseconds(500)) {}

WorkProgress::~WorkProgress() {
    wipe();
}

void WorkProgress::wipe() {
    if (shown_) {
        std::fputs("\r\x1b[K", stderr);
        shown_ = false;
    }
}

void WorkProgress::update(WorkAmount const& done, std::optional<WorkAmount> const& total,
                          Label const& label) {
    if (!wanted_) {
        return;
    }
    Clock::time_point const now = Clock::now();
    if (now < next_) {
        return;
    }
    next_ = now + std::chrono::milliseconds(100);
    double const seconds = std::chrono::duration<double>(now - start_).count();
    std::string const text = workProgressText(label(), done, total, seconds, terminalColumns() - 1);
    std::fputs(("\r" + text + "\x1b[K").c_str(), stderr);
    shown_ = true;
}

} // namespace cli
