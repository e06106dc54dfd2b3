// The window half of the macOS backend: Accessibility calls in portable types.
#pragma once

#include "platform/platform.h"

#include <cstdint>
#include <optional>
#include <string>

namespace tarnwick::AXMac {

bool trusted();
void promptForTrust();
Element application(std::int32_t pid);
void setMessagingTimeout(const Element& element, float seconds);
std::optional<AttrValue> copyAttribute(const Element& element, const std::string& name);
void setAttribute(const Element& element, const std::string& name, const AttrValue& value);
Element elementForRemoteToken(const RemoteToken& token);
bool sameElement(const Element& a, const Element& b);

}  // namespace tarnwick::AXMac
