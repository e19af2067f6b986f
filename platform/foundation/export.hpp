#pragma once

/// Marks what the shared libraries of this project export; everything else is hidden.
#define FOUNDATION_EXPORT __attribute__((visibility("default")))
