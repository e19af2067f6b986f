#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace remote_faults {

/// What was said to people: failures, and every record of the diagnostic log from the first use on.
/// Safe on any thread.
class PrintedTexts {
  public:
    void add(std::string text);
    /// All since the last time.
    std::vector<std::string> take();

  private:
    std::mutex mutex_;
    std::vector<std::string> texts_; ///< guarded by the mutex
};

PrintedTexts& printedTexts();

} // namespace remote_faults
