// Snapshot generators for tests, benchmarks and fuzz seeds.
#pragma once

#include "model/snapshot.h"

#include <cstdint>
#include <random>

namespace tarnwick::testing {

// A random snapshot: texts with quotes, backslashes, slashes, control characters
// and non-ASCII (always valid UTF-8), random floats, random optionals.
Snapshot randomSnapshot(std::mt19937_64& random);

// A heavy but realistic session: `apps` applications of which a few are browsers
// holding `tabs` tabs in all, and `windows` windows in all.
Snapshot heavySession(int apps, int windows, int tabs, Date date);

// Field-by-field comparison of whole snapshots, dates included (Snapshot itself
// deliberately has no equality).
bool sameSnapshot(const Snapshot& a, const Snapshot& b);

// The date truncated to whole seconds, as a snapshot file keeps it.
Date wholeSeconds(Date date);

}  // namespace tarnwick::testing
