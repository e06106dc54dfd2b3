// Writing a Snapshot in the exact file form.
#include "model/iso_date.h"
#include "model/invariant.h"
#include "model/snapshot_json.h"
#include "model/utf8.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <vector>

namespace tarnwick {

namespace {

// How each ASCII character is written inside a string, and what a byte that
// starts no UTF-8 sequence becomes.
constexpr std::string_view replacement = "\xEF\xBF\xBD";
struct Escapes {
    using Form = std::array<char, 8>;
    std::array<Form, 128> text{};
    std::array<unsigned char, 128> length{};
};
constexpr Escapes escapes = [] {
    Escapes table{};
    auto set = [&table](unsigned char c, std::string_view form) {
        for (size_t k = 0; k < form.size(); ++k) table.text[c][k] = form[k];
        table.length[c] = static_cast<unsigned char>(form.size());
    };
    constexpr char hex[] = "0123456789abcdef";
    for (unsigned c = 0; c < 0x80; ++c) {
        auto ch = static_cast<unsigned char>(c);
        if (c < 0x20) {
            const char form[] = {'\\', 'u', '0', '0', hex[c >> 4], hex[c & 0xF]};
            set(ch, {form, sizeof form});
        } else {
            const char form[] = {static_cast<char>(c)};
            set(ch, {form, 1});
        }
    }
    set('"', "\\\""), set('\\', "\\\\"), set('/', "\\/");
    set('\b', "\\b"), set('\f', "\\f"), set('\n', "\\n"), set('\r', "\\r"), set('\t', "\\t");
    return table;
}();

class Writer {
public:
    std::string out;
    std::string error;

    void beginObject() {
        out += '{';
        levels_.push_back({});
    }
    void endObject() { close('}', "{ }"); }
    void beginArray() {
        out += '[';
        levels_.push_back({});
    }
    void endArray() { close(']', "[ ]"); }

    // Starts an object member. Keys must come in sorted order; the records are
    // written field by field, so a wrong order is a programming error.
    void key(std::string_view name) {
        Level& level = levels_.back();
        if (level.count > 0 && !(level.lastKey < name))
            invariantFailed("snapshot keys written out of order: " + std::string(name));
        level.lastKey = name;
        nextItem();
        string(name);
        out += " : ";
    }
    // Starts an array element.
    void element() { nextItem(); }

    // Writes through a pointer into a buffer on the stack, flushed to the output
    // when nearly full: a URL holds many "/", each written "\/", and appending
    // piece by piece costs more than the escaping. Each ASCII character copies
    // its whole eight-byte table entry and moves on by the length of its form.
    void string(std::string_view s) {
        char buffer[1024];
        char* p = buffer;
        char* const last = buffer + sizeof buffer - sizeof(Escapes::Form);
        *p++ = '"';
        for (size_t i = 0; i < s.size();) {
            if (p > last) {
                out.append(buffer, p);
                p = buffer;
            }
            auto c = static_cast<unsigned char>(s[i]);
            if (c < 0x80) {
                std::memcpy(p, escapes.text[c].data(), sizeof(Escapes::Form));
                p += escapes.length[c];
                ++i;
            } else if (size_t n = utf8SequenceLength(s, i); n > 0) {
                std::memcpy(p, s.data() + i, n);
                p += n;
                i += n;
            } else {
                // Text from outside should already be UTF-8; a stray byte
                // becomes U+FFFD so the file stays readable.
                std::memcpy(p, replacement.data(), replacement.size());
                p += replacement.size();
                ++i;
            }
        }
        *p++ = '"';
        out.append(buffer, p);
    }
    void boolean(bool b) { out += b ? "true" : "false"; }
    void integer(int64_t v) {
        char buffer[24];
        out.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, v).ptr);
    }
    void number(double v) {
        if (!std::isfinite(v)) {
            fail("a frame value is not a finite number");
            v = 0;
        }
        // Negative zero equals zero, and readers take "-0" for the integer 0 anyway.
        if (v == 0) v = 0;
        char buffer[32];
        out.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, v).ptr);
    }
    void fail(std::string reason) {
        if (error.empty()) error = std::move(reason);
    }

private:
    struct Level {
        size_t count = 0;
        std::string_view lastKey;
    };
    std::vector<Level> levels_;

    void newline(size_t depth) {
        out += '\n';
        out.append(2 * depth, ' ');
    }
    void nextItem() {
        if (levels_.back().count++ > 0) out += ',';
        newline(levels_.size());
    }
    void close(char bracket, std::string_view empty) {
        size_t count = levels_.back().count;
        levels_.pop_back();
        if (count == 0) {
            out.pop_back();
            out += empty;
            return;
        }
        newline(levels_.size());
        out += bracket;
    }
};

