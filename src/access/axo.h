// AXO: reading, listing and setting the windows of other applications.
#pragma once

#include "model/frame.h"
#include "model/snapshot.h"
#include "platform/platform.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarnwick::AXO {

// The window manager's states, by the seam's names.
using tarnwick::lastWorkspace;
using tarnwick::maximizedAttribute;
using tarnwick::maximizedHorizontallyAttribute;
using tarnwick::maximizedVerticallyAttribute;
using tarnwick::outputAttribute;
using tarnwick::workspaceAttribute;

// Whether this process may use window access at all.
bool trusted();

// Asks the system to show its trust prompt; the answer arrives later, if ever.
void promptForTrust();

// An attribute's value; absent when the read fails or yields nothing.
std::optional<AttrValue> attr(const Element& element, const std::string& name);

// The application's standard windows: its own window list first, in its order,
// then the windows only the token lookup finds, by ascending element id.
std::vector<Element> windows(std::int32_t pid);

// Position and size together; absent unless both read as a point and a size.
std::optional<Frame> frame(const Element& element);

// Writes size, position, then size again; errors are ignored.
void setFrame(const Element& element, const Frame& frame);

// Writes a Boolean attribute; errors are ignored.
void setBool(const Element& element, const std::string& name, bool value);

// Title, document, frame, minimized and full screen, each read on its own.
WindowState state(const Element& element);

// Adds the window manager's states (workspace, maximized) to `window`, each
// only when it can be read.
void addWindowManagerState(const Element& element, WindowState& window);

// Writes an integer attribute; errors are ignored.
void setInteger(const Element& element, const std::string& name, std::int64_t value);

// The token naming element `elementId` of the process `pid`.
RemoteToken remoteToken(std::int32_t pid, std::uint64_t elementId);

// How many element ids windows(pid) tries, always all of them.
inline constexpr std::uint64_t remoteTokenAttempts = 1000;

}  // namespace tarnwick::AXO
