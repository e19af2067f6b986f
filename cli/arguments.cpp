#include "arguments.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <list>
#include <utility>

namespace cli {

namespace {

// The parser below splits an operand of the form [a,b] into a list. A word that starts with a
// bracket therefore carries this mark while it is parsed, and so does one that starts with the
// mark.
constexpr char bracketMark = '\x01';

std::string guarded(std::string const& word) {
    bool const mark = !word.empty() && (word.front() == '[' || word.front() == bracketMark);
    return mark ? bracketMark + word : word;
}

void unguard(std::string& word) {
    if (!word.empty() && word.front() == bracketMark) {
        word.erase(0, 1);
    }
}

// An option's value may be a secret or hold a line break; its name is what the person needs to see.
std::string optionName(std::string const& word) {
    std::string name = word.substr(0, word.find('='));
    if (name.size() > 1 && name[1] != '-') {
        name.resize(2);
    }
    bool const plain = std::all_of(name.begin(), name.end(),
                                   [](unsigned char c) { return c >= 0x20 && c < 0x7f; });
    return plain ? name : "with such a name";
}

// Breaks lines at blanks, so that none is longer than `width` where a word allows it.
std::string wrapped(std::string const& text, std::size_t width) {
    std::string out;
    std::size_t column = 0;
    for (std::string const& word : CLI::detail::split(text, ' ')) {
        bool const fits = column + 1 + word.size() <= width;
        if (column > 0) {
            out += fits ? ' ' : '\n';
            column = fits ? column + 1 : 0;
        }
        out += word;
        column += word.size();
    }
    return out;
}

constexpr std::size_t helpColumns = 78;
constexpr std::size_t optionColumns = 24;

// The program's own order: how it is used, what it does, options, examples.
class HelpFormatter final : public CLI::Formatter {
  public:
    explicit HelpFormatter(std::string const& operands) : operands_(operands) {
        column_width(optionColumns);
    }

    std::string make_help(CLI::App const* app, std::string,
                          CLI::AppFormatMode mode) const override {
        std::string groups = make_groups(app, mode);
        groups.erase(groups.find_last_not_of('\n') + 1);
        return "Usage: " + app->get_name() + " [OPTIONS]" + operands_ + "\n\n" +
               wrapped(app->get_description(), helpColumns) + "\n" + groups + "\n\n" +
               make_footer(app);
    }

  private:
    std::string const& operands_;
};

struct ValueOption {
    std::string given;
    std::optional<std::string>* target;
    CLI::Option* parsed;
};

} // namespace

std::optional<std::size_t> wholeNumber(std::string const& text) {
    std::size_t number = 0;
    char const* const end = text.data() + text.size();
    auto const [stop, error] = std::from_chars(text.data(), end, number);
    bool const whole = error == std::errc() && stop == end;
    return whole ? std::optional(number) : std::nullopt;
}

struct Arguments::Impl {
    explicit Impl(CommandHelp given) : help(std::move(given)), app(help.description) {
        app.name("vfs " + help.name);
        app.set_help_flag();
        app.formatter(std::make_shared<HelpFormatter>(usage));
        app.add_flag(help.helpOption, helpWanted, "Print this help and exit");
        app.allow_extras();
        std::string footer = "Examples:";
        for (std::string const& example : help.examples) {
            footer += "\n  " + example;
        }
        app.footer(footer);
    }

    CommandHelp help;
    CLI::App app;
    bool helpWanted = false;
    std::list<ValueOption> values; // a list: the parser keeps pointers to the members
    std::string what;
    std::string usage; // the operands in the line that shows how the command is used
    std::size_t least = 0;
    std::size_t most = 0;
    std::vector<std::string> operands;

    void checkCount() const {
        if (operands.size() < least) {
            throw UsageError(operands.empty() ? what + " is missing"
                                              : "one more operand is needed: " + what);
        }
        if (operands.size() > most) {
            throw UsageError(most == 0 ? "no operand is taken" : "too many operands");
        }
    }
};

Arguments::Arguments(CommandHelp help) : impl_(std::make_unique<Impl>(std::move(help))) {}

Arguments::~Arguments() = default;

Arguments& Arguments::flag(std::string const& names, bool& target, std::string const& description) {
    impl_->app.add_flag(names, target, wrapped(description, helpColumns - optionColumns));
    return *this;
}

Arguments& Arguments::option(std::string const& names, std::optional<std::string>& target,
                             std::string const& value, std::string const& description) {
    ValueOption& added = impl_->values.emplace_back(ValueOption{{}, &target, nullptr});
    added.parsed = impl_->app.add_option(names, added.given,
                                         wrapped(description, helpColumns - optionColumns));
    added.parsed->type_name(value)->take_last();
    return *this;
}

Arguments& Arguments::takes(std::string const& what, std::size_t least, std::size_t most) {
    impl_->what = what;
    impl_->least = least;
    impl_->most = most;
    if (most > 0) {
        bool const repeats = most == unlimited && what.find("...") == std::string::npos;
        impl_->usage = " " + what + (repeats ? "..." : "");
        impl_->app.add_option(what, impl_->operands)->group("")->expected(0, -1);
    }
    return *this;
}

bool Arguments::read(std::vector<std::string> const& words) {
    Impl& impl = *impl_;
    std::vector<std::string> reversed; // as the parser takes them
    reversed.reserve(words.size());
    std::transform(words.rbegin(), words.rend(), std::back_inserter(reversed), guarded);
    try {
        impl.app.parse(std::move(reversed));
    } catch (CLI::ArgumentMismatch const&) {
        throw UsageError(words.empty() ? "an option needs a value"
                                       : "option " + optionName(words.back()) + " needs a value");
    } catch (CLI::ParseError const&) {
        throw UsageError("an option was not understood");
    }
    if (impl.helpWanted) {
        return false;
    }
    std::for_each(impl.operands.begin(), impl.operands.end(), unguard);
    for (std::string& word : impl.app.remaining()) {
        // The mark that ends the options stays among what the parser did not use.
        if (word == "--") {
            continue;
        }
        unguard(word);
        bool const isOption = word.size() > 1 && word.front() == '-';
        throw UsageError(isOption ? "unknown option " + optionName(word) : "no operand is taken");
    }
    for (ValueOption& value : impl.values) {
        if (value.parsed->count() > 0) {
            unguard(value.given);
            *value.target = std::move(value.given);
        }
    }
    impl.checkCount();
    return true;
}

std::vector<std::string> const& Arguments::operands() const noexcept {
    return impl_->operands;
}

std::string Arguments::helpText() const {
    return impl_->app.help();
}

} // namespace cli