void writeFrame(Writer& w, const Frame& f) {
    w.beginObject();
    w.key("h"), w.number(f.h);
    w.key("w"), w.number(f.w);
    w.key("x"), w.number(f.x);
    w.key("y"), w.number(f.y);
    w.endObject();
}

void writeWindow(Writer& w, const WindowState& window) {
    w.beginObject();
    if (window.document) w.key("document"), w.string(*window.document);
    if (window.frame) w.key("frame"), writeFrame(w, *window.frame);
    w.key("fullScreen"), w.boolean(window.fullScreen);
    if (window.maximizedHorizontally) w.key("maximizedHorizontally"), w.boolean(*window.maximizedHorizontally);
    if (window.maximizedVertically) w.key("maximizedVertically"), w.boolean(*window.maximizedVertically);
    w.key("minimized"), w.boolean(window.minimized);
    if (window.output) w.key("output"), w.string(*window.output);
    if (window.title) w.key("title"), w.string(*window.title);
    if (window.workspace) w.key("workspace"), w.integer(*window.workspace);
    w.endObject();
}

void writeScripted(Writer& w, const ScriptedWindow& window) {
    w.beginObject();
    w.key("activeIndex"), w.integer(window.activeIndex);
    if (window.frame) w.key("frame"), writeFrame(w, *window.frame);
    w.key("items"), w.beginArray();
    for (const auto& item : window.items) w.element(), w.string(item);
    w.endArray();
    w.endObject();
}

void writeApp(Writer& w, const AppState& app) {
    w.beginObject();
    if (app.bundleID) w.key("bundleID"), w.string(*app.bundleID);
    w.key("bundlePath"), w.string(app.bundlePath);
    if (app.commandLine) {
        w.key("commandLine"), w.beginArray();
        for (const auto& word : *app.commandLine) w.element(), w.string(word);
        w.endArray();
    }
    w.key("hidden"), w.boolean(app.hidden);
    w.key("kind"), w.string(toString(app.kind));
    w.key("name"), w.string(app.name);
    w.key("scripted"), w.beginArray();
    for (const auto& window : app.scripted) w.element(), writeScripted(w, window);
    w.endArray();
    w.key("windows"), w.beginArray();
    for (const auto& window : app.windows) w.element(), writeWindow(w, window);
    w.endArray();
    if (app.workingDirectory) w.key("workingDirectory"), w.string(*app.workingDirectory);
    w.endObject();
}

// About the size of the file: the texts (with room for escaped slashes) and the
// fixed text around each record at its indentation, so that the output rarely grows.
size_t estimatedSize(const Snapshot& snapshot) {
    auto text = [](std::string_view t) { return t.size() + t.size() / 8 + 16; };
    auto optionalText = [&](const std::optional<std::string>& t) { return t ? text(*t) + 24 : 0; };
    size_t size = 256 + optionalText(snapshot.frontmost) + text(snapshot.reason);
    for (const AppState& app : snapshot.apps) {
        size += 200 + text(app.name) + optionalText(app.bundleID) + text(app.bundlePath) +
                optionalText(app.workingDirectory);
        if (app.commandLine)
            for (const std::string& word : *app.commandLine) size += text(word);
        for (const WindowState& window : app.windows)
            size += 200 + optionalText(window.title) + optionalText(window.document) + (window.frame ? 120 : 0);
        for (const ScriptedWindow& window : app.scripted) {
            size += 120 + (window.frame ? 120 : 0);
            for (std::string_view item : window.items) size += text(item);
        }
    }
    return size;
}

}  // namespace

std::string jsonString(std::string_view text) {
    Writer w;
    w.string(text);
    return std::move(w.out);
}

std::optional<std::string> encodeSnapshot(const Snapshot& snapshot, std::string* error) {
    return encodeSnapshot(snapshot, snapshot.signature, error);
}

std::optional<std::string> encodeSnapshot(const Snapshot& snapshot, const std::optional<std::string>& signature,
                                          std::string* error) {
    Writer w;
    w.out.reserve(estimatedSize(snapshot));
    w.beginObject();
    w.key("apps"), w.beginArray();
    for (const auto& app : snapshot.apps) w.element(), writeApp(w, app);
    w.endArray();
    auto date = isoDateText(snapshot.date);
    if (!date) w.fail("the date cannot be written as ISO 8601 text");
    w.key("date"), w.string(date.value_or(""));
    if (snapshot.frontmost) w.key("frontmost"), w.string(*snapshot.frontmost);
    w.key("reason"), w.string(snapshot.reason);
    if (signature) w.key("signature"), w.string(*signature);
    w.endObject();
    if (!w.error.empty()) {
        if (error) *error = w.error;
        return std::nullopt;
    }
    return std::move(w.out);
}

}  // namespace tarnwick
