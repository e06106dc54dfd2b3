// ISO 8601 internet date-time text for snapshot dates: "2026-03-14T09:26:53Z".
#pragma once

#include "model/snapshot.h"

#include <optional>
#include <string>
#include <string_view>

namespace tarnwick {

// UTC, whole seconds (the fraction is dropped, rounding toward the past), "Z".
// Nothing for a date outside the years 0000 to 9999.
std::optional<std::string> isoDateText(Date date);

// Reads "YYYY-MM-DDTHH:MM:SSZ" or the same with a "+HH:MM"/"-HH:MM" offset.
// Fractions of a second and any other shape are rejected.
std::optional<Date> isoDateFrom(std::string_view text);

}  // namespace tarnwick
