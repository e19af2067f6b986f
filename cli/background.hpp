#pragma once

#include <functional>
#include <memory>

namespace cli {

/// One piece of work at a time that other threads do while the caller goes on. For one thread.
class Background {
  public:
    Background();
    /// Waits.
    ~Background();
    Background(Background const&) = delete;
    Background& operator=(Background const&) = delete;

    /// Begins the work, which must not throw. REQUIRES: what was begun before was waited for.
    void begin(std::function<void()> work);
    /// Returns when the work is done, and takes part in it until then; where there is no other
    /// thread, it is all done here.
    void wait();

  private:
    struct Impl;

    std::unique_ptr<Impl> impl_;
};

} // namespace cli
