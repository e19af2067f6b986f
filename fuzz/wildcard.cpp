// The matcher, against its rules one after the other.

#include "consumed_bytes.hpp"
#include "require.hpp"

#include <foundation/storage/provider/wildcard.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace {

/// The rules as wildcard.hpp tells them. What was found out is kept, since a plain recursion would
/// take time without end for many stars.
class Rules {
  public:
    Rules(std::u16string_view pattern, std::u16string_view name)
        : pattern_(pattern),
          name_(name),
          known_((pattern.size() + 1) * (name.size() + 1), Answer::Unknown) {}

    bool match(std::size_t at, std::size_t unit) {
        Answer& known = known_[at * (name_.size() + 1) + unit];
        if (known == Answer::Unknown) {
            known = workOut(at, unit) ? Answer::Yes : Answer::No;
        }
        return known == Answer::Yes;
    }

  private:
    enum class Answer : std::uint8_t { Unknown, No, Yes };

    bool workOut(std::size_t at, std::size_t unit) {
        bool const ended = unit == name_.size();
        if (at == pattern_.size()) {
            return ended;
        }
        if (pattern_[at] == u'*') {
            if (at + 1 == pattern_.size()) {
                return true;
            }
            for (std::size_t from = unit; from < name_.size(); ++from) {
                if (match(at + 1, from)) {
                    return true;
                }
            }
            return false;
        }
        if (ended) {
            return pattern_[at] == u'\0' && match(at + 1, unit);
        }
        return (pattern_[at] == u'?' || pattern_[at] == name_[unit]) && match(at + 1, unit + 1);
    }

    std::u16string_view const pattern_;
    std::u16string_view const name_;
    std::vector<Answer> known_;
};

/// Any units, or some of a few: of those a pattern and a name have more in common.
std::u16string text(ConsumedBytes& data) {
    if (data.flag()) {
        return data.units(64);
    }
    constexpr std::u16string_view alphabet(u"ab*?\0.*\xD83D", 8);
    std::u16string out;
    for (char const c : data.text(64)) {
        out += alphabet[static_cast<unsigned char>(c) % alphabet.size()];
    }
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
    using foundation::storage::provider::matchesWildcard;
    ConsumedBytes data(bytes, size);
    std::u16string const pattern = text(data);
    std::u16string const name = text(data);
    require(matchesWildcard(pattern, name) == Rules(pattern, name).match(0, 0));
    // Without signs a pattern is a name.
    if (pattern.find_first_of(std::u16string_view(u"*?\0", 3)) == std::u16string::npos) {
        require(matchesWildcard(pattern, name) == (pattern == name));
    }
    return 0;
}
