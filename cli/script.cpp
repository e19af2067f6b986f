#include "script.hpp"

#include <string_view>
#include <utility>

namespace cli {

namespace {

constexpr int end = -1;

bool isBlank(int c) {
    return c == ' ' || c == '\t';
}

bool endsWord(int c) {
    return isBlank(c) || c == '\n' || c == end;
}

} // namespace

ScriptError::ScriptError(std::size_t line, std::string const& reason)
    : std::runtime_error("line " + std::to_string(line) + ": " + reason) {}

ScriptReader::ScriptReader(std::function<int()> next) : next_(std::move(next)) {}

bool ScriptReader::read(std::vector<std::string>& words) {
    words.clear();
    endLine(); // of the command before
    for (;;) {
        switch (skipToWord()) {
        case Mark::Word:
            readWord(words.emplace_back());
            break;
        case Mark::LineEnd:
            if (!words.empty()) {
                return true;
            }
            endLine();
            break;
        case Mark::End:
            return !words.empty();
        }
    }
}

// Passes over the line break in hand without asking for the byte behind it.
void ScriptReader::endLine() {
    if (current_ == '\n') {
        ++line_;
        current_ = ' ';
    }
}

int ScriptReader::take() {
    if (current_ == '\n') {
        ++line_;
    }
    return current_ = next_();
}

ScriptReader::Mark ScriptReader::skipToWord() {
    while (isBlank(current_)) {
        take();
    }
    if (current_ == '#') {
        while (current_ != '\n' && current_ != end) {
            take();
        }
    }
    if (current_ == end) {
        return Mark::End;
    }
    return current_ == '\n' ? Mark::LineEnd : Mark::Word;
}

void ScriptReader::readWord(std::string& word) {
    while (!endsWord(current_)) {
        char const c = static_cast<char>(current_);
        switch (c) {
        case '\'':
            readSingleQuoted(word);
            break;
        case '"':
            readDoubleQuoted(word);
            break;
        case '\\':
            take();
            if (current_ == end) {
                refuse(line_, "nothing stands behind the backslash");
            }
            if (current_ != '\n') {
                word += static_cast<char>(current_);
            }
            take();
            break;
        case '\0':
            refuse(line_, "a NUL character");
        case ';':
        case '|':
        case '<':
        case '>':
            refuse(line_, std::string("'") + c + "' must be quoted; there are no operators here");
        default:
            word += c;
            take();
            if (c == '&' && endsWord(current_)) {
                refuse(line_, "'&' must be quoted; there are no operators here");
            }
        }
    }
}

void ScriptReader::readSingleQuoted(std::string& word) {
    std::size_t const start = line_;
    while (take() != '\'') {
        if (current_ == end || current_ == '\0') {
            refuse(start, current_ == end ? "a quotation is not closed" : "a NUL character");
        }
        word += static_cast<char>(current_);
    }
    take();
}

void ScriptReader::readDoubleQuoted(std::string& word) {
    std::size_t const start = line_;
    while (take() != '"') {
        if (current_ == '\\') {
            take();
            // Elsewhere the backslash is a character like others.
            bool const special = current_ != end && current_ != '\0' &&
                                 std::string_view("$`\"\\\n").find(static_cast<char>(current_)) !=
                                     std::string_view::npos;
            if (current_ == '\n') {
                continue;
            }
            if (!special) {
                word += '\\';
            }
        }
        if (current_ == end || current_ == '\0') {
            refuse(start, current_ == end ? "a quotation is not closed" : "a NUL character");
        }
        word += static_cast<char>(current_);
    }
    take();
}

void ScriptReader::refuse(std::size_t line, std::string const& reason) {
    while (current_ != '\n' && current_ != end) {
        take();
    }
    throw ScriptError(line, reason);
}

} // namespace cli
