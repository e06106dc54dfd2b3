// Capture: a snapshot of the session as it stands.
#pragma once

#include "model/snapshot.h"

#include <string>

namespace tarnwick::Capture {

// Every ordinary running application with its windows: Accessibility windows
// for generic ones, scripted windows for browsers, Finder and terminals. Reads
// only; never fails. Runs for seconds, so never on the main thread.
Snapshot snapshot(const std::string& reason);

}  // namespace tarnwick::Capture
