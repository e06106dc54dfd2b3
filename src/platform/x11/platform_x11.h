// The X11 backend of the platform seam, for window managers that follow EWMH.
#pragma once

#include "platform/platform.h"

#include <memory>
#include <string>

namespace tarnwick {

// A backend on the display `display` (empty: $DISPLAY); nothing, with a
// one-line reason, when there is no display to talk to.
std::unique_ptr<Platform> openX11Platform(const std::string& display, std::string& why);

}  // namespace tarnwick
