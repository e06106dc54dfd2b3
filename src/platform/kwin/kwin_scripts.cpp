// The KWin scripts: JavaScript text built here, and the listing read with simdjson.
#include "platform/kwin/kwin_scripts.h"

#include <simdjson.h>

#include <cmath>
#include <cstdio>
#include <sstream>

namespace tarnwick::KWin {

namespace {

// A JavaScript string literal (JSON's form is valid JavaScript).
std::string quoted(const std::string& text) {
    std::string out = "\"";
    for (char raw : text) {
        auto c = static_cast<unsigned char>(raw);
        if (c == '"' || c == '\\') {
            out.push_back('\\');
            out.push_back(raw);
        } else if (c < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
            out += escaped;
        } else {
            out.push_back(raw);
        }
    }
    return out + "\"";
}

std::string number(double value) {
    if (!std::isfinite(value)) value = 0;
    char text[32];
    std::snprintf(text, sizeof text, "%.17g", value);
    return text;
}

// The call that hands `payload` back to us with `token`, both JavaScript expressions.
std::string answerWith(const ReplyAddress& to, const std::string& token, const std::string& payload) {
    return "callDBus(" + quoted(to.service) + ", " + quoted(to.path) + ", " + quoted(to.interface) + ", " +
           quoted(to.method) + ", " + token + ", " + payload + ");\n";
}

std::string answer(const ReplyAddress& to, const std::string& token, const std::string& payload) {
    return answerWith(to, quoted(token), payload);
}

// HACK: Plasma 6 renamed workspace.clientList() to windowList() and
// activeClient to activeWindow. It keeps a window's virtual desktops as a
// list of desktop objects (empty on all desktops) where 5.27 kept one number
// (-1 on all), and its screen as an output object where 5.27 kept an index.
// These few names hide that; the rest of what we use is the same.
constexpr const char* prelude =
    "function tw_windows() {\n"
    "  return typeof workspace.windowList === \"function\" ? workspace.windowList() : workspace.clientList();\n"
    "}\n"
    "function tw_activeWindow() {\n"
    "  return workspace.activeWindow !== undefined ? workspace.activeWindow : workspace.activeClient;\n"
    "}\n"
    "function tw_desktop(c) {\n"
    "  if (typeof c.desktop === \"number\") return c.desktop;\n"
    "  if (c.onAllDesktops) return -1;\n"
    "  return c.desktops && c.desktops.length > 0 ? c.desktops[0].x11DesktopNumber : null;\n"
    "}\n"
    "function tw_setDesktop(c, number) {\n"
    "  if (typeof c.desktop === \"number\") { c.desktop = number; return; }\n"
    "  if (number === -1) { c.onAllDesktops = true; return; }\n"
    "  workspace.desktops.forEach(function (d) { if (d.x11DesktopNumber === number) c.desktops = [d]; });\n"
    "}\n"
    "function tw_output(c) {\n"
    "  if (c.output) return String(c.output.name);\n"
    "  return typeof c.screen === \"number\" ? String(c.screen) : \"\";\n"
    "}\n";

// Defines tw_listing(token): lists every window with its states and sends it
// all back, with `token`, in one call.
std::string listingFunction(const ReplyAddress& to) {
    // HACK: a KWin 5.27 script cannot read whether a window is maximized;
    // KWin's own getWindowInfo on D-Bus can, at a D-Bus call within KWin for
    // each window, and the script answers once all have answered. The
    // script kept loaded remembers each answer with the frame the window had
    // (tw_maximized) and asks again only once the frame is another, or KWin
    // said the window was maximized or restored since (clientMaximizeSet,
    // counted in tw_heard): an answer that crossed such news is not kept.
    // KWin 6 shows a script maximizeMode itself (1 vertically, 2 horizontally).
    return std::string("var tw_maximized = {}, tw_heard = {};\n") +
           "function tw_listing(token) {\n"
           "var tw_list = tw_windows(), tw_active = tw_activeWindow();\n"
           "var listed = {};\n"
           "tw_list.forEach(function (c) { listed[String(c.internalId)] = true; });\n"
           "for (var known in tw_maximized) if (!listed[known]) delete tw_maximized[known];\n"
           "for (var heard in tw_heard) if (!listed[heard]) delete tw_heard[heard];\n"
           "var out = {windows: [], active: tw_active ? String(tw_active.internalId) : null, outputs: []};\n"
           "if (workspace.screens !== undefined) {\n"
           "  workspace.screens.forEach(function (o) {\n"
           "    var g = o.geometry;\n"
           "    out.outputs.push({name: String(o.name), x: g.x, y: g.y, width: g.width, height: g.height});\n"
           "  });\n"
           "} else {\n"
           "  for (var i = 0; i < workspace.numScreens; i++) {\n"
           "    var a = workspace.clientArea(KWin.ScreenArea, i, workspace.currentDesktop);\n"
           "    out.outputs.push({name: \"\", x: a.x, y: a.y, width: a.width, height: a.height});\n"
           "  }\n"
           "}\n"
           "var left = tw_list.length;\n"
           "function done() {\n  " +
           answerWith(to, "token", "JSON.stringify(out)") +
           "}\n"
           "if (left === 0) { done(); return; }\n"
           "tw_list.forEach(function (c) {\n"
           "  var g = c.frameGeometry, cg = c.clientGeometry || g;\n"
           "  var w = {id: String(c.internalId), pid: c.pid || 0,\n"
           "           x11: typeof c.windowId === \"number\" ? c.windowId : 0,\n"
           "           caption: String(c.caption || \"\"), resourceClass: String(c.resourceClass || \"\"),\n"
           "           resourceName: String(c.resourceName || \"\"), desktopFile: String(c.desktopFileName || \"\"),\n"
           "           x: g.x, y: g.y, width: g.width, height: g.height,\n"
           "           clientX: cg.x, clientY: cg.y, clientWidth: cg.width, clientHeight: cg.height,\n"
           "           minimized: !!c.minimized, fullScreen: !!c.fullScreen,\n"
           "           desktop: tw_desktop(c), output: tw_output(c),\n"
           "           normal: !!c.normalWindow, dialog: !!c.dialog, transient: !!c.transient,\n"
           "           desktopPart: !!(c.desktopWindow || c.dock),\n"
           "           maximizedHorizontally: false, maximizedVertically: false};\n"
           "  out.windows.push(w);\n"
           "  if (typeof c.maximizeMode === \"number\") {\n"
           "    w.maximizedHorizontally = (c.maximizeMode & 2) !== 0;\n"
           "    w.maximizedVertically = (c.maximizeMode & 1) !== 0;\n"
           "    if (--left === 0) done();\n"
           "    return;\n"
           "  }\n"
           "  function take(m) { w.maximizedHorizontally = m.h; w.maximizedVertically = m.v; }\n"
           "  var frame = g.x + \",\" + g.y + \",\" + g.width + \",\" + g.height;\n"
           "  var before = tw_heard[w.id] || 0;\n"
           "  if (tw_maximized[w.id] && tw_maximized[w.id].frame === frame) {\n"
           "    take(tw_maximized[w.id]);\n"
           "    if (--left === 0) done();\n"
           "    return;\n"
           "  }\n"
           "  callDBus(\"org.kde.KWin\", \"/KWin\", \"org.kde.KWin\", \"getWindowInfo\", w.id, function (info) {\n"
           "    if (info) {\n"
           "      var m = {h: !!info.maximizeHorizontal, v: !!info.maximizeVertical, frame: frame};\n"
           "      if ((tw_heard[w.id] || 0) === before) tw_maximized[w.id] = m;\n"
           "      take(m);\n"
           "    }\n"
           "    if (--left === 0) done();\n"
           "  });\n"
           "});\n"
           "}\n";
}

}  // namespace

std::string listingScript(const ReplyAddress& to, const std::string& token) {
    return std::string("(function () {\n") + prelude + listingFunction(to) + "tw_listing(" + quoted(token) +
           ");\n})();\n";
}

std::string residentListingScript(const ReplyAddress& to, const std::string& label) {
    // The call is asked again before the listing is made: a listing that
    // fails must not end the waiting.
    return std::string("(function () {\n") + prelude + listingFunction(to) +
           "if (workspace.clientMaximizeSet !== undefined)\n"
           "  workspace.clientMaximizeSet.connect(function (c, h, v) {\n"
           "    var id = String(c.internalId);\n"
           "    tw_heard[id] = (tw_heard[id] || 0) + 1;\n"
           "    delete tw_maximized[id];\n"
           "  });\n"
           "function tw_wait() {\n"
           "  callDBus(" + quoted(to.service) + ", " + quoted(to.path) + ", " + quoted(to.interface) + ", " +
           quoted(to.next) + ", " + quoted(label) + ", function (token) {\n"
           "    tw_wait();\n"
           "    if (token) tw_listing(token);\n"
           "  });\n"
           "}\n"
           "tw_wait();\n"
           "})();\n";
}

std::optional<Listing> parseListing(const std::string& payload) {
    simdjson::dom::parser parser;
    simdjson::dom::element root;
    if (parser.parse(payload).get(root)) return std::nullopt;
    Listing listing;
    std::string_view active;
    if (!root["active"].get(active)) listing.active = std::string(active);
    simdjson::dom::array windows;
    if (root["windows"].get(windows)) return std::nullopt;
    for (simdjson::dom::element item : windows) {
        WindowFacts w;
        std::string_view text;
        if (item["id"].get(text)) return std::nullopt;
        w.id = std::string(text);
        auto textOf = [&](const char* key, std::string& into) {
            std::string_view value;
            if (!item[key].get(value)) into = std::string(value);
        };
        auto numberOf = [&](const char* key) -> std::optional<double> {
            double value = 0;
            if (!item[key].get(value)) return value;
            return std::nullopt;
        };
        auto flag = [&](const char* key) {
            bool value = false;
            return !item[key].get(value) && value;
        };
        textOf("caption", w.caption);
        textOf("resourceClass", w.resourceClass);
        textOf("resourceName", w.resourceName);
        textOf("desktopFile", w.desktopFile);
        w.pid = static_cast<std::int32_t>(numberOf("pid").value_or(0));
        w.x11Window = static_cast<std::uint32_t>(numberOf("x11").value_or(0));
        auto x = numberOf("x"), y = numberOf("y"), width = numberOf("width"), height = numberOf("height");
        if (!x || !y || !width || !height) return std::nullopt;
        w.x = *x;
        w.y = *y;
        w.width = *width;
        w.height = *height;
        w.clientX = numberOf("clientX").value_or(w.x);
        w.clientY = numberOf("clientY").value_or(w.y);
        w.clientWidth = numberOf("clientWidth").value_or(w.width);
        w.clientHeight = numberOf("clientHeight").value_or(w.height);
        w.minimized = flag("minimized");
        w.fullScreen = flag("fullScreen");
        w.maximizedHorizontally = flag("maximizedHorizontally");
        w.maximizedVertically = flag("maximizedVertically");
        if (auto desktop = numberOf("desktop")) w.desktop = static_cast<std::int64_t>(*desktop);
        textOf("output", w.output);
        w.normal = flag("normal");
        w.dialog = flag("dialog");
        w.transient = flag("transient");
        w.desktopPart = flag("desktopPart");
        listing.windows.push_back(std::move(w));
    }
    simdjson::dom::array outputs;
    if (!root["outputs"].get(outputs))
        for (simdjson::dom::element item : outputs) {
            Output output;
            std::string_view name;
            if (!item["name"].get(name)) output.name = std::string(name);
            double* fields[] = {&output.frame.x, &output.frame.y, &output.frame.w, &output.frame.h};
            const char* keys[] = {"x", "y", "width", "height"};
            bool whole = true;
            for (size_t i = 0; i < 4; ++i) whole = whole && !item[keys[i]].get(*fields[i]);
            if (whole && output.frame.w > 0 && output.frame.h > 0) listing.outputs.push_back(std::move(output));
        }
    return listing;
}

std::vector<Output> outputsDescribed(const std::string& supportInformation) {
    std::vector<Output> found;
    std::istringstream lines(supportInformation);
    std::string line;
    std::optional<std::string> name;
    while (std::getline(lines, line)) {
        if (line.rfind("Screen ", 0) == 0 && !line.empty() && line.back() == ':') {
            name.reset();
        } else if (line.rfind("Name: ", 0) == 0) {
            name = line.substr(6);
        } else if (line.rfind("Geometry: ", 0) == 0 && name) {
            Output output{*name, {}};
            char comma = 0, times = 0;
            std::istringstream geometry(line.substr(10));
            if (geometry >> output.frame.x >> comma >> output.frame.y >> comma >> output.frame.w >> times >>
                    output.frame.h &&
                times == 'x')
                found.push_back(std::move(output));
            name.reset();
        }
    }
    return found;
}

std::string changeScript(const std::vector<Change>& changes, const ReplyAddress& to, const std::string& token) {
    std::string script = std::string("(function () {\n") + prelude +
                         "var byId = {}, tw_list = tw_windows();\n"
                         "tw_list.forEach(function (c) { byId[String(c.internalId)] = c; });\n"
                         "var c, g;\n";
    for (const Change& change : changes) {
        script += "c = byId[" + quoted(change.id) + "];\nif (c) {\n";
        switch (change.kind) {
            case Change::Kind::desktop:
                script += "  tw_setDesktop(c, " + std::to_string(change.desktop) + ");\n";
                break;
            case Change::Kind::frame: {
                auto part = [](const std::optional<double>& value, const char* current) {
                    return value ? number(*value) : std::string("g.") + current;
                };
                script += "  if (!c.fullScreen) {\n    g = c.frameGeometry;\n    c.frameGeometry = {x: " +
                          part(change.x, "x") + ", y: " + part(change.y, "y") + ", width: " +
                          part(change.width, "width") + ", height: " + part(change.height, "height") + "};\n  }\n";
                break;
            }
            case Change::Kind::maximize:
                script += std::string("  c.setMaximize(") + (change.vertically ? "true" : "false") + ", " +
                          (change.horizontally ? "true" : "false") + ");\n";
                break;
            case Change::Kind::minimized:
                script += std::string("  c.minimized = ") + (change.on ? "true" : "false") + ";\n";
                break;
            case Change::Kind::fullScreen:
                script += std::string("  c.fullScreen = ") + (change.on ? "true" : "false") + ";\n";
                break;
            case Change::Kind::activate:
                script += "  if (workspace.activeWindow !== undefined) workspace.activeWindow = c;\n"
                          "  else workspace.activeClient = c;\n";
                break;
        }
        script += "}\n";
    }
    return script + answer(to, token, "\"done\"") + "})();\n";
}

std::string answerOnlyScript(const ReplyAddress& to, const std::string& token) {
    return answer(to, token, "\"done\"");
}

}  // namespace tarnwick::KWin
