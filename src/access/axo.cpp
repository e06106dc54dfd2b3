// AXO: the window logic above the platform's element and attribute calls.
#include "access/axo.h"


namespace tarnwick::AXO {

namespace {

constexpr float applicationTimeout = 2.0f;
constexpr float tokenElementTimeout = 0.5f;
constexpr std::uint32_t tokenMagic = 0x636F636F;

const std::string windowsAttribute = "AXWindows";
const std::string subroleAttribute = "AXSubrole";
const std::string standardWindow = "AXStandardWindow";

// The attribute as a string, or nothing when it is unreadable or of another type.
std::optional<std::string> stringAttr(const Element& element, const std::string& name) {
    auto value = attr(element, name);
    if (!value) return std::nullopt;
    if (auto* text = std::get_if<std::string>(&*value)) return std::move(*text);
    return std::nullopt;
}

bool boolAttr(const Element& element, const std::string& name) {
    auto value = attr(element, name);
    if (!value) return false;
    auto* flag = std::get_if<bool>(&*value);
    return flag != nullptr && *flag;
}

bool isStandardWindow(const Element& element) { return stringAttr(element, subroleAttribute) == standardWindow; }

// Little-endian, whatever the host: the layout is part of the lookup's contract.
void putLittleEndian(RemoteToken& token, size_t offset, std::uint64_t value, size_t width) {
    for (size_t i = 0; i < width; ++i) token[offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

// HACK: the application's "AXWindows" list leaves out windows on other Spaces
// (and sometimes minimized ones); the private token lookup still reaches them.
std::vector<Element> windowsByToken(std::int32_t pid) {
    std::vector<Element> found;
    for (std::uint64_t id = 0; id < remoteTokenAttempts; ++id) {
        Element element = platform().elementForRemoteToken(remoteToken(pid, id));
        if (!element) continue;
        // A hung application answers each token element within this time or not at all.
        platform().setMessagingTimeout(element, tokenElementTimeout);
        if (isStandardWindow(element)) found.push_back(std::move(element));
    }
    return found;
}

}  // namespace

bool trusted() { return platform().accessibilityTrusted(); }

void promptForTrust() { platform().promptForAccessibilityTrust(); }

std::optional<AttrValue> attr(const Element& element, const std::string& name) {
    if (!element) return std::nullopt;
    return platform().copyAttribute(element, name);
}

RemoteToken remoteToken(std::int32_t pid, std::uint64_t elementId) {
    RemoteToken token{};
    putLittleEndian(token, 0, static_cast<std::uint32_t>(pid), 4);
    putLittleEndian(token, 8, tokenMagic, 4);
    putLittleEndian(token, 12, elementId, 8);
    return token;
}

std::vector<Element> windows(std::int32_t pid) {
    std::vector<Element> merged;
    Element application = platform().applicationElement(pid);
    if (application) {
        platform().setMessagingTimeout(application, applicationTimeout);
        if (auto listed = attr(application, windowsAttribute))
            if (auto* elements = std::get_if<std::vector<Element>>(&*listed)) merged = std::move(*elements);
    }

    // Against the growing list, so a window the token lookup finds twice is kept once too.
    for (Element& extra : windowsByToken(pid)) {
        bool known = false;
        for (const Element& have : merged)
            if (platform().sameElement(have, extra)) {
                known = true;
                break;
            }
        if (!known) merged.push_back(std::move(extra));
    }
    if (merged.empty()) return merged;

    std::vector<Element> standard;
    for (Element& element : merged)
        if (isStandardWindow(element)) standard.push_back(std::move(element));
    return standard;
}

std::optional<Frame> frame(const Element& element) {
    auto position = attr(element, "AXPosition");
    if (!position) return std::nullopt;
    auto size = attr(element, "AXSize");
    if (!size) return std::nullopt;
    auto* point = std::get_if<Point>(&*position);
    auto* extent = std::get_if<Size>(&*size);
    if (point == nullptr || extent == nullptr) return std::nullopt;
    return Frame{point->x, point->y, extent->width, extent->height};
}

void setFrame(const Element& element, const Frame& frame) {
    if (!element) return;
    const AttrValue size = Size{frame.w, frame.h};
    // Size first and last: a move can be refused where the old size does not
    // fit, and a resize can be clipped at the old position.
    platform().setAttribute(element, "AXSize", size);
    platform().setAttribute(element, "AXPosition", Point{frame.x, frame.y});
    platform().setAttribute(element, "AXSize", size);
}

void setBool(const Element& element, const std::string& name, bool value) {
    if (!element) return;
    platform().setAttribute(element, name, value);
}

void addWindowManagerState(const Element& element, WindowState& window) {
    if (auto value = attr(element, workspaceAttribute))
        if (auto* number = std::get_if<std::int64_t>(&*value)) window.workspace = *number;
    if (auto value = attr(element, maximizedHorizontallyAttribute))
        if (auto* on = std::get_if<bool>(&*value)) window.maximizedHorizontally = *on;
    if (auto value = attr(element, maximizedVerticallyAttribute))
        if (auto* on = std::get_if<bool>(&*value)) window.maximizedVertically = *on;
    if (auto value = attr(element, outputAttribute))
        if (auto* name = std::get_if<std::string>(&*value); name && !name->empty()) window.output = *name;
}

void setInteger(const Element& element, const std::string& name, std::int64_t value) {
    if (!element) return;
    platform().setAttribute(element, name, value);
}

WindowState state(const Element& element) {
    WindowState window;
    window.title = stringAttr(element, "AXTitle");
    window.document = stringAttr(element, "AXDocument");
    window.frame = frame(element);
    window.minimized = boolAttr(element, "AXMinimized");
    window.fullScreen = boolAttr(element, "AXFullScreen");
    return window;
}

}  // namespace tarnwick::AXO
