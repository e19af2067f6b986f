#pragma once

#include <string>

namespace cli {

/// Asks on standard error, `vfs: COMMAND: QUESTION? `, and reads a line from standard input, and no
/// byte behind it. An answer that begins with y or Y means yes, and so does nothing else: not an
/// end of the input either. `question` must be fit to be shown. Throws Interrupted where a signal
/// is noted, and Refusal where standard input cannot be read.
///
/// REQUIRES: standard input holds no script.
bool askedAndAgreed(std::string const& command, std::string const& question);

} // namespace cli
