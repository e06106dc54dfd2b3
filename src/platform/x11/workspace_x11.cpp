// The X11 backend: windows through the X server and a window manager that
// follows EWMH; applications through what every Linux backend shares.
#include "platform/x11/platform_x11.h"

#include "platform/linux/linux_platform.h"
#include "platform/x11/axo_x11.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace tarnwick {

namespace {

class X11Platform final : public LinuxPlatform {
public:
    explicit X11Platform(std::unique_ptr<AXX11::Connection> x) : x_(std::move(x)) {}

    // Window access.
    bool accessibilityTrusted() override { return x_->windowManagerAnswers(); }
    // Nothing to grant on X11: any client may read and ask for window changes.
    void promptForAccessibilityTrust() override {}
    Element applicationElement(std::int32_t pid) override { return x_->application(pid); }
    // Requests do not wait for the other application; the server answers them.
    void setMessagingTimeout(const Element&, float) override {}
    std::optional<AttrValue> copyAttribute(const Element& element, const std::string& name) override {
        return x_->copyAttribute(element, name);
    }
    void setAttribute(const Element& element, const std::string& name, const AttrValue& value) override {
        x_->setAttribute(element, name, value);
    }
    // The server lists every managed window; there are no hidden ones to dig out.
    Element elementForRemoteToken(const RemoteToken&) override { return Element(); }
    bool sameElement(const Element& a, const Element& b) override { return x_->sameElement(a, b); }

    // Activating a window shows it: only one that is not minimized is brought
    // forward, so that a restore never un-minimizes a window by activating it.
    void activate(const App& app) override {
        for (AXX11::WindowID window : x_->windowsOf(pidOf(app)))
            if (!x_->minimized(window)) {
                x_->activateWindow(window);
                return;
            }
    }

    // Always something here, so that a capture says what it saw windows through.
    std::optional<std::string> windowManagerName() override {
        if (!x_->windowManagerAnswers()) return "none";
        return x_->windowManagerName().value_or("unnamed");
    }

    bool desktopLost() override { return x_->lost(); }
    std::vector<Output> outputs() override { return x_->outputs(); }

    void sleep(double seconds) override {
        if (seconds > 0) std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    }

private:
    std::vector<std::int32_t> windowOwners() override {
        std::vector<std::int32_t> owners;
        for (AXX11::WindowID window : x_->clientWindows()) {
            auto pid = x_->windowPid(window);
            if (pid && std::find(owners.begin(), owners.end(), *pid) == owners.end()) owners.push_back(*pid);
        }
        return owners;
    }

    std::vector<OwnedWindow> windowsOwnedBy(std::int32_t pid) override {
        std::vector<OwnedWindow> owned;
        for (AXX11::WindowID window : x_->windowsOf(pid)) {
            OwnedWindow facts;
            if (auto wmClass = x_->windowClass(window)) {
                facts.instance = wmClass->instance;
                facts.className = wmClass->wmClass;
                facts.applicationId = x_->gtkApplicationId(window).value_or("");
            }
            facts.desktopPart = x_->partOfTheDesktop(window);
            owned.push_back(std::move(facts));
        }
        return owned;
    }

    std::optional<std::int32_t> activeOwner() override {
        auto active = x_->activeWindow();
        return active ? x_->windowPid(*active) : std::nullopt;
    }

    std::string desktopKind() const override { return "on X11"; }

    std::unique_ptr<AXX11::Connection> x_;
};

}  // namespace

std::unique_ptr<Platform> openX11Platform(const std::string& display, std::string& why) {
    auto connection = AXX11::Connection::open(display, why);
    if (!connection) return nullptr;
    return std::make_unique<X11Platform>(std::move(connection));
}

}  // namespace tarnwick
