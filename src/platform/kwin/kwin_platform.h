// The KWin backend of the platform seam: KDE Plasma on Wayland, where only the
// compositor can list and place windows; it is asked through its scripting over D-Bus.
#pragma once

#include "platform/platform.h"

#include <memory>
#include <string>

namespace tarnwick {

// A backend talking to the KWin on $DBUS_SESSION_BUS_ADDRESS; nothing, with a
// one-line reason, when no KWin answers there.
std::unique_ptr<Platform> openKWinPlatform(std::string& why);

}  // namespace tarnwick
