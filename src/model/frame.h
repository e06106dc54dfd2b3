// Frame: a window rectangle, and its two text forms used by the application scripts.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tarnwick {

// A window rectangle in screen points, top-left origin.
struct Frame {
    double x = 0;
    double y = 0;
    double w = 0;
    double h = 0;

    // Reads the "left;top;right;bottom" text the capture scripts print. Pieces that
    // are not numbers are skipped; anything but four numbers with a positive width
    // and height gives nothing.
    static std::optional<Frame> init(std::string_view bounds);

    // The "{x1, y1, x2, y2}" text restore scripts assign to a window's bounds.
    // Stops the process on a non-finite or out-of-range value: callers only format
    // frames that came from real windows.
    std::string appleScriptBounds() const;

    // Whether the rectangle can stand for a window on some screen: every field
    // finite, the corner within a million points of the origin, the size from
    // zero to a million points. A snapshot file may hold any number; a restore
    // writes only frames like these to windows and scripts.
    bool placeable() const;

    // Floating-point comparison: a NaN field is never equal, 0 equals -0.
    bool operator==(const Frame&) const = default;
};

}  // namespace tarnwick
