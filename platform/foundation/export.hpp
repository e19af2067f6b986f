#pragma once

/// Marks what the shared libraries of this project export; everything else is hidden.
#define FOUNDATION_EXPORT __attribute__((visibility("default")))
/// Keeps what is private to a library out of its exports where it is declared inside of what is
/// exported.
#define FOUNDATION_HIDDEN __attribute__((visibility("hidden")))
