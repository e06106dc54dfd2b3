// Restore::restoreGeneric and waitForWindows: saved windows onto live ones.
#include "session/restore.h"

#include "access/axo.h"
#include "model/printable.h"
#include "store/log.h"

#include <algorithm>
#include <cmath>
#include <set>

namespace tarnwick::Restore {

namespace {

constexpr double windowPoll = 0.5;
constexpr double launchedWait = 12.0;
constexpr double runningWait = 1.0;
constexpr double documentOpenTimeout = 20.0;
constexpr double documentWindowWait = 10.0;
constexpr double frameSettleWait = 0.5;
constexpr double frameSettlePoll = 0.02;

std::optional<std::string> textAttr(const Element& window, const std::string& name) {
    auto value = AXO::attr(window, name);
    if (value && std::holds_alternative<std::string>(*value)) return std::get<std::string>(*value);
    return std::nullopt;
}

// The first live window whose attribute reads as exactly this text.
std::optional<size_t> firstWith(const std::vector<Element>& live, const std::string& name, const std::string& text) {
    for (size_t i = 0; i < live.size(); ++i)
        if (textAttr(live[i], name) == text) return i;
    return std::nullopt;
}

// Opens the saved documents that no live window shows, then waits for their
// windows. The live list as it then stands, or unchanged when nothing was opened.
std::vector<Element> reopenDocuments(const AppState& app, std::int32_t pid, std::vector<Element> live) {
    std::set<std::string> open;
    for (const Element& window : live)
        if (auto document = textAttr(window, "AXDocument")) open.insert(*document);
    std::vector<std::string> missing;
    for (const WindowState& saved : app.windows) {
        if (!saved.document || open.count(*saved.document)) continue;
        auto path = fileURLPath(*saved.document);
        if (path && platform().fileExists(*path)) missing.push_back(*saved.document);
    }
    if (missing.empty()) return live;
    auto bundle = appURL(app);
    if (!bundle) return live;
    // The sink may run after we stopped waiting, so it owns its copy of the name.
    std::string prefix = "open docs in " + app.name + ": ";
    platform().openDocuments(missing, *bundle, documentOpenTimeout,
                             [prefix](const std::string& error) { log(printable(prefix + error)); });
    return waitForWindows(pid, static_cast<std::int64_t>(app.windows.size()), documentWindowWait);
}

bool sameFrame(const Frame& a, const Frame& b) {
    auto close = [](double x, double y) { return std::abs(x - y) <= 2; };
    return close(a.x, b.x) && close(a.y, b.y) && close(a.w, b.w) && close(a.h, b.h);
}

bool holds(const PlacedWindow& placed) {
    if (placed.frame) {
        auto now = AXO::frame(placed.window);
        if (!now || !sameFrame(*now, *placed.frame)) return false;
    }
    if (placed.minimized) {
        auto now = AXO::attr(placed.window, "AXMinimized");
        if (!now || now != AttrValue(true)) return false;
    }
    return true;
}

}  // namespace

// A window manager (X11, a Wayland compositor) applies requests when it gets to them: it sizes a
// window from borders that may still change as a maximized state goes, and
// may pass over a request for a window it is still mapping. The windows are
// looked at again for a moment, and asked once more where it did not hold.
void settle(const std::vector<PlacedWindow>& placed) {
    Platform& desktop = platform();
    double deadline = desktop.monotonicSeconds() + frameSettleWait;
    for (;;) {
        std::vector<const PlacedWindow*> off;
        for (const PlacedWindow& entry : placed)
            if (!holds(entry)) off.push_back(&entry);
        if (off.empty() || desktop.desktopLost()) return;
        if (desktop.monotonicSeconds() >= deadline) {
            for (const PlacedWindow* entry : off) {
                if (entry->frame) AXO::setFrame(entry->window, *entry->frame);
                if (entry->minimized) AXO::setBool(entry->window, "AXMinimized", true);
            }
            return;
        }
        desktop.sleep(frameSettlePoll);
    }
}

Frame ontoOutputs(const Frame& frame, const std::optional<std::string>& recorded, const std::vector<Output>& outputs) {
    if (outputs.empty() || outputHolding(frame, outputs)) return frame;
    // The gap between two rectangles, squared; 0 where they touch.
    auto gap = [&](const Frame& o) {
        double dx = std::max({0.0, o.x - (frame.x + frame.w), frame.x - (o.x + o.w)});
        double dy = std::max({0.0, o.y - (frame.y + frame.h), frame.y - (o.y + o.h)});
        return dx * dx + dy * dy;
    };
    const Output* target = nullptr;
    for (const Output& output : outputs)
        if (recorded && output.name == *recorded) target = &output;
    if (target == nullptr)
        for (const Output& output : outputs)
            if (target == nullptr || gap(output.frame) < gap(target->frame)) target = &output;
    const Frame& o = target->frame;
    Frame placed = frame;
    placed.w = std::min(frame.w, o.w);
    placed.h = std::min(frame.h, o.h);
    placed.x = std::clamp(frame.x, o.x, o.x + o.w - placed.w);
    placed.y = std::clamp(frame.y, o.y, o.y + o.h - placed.h);
    return placed;
}

std::vector<Element> waitForWindows(std::int32_t pid, std::int64_t expected, double timeout) {
    Platform& desktop = platform();
    double deadline = desktop.monotonicSeconds() + timeout;
    std::vector<Element> live = AXO::windows(pid);
    while (static_cast<std::int64_t>(live.size()) < expected && desktop.monotonicSeconds() < deadline &&
           !desktop.desktopLost()) {
        desktop.sleep(windowPoll);
        live = AXO::windows(pid);
    }
    return live;
}

void restoreGeneric(const AppState& app, const App& running, bool launched, Result& result,
                    std::vector<PlacedWindow>* settleLater) {
    if (!AXO::trusted() || app.windows.empty()) return;
    std::int32_t pid = platform().appInfo(running).pid;
    auto expected = static_cast<std::int64_t>(app.windows.size());
    std::vector<Element> live = waitForWindows(pid, expected, launched ? launchedWait : runningWait);
    live = reopenDocuments(app, pid, std::move(live));

    // What was asked of each window, to be looked at again where a window manager keeps them.
    const bool managed = platform().windowManagerName().has_value();
    // A monitor may have gone since the snapshot: no window is put where none shows it.
    const std::vector<Output> outputs = platform().outputs();
    std::vector<PlacedWindow> placed;

    // Greedy in saved order: a window without a match takes whatever is first,
    // even if a later saved window would have matched it by title.
    for (const WindowState& saved : app.windows) {
        // A snapshot file may hold any number: a workspace no window manager
        // has counts as none, a frame no screen can show is not written.
        bool workspace = saved.workspace.has_value();
        if (workspace && (*saved.workspace < -1 || *saved.workspace > AXO::lastWorkspace)) {
            log(printable("restore " + app.name + ": workspace " + std::to_string(*saved.workspace) +
                          " left out, no window manager has it"));
            workspace = false;
        }
        std::optional<Frame> frame = saved.frame;
        if (frame && !frame->placeable()) {
            log(printable("restore " + app.name + ": a frame that no screen can show left out"));
            frame.reset();
        }
        // Full screen and maximized both ways take their frame from the output
        // the window is on: only a frame that is written is moved.
        bool frameWritten = !saved.fullScreen && !(saved.maximizedHorizontally.value_or(false) &&
                                                    saved.maximizedVertically.value_or(false));
        if (frame && frameWritten) {
            Frame shown = ontoOutputs(*frame, saved.output, outputs);
            // The outputs are the desktop's word: one no screen can be is not believed.
            if (!shown.placeable()) shown = *frame;
            if (!(shown == *frame))
                log(printable("restore " + app.name + ": a window outside every screen now put on " +
                              outputHolding(shown, outputs).value_or("a screen")));
            frame = shown;
        }
        std::optional<size_t> pick;
        if (saved.document && !live.empty()) pick = firstWith(live, "AXDocument", *saved.document);
        if (!pick && saved.title) pick = firstWith(live, "AXTitle", *saved.title);
        if (!pick) {
            if (live.empty()) break;
            pick = 0;
        }
        Element window = live[*pick];
        live.erase(live.begin() + static_cast<std::ptrdiff_t>(*pick));
        // Where a window manager recorded them (Linux): the workspace first, and
        // a maximized axis that should not be is released before the frame.
        bool maximizedState = saved.maximizedHorizontally || saved.maximizedVertically;
        bool wide = saved.maximizedHorizontally.value_or(false), tall = saved.maximizedVertically.value_or(false);
        if (workspace) AXO::setInteger(window, AXO::workspaceAttribute, *saved.workspace);
        if (maximizedState && !(wide && tall))
            AXO::setBool(window,
                         wide   ? AXO::maximizedVerticallyAttribute
                         : tall ? AXO::maximizedHorizontallyAttribute
                                : AXO::maximizedAttribute,
                         false);
        // A window going full screen gets its size from the screen, not from us;
        // one maximized both ways from the work area, and keeps the size it has
        // for when it is restored.
        bool framed = frame && !saved.fullScreen && !(wide && tall);
        if (framed) AXO::setFrame(window, *frame);
        // A maximized axis or full screen decides the frame itself; a window
        // that is to be minimized is looked at for that, not for its frame.
        if (managed && !saved.fullScreen) {
            bool checkFrame = framed && !wide && !tall && !saved.minimized;
            if (checkFrame || saved.minimized)
                placed.push_back({window, checkFrame ? frame : std::nullopt, saved.minimized});
        }
        if (wide || tall)
            AXO::setBool(window,
                         wide && tall ? AXO::maximizedAttribute
                         : wide       ? AXO::maximizedHorizontallyAttribute
                                      : AXO::maximizedVerticallyAttribute,
                         true);
        if (saved.minimized) AXO::setBool(window, "AXMinimized", true);
        if (saved.fullScreen) AXO::setBool(window, "AXFullScreen", true);
        result.windows += 1;
    }
    if (settleLater != nullptr)
        settleLater->insert(settleLater->end(), placed.begin(), placed.end());
    else if (!placed.empty())
        settle(placed);
}

}  // namespace tarnwick::Restore
