#pragma once

/// Stops the fuzzer where something does not hold that has to.
inline void require(bool holds) {
    if (!holds) {
        __builtin_trap();
    }
}
