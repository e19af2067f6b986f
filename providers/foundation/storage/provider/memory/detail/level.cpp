#include <foundation/storage/provider/memory/detail/level.hpp>

#include <vector>

namespace foundation::storage::provider::memory::detail {

ustring const& LevelPath::of(OuterLevelPtr const& innermost) {
    std::vector<OuterLevel const*> entered;
    OuterLevel const* to = innermost.get();
    while (to != innermost_.get()) {
        if (to && (!innermost_ || innermost_->depth() <= to->depth())) {
            entered.push_back(to);
            to = to->parent().get();
        } else {
            innermost_ = innermost_->parent();
            text_.pop_back();
            text_.erase(text_.rfind(u'/') + 1);
        }
    }
    std::size_t length = text_.size();
    for (OuterLevel const* const level : entered) {
        length += level->level().name().size() + 1;
    }
    text_.reserve(length); // the last thing that can fail
    for (; !entered.empty(); entered.pop_back()) {
        text_ += entered.back()->level().name();
        text_ += u'/';
    }
    innermost_ = innermost;
    return text_;
}

} // namespace foundation::storage::provider::memory::detail
