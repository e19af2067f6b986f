#include "background.hpp"

#include <tbb/task_group.h>

#include <utility>

namespace cli {

struct Background::Impl {
    tbb::task_group group;
};

Background::Background() : impl_(std::make_unique<Impl>()) {}

Background::~Background() {
    wait();
}

void Background::begin(std::function<void()> work) {
    impl_->group.run(std::move(work));
}

void Background::wait() {
    impl_->group.wait();
}

} // namespace cli
