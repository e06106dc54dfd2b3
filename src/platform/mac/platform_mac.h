// The macOS backend of the platform seam.
#pragma once

#include "platform/platform.h"

namespace tarnwick {

// The process-wide macOS backend: NSWorkspace for applications, Accessibility
// for windows. Installed once, at start-up.
Platform& macPlatform();

}  // namespace tarnwick
