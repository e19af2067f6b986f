#include <foundation/storage/provider/wildcard.hpp>

#include <cstddef>

namespace foundation::storage::provider {

bool matchesWildcard(std::u16string_view pattern, std::u16string_view name) noexcept {
    constexpr std::size_t none = std::u16string_view::npos;
    std::size_t at = 0;      // in the pattern
    std::size_t unit = 0;    // in the name
    std::size_t rest = none; // behind the last `*` that was met
    std::size_t begin = 0;   // where in the name that rest is being tried
    for (;;) {
        if (at == pattern.size()) {
            if (unit == name.size()) {
                return true;
            }
        } else if (pattern[at] == u'*') {
            if (at + 1 == pattern.size()) {
                return true;
            }
            if (unit < name.size()) {
                // Whatever an earlier `*` could still skip, this one can skip as well.
                rest = ++at;
                begin = unit;
                continue;
            }
        } else if (unit < name.size()) {
            if (pattern[at] == u'?' || pattern[at] == name[unit]) {
                ++at;
                ++unit;
                continue;
            }
        } else if (pattern[at] == u'\0') {
            ++at;
            continue;
        }
        // Tried up to the last unit of the name, and never against an empty remainder.
        if (rest == none || ++begin >= name.size()) {
            return false;
        }
        at = rest;
        unit = begin;
    }
}

} // namespace foundation::storage::provider
