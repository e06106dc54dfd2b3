// readBootTime: when this machine last booted, from the system.
#pragma once

#include "model/snapshot.h"

#include <optional>

namespace tarnwick {

// Nothing when the system does not say. Implemented once per system.
std::optional<Date> readBootTime();

}  // namespace tarnwick
