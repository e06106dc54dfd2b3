// Reading a Snapshot from its JSON form, strictly, on simdjson's DOM parser.
#include "model/iso_date.h"
#include "model/snapshot_json.h"

#include <simdjson.h>

#include <cmath>
#include <limits>

namespace tarnwick {

namespace {

using simdjson::dom::element;
using simdjson::dom::element_type;
using simdjson::dom::object;

// Where in the document a value stands, kept as a chain on the stack and turned
// into text ("apps[2].kind") only when something is wrong.
struct Where {
    const Where* parent = nullptr;
    std::string_view key;
    size_t index = 0;
    bool isIndex = false;

    Where child(std::string_view k) const { return {this, k, 0, false}; }
    Where at(size_t i) const { return {this, {}, i, true}; }
    std::string text() const {
        std::string head = parent ? parent->text() : std::string();
        if (isIndex) return head + "[" + std::to_string(index) + "]";
        if (key.empty()) return head;
        return head.empty() ? std::string(key) : head + "." + std::string(key);
    }
};

class Reader {
public:
    std::string error;
    // False: every check is made but nothing is kept, for a caller that only
    // needs to know whether a file is a snapshot, and its date.
    bool build = true;

    bool fail(const Where& where, std::string_view what) {
        if (error.empty()) {
            std::string place = where.text();
            error = (place.empty() ? std::string("the document") : "\"" + place + "\"") + " " + std::string(what);
        }
        return false;
    }

    bool asObject(element value, const Where& where, object& out) {
        return value.get_object().get(out) == simdjson::SUCCESS || fail(where, "is not an object");
    }

    // A required member: present and not null.
    bool required(object obj, std::string_view key, const Where& parent, element& out) {
        Where where = parent.child(key);
        if (obj.at_key(key).get(out) != simdjson::SUCCESS) return fail(where, "is missing");
        if (out.is_null()) return fail(where, "is null");
        return true;
    }

    // An optional member: false when it is missing or null.
    static bool optional(object obj, std::string_view key, element& out) {
        return obj.at_key(key).get(out) == simdjson::SUCCESS && !out.is_null();
    }

    bool text(element value, const Where& where, std::string& out) {
        std::string_view view;
        if (!textView(value, where, view)) return false;
        if (build) out.assign(view);
        return true;
    }

    bool textView(element value, const Where& where, std::string_view& out) {
        return value.get_string().get(out) == simdjson::SUCCESS || fail(where, "is not a string");
    }

    bool flag(element value, const Where& where, bool& out) {
        return value.get_bool().get(out) == simdjson::SUCCESS || fail(where, "is not a boolean");
    }

    bool number(element value, const Where& where, double& out) {
        switch (value.type()) {
            case element_type::INT64:
            case element_type::UINT64:
            case element_type::DOUBLE:
                // get_double converts integers too, exactly where they fit.
                return value.get_double().get(out) == simdjson::SUCCESS || fail(where, "is not a number");
            default: return fail(where, "is not a number");
        }
    }

    bool integer(element value, const Where& where, int64_t& out) {
        switch (value.type()) {
            case element_type::INT64:
                return value.get_int64().get(out) == simdjson::SUCCESS || fail(where, "is not an integer");
            case element_type::UINT64: return fail(where, "is out of range");
            case element_type::DOUBLE: {
                // Whole numbers written with a fraction ("2.0") are still integers.
                double d = 0;
                if (value.get_double().get(d) != simdjson::SUCCESS) return fail(where, "is not an integer");
                if (d != std::floor(d) || d < -9223372036854775808.0 || d >= 9223372036854775808.0)
                    return fail(where, "is not an integer");
                out = static_cast<int64_t>(d);
                return true;
            }
            default: return fail(where, "is not an integer");
        }
    }

    bool array(element value, const Where& where, simdjson::dom::array& out) {
        return value.get_array().get(out) == simdjson::SUCCESS || fail(where, "is not an array");
    }

    bool optionalText(object obj, std::string_view key, const Where& parent, std::optional<std::string>& out) {
        element value;
        if (!optional(obj, key, value)) return true;
        return text(value, parent.child(key), out.emplace());
    }

    bool frame(element value, const Where& where, Frame& out) {
        object obj;
        element x, y, w, h;
        return asObject(value, where, obj) && required(obj, "x", where, x) && number(x, where.child("x"), out.x) &&
               required(obj, "y", where, y) && number(y, where.child("y"), out.y) && required(obj, "w", where, w) &&
               number(w, where.child("w"), out.w) && required(obj, "h", where, h) &&
               number(h, where.child("h"), out.h);
    }

    bool optionalFrame(object obj, const Where& parent, std::optional<Frame>& out) {
        element value;
        if (!optional(obj, "frame", value)) return true;
        return frame(value, parent.child("frame"), out.emplace());
    }

    bool optionalFlag(object obj, std::string_view key, const Where& parent, std::optional<bool>& out) {
        element value;
        if (!optional(obj, key, value)) return true;
        return flag(value, parent.child(key), out.emplace());
    }

    bool optionalInteger(object obj, std::string_view key, const Where& parent, std::optional<int64_t>& out) {
        element value;
        if (!optional(obj, key, value)) return true;
        return integer(value, parent.child(key), out.emplace());
    }

    bool window(element value, const Where& where, WindowState& out) {
        object obj;
        element minimized, fullScreen;
        return asObject(value, where, obj) && optionalText(obj, "title", where, out.title) &&
               optionalText(obj, "document", where, out.document) && optionalFrame(obj, where, out.frame) &&
               required(obj, "minimized", where, minimized) &&
               flag(minimized, where.child("minimized"), out.minimized) &&
               required(obj, "fullScreen", where, fullScreen) &&
               flag(fullScreen, where.child("fullScreen"), out.fullScreen) &&
               optionalInteger(obj, "workspace", where, out.workspace) &&
               optionalFlag(obj, "maximizedHorizontally", where, out.maximizedHorizontally) &&
               optionalFlag(obj, "maximizedVertically", where, out.maximizedVertically);
    }

    bool optionalTexts(object obj, std::string_view key, const Where& parent,
                       std::optional<std::vector<std::string>>& out) {
        element value;
        simdjson::dom::array list;
        if (!optional(obj, key, value)) return true;
        Where where = parent.child(key);
        if (!array(value, where, list)) return false;
        auto& words = out.emplace();
        size_t i = 0;
        for (element item : list)
            if (!text(item, where.at(i++), words.emplace_back())) return false;
        return true;
    }

    bool scripted(element value, const Where& where, ScriptedWindow& out) {
        object obj;
        element items, activeIndex;
        simdjson::dom::array list;
        if (!asObject(value, where, obj) || !optionalFrame(obj, where, out.frame) ||
            !required(obj, "items", where, items) || !array(items, where.child("items"), list) ||
            !required(obj, "activeIndex", where, activeIndex) ||
            !integer(activeIndex, where.child("activeIndex"), out.activeIndex))
            return false;
        Where itemsWhere = where.child("items");
        size_t i = 0;
        if (!build) {
            std::string_view ignored;
            for (element item : list)
                if (!textView(item, itemsWhere.at(i++), ignored)) return false;
            return true;
        }
        out.items.reserve(list.size());
        for (element item : list)
            if (!text(item, itemsWhere.at(i++), out.items.emplace_back())) return false;
        return true;
    }

    template <typename T, typename ReadOne>
    bool list(object obj, std::string_view key, const Where& parent, std::vector<T>& out, ReadOne readOne) {
        element value;
        simdjson::dom::array items;
        Where where = parent.child(key);
        if (!required(obj, key, parent, value) || !array(value, where, items)) return false;
        size_t i = 0;
        if (!build) {
            // One record, read into again and again, only for its checks.
            T scratch;
            for (element item : items)
                if (!(this->*readOne)(item, where.at(i++), scratch)) return false;
            return true;
        }
        out.reserve(items.size());
        for (element item : items)
            if (!(this->*readOne)(item, where.at(i++), out.emplace_back())) return false;
        return true;
    }

    bool app(element value, const Where& where, AppState& out) {
        object obj;
        element name, bundlePath, kind, hidden;
        std::string_view kindText;
        if (!asObject(value, where, obj) || !required(obj, "name", where, name) ||
            !text(name, where.child("name"), out.name) || !optionalText(obj, "bundleID", where, out.bundleID) ||
            !required(obj, "bundlePath", where, bundlePath) ||
            !text(bundlePath, where.child("bundlePath"), out.bundlePath) || !required(obj, "kind", where, kind) ||
            !textView(kind, where.child("kind"), kindText))
            return false;
        auto parsedKind = appKindFrom(kindText);
        if (!parsedKind) return fail(where.child("kind"), "is an unknown kind \"" + std::string(kindText) + "\"");
        out.kind = *parsedKind;
        return required(obj, "hidden", where, hidden) && flag(hidden, where.child("hidden"), out.hidden) &&
               list(obj, "windows", where, out.windows, &Reader::window) &&
               list(obj, "scripted", where, out.scripted, &Reader::scripted) &&
               optionalTexts(obj, "commandLine", where, out.commandLine) &&
               optionalText(obj, "workingDirectory", where, out.workingDirectory);
    }

    bool snapshot(element root, Snapshot& out) {
        Where where;
        object obj;
        element date, reason;
        std::string_view dateText;
        if (!asObject(root, where, obj) || !required(obj, "date", where, date) ||
            !textView(date, where.child("date"), dateText))
            return false;
        auto parsedDate = isoDateFrom(dateText);
        if (!parsedDate)
            return fail(where.child("date"), "is not an ISO 8601 date: \"" + std::string(dateText) + "\"");
        out.date = *parsedDate;
        return required(obj, "reason", where, reason) && text(reason, where.child("reason"), out.reason) &&
               optionalText(obj, "frontmost", where, out.frontmost) &&
               list(obj, "apps", where, out.apps, &Reader::app);
    }
};

}  // namespace

struct SnapshotDecoder::Parser {
    simdjson::dom::parser parser;

    // The document's root; the text is copied into padded memory first unless it has the padding already.
    std::optional<element> parse(std::string_view json, bool padded, std::string* error) {
        element root;
        if (auto code = parser.parse(json.data(), json.size(), !padded).get(root); code != simdjson::SUCCESS) {
            if (error) *error = std::string("not valid JSON: ") + simdjson::error_message(code);
            return std::nullopt;
        }
        return root;
    }

    std::optional<Snapshot> read(std::string_view json, bool padded, bool build, std::string* error) {
        auto root = parse(json, padded, error);
        if (!root) return std::nullopt;
        Reader reader;
        reader.build = build;
        Snapshot snapshot;
        if (!reader.snapshot(*root, snapshot)) {
            if (error) *error = reader.error;
            return std::nullopt;
        }
        return snapshot;
    }
};

static_assert(SnapshotDecoder::padding >= simdjson::SIMDJSON_PADDING);

SnapshotDecoder::SnapshotDecoder() : parser_(std::make_unique<Parser>()) {}
SnapshotDecoder::~SnapshotDecoder() = default;

std::optional<Snapshot> SnapshotDecoder::decode(std::string_view json, std::string* error) {
    return parser_->read(json, false, true, error);
}

std::optional<Snapshot> SnapshotDecoder::decodePadded(std::string_view json, std::string* error) {
    return parser_->read(json, true, true, error);
}

std::optional<Date> SnapshotDecoder::datePadded(std::string_view json, std::string* error) {
    auto checked = parser_->read(json, true, false, error);
    if (!checked) return std::nullopt;
    return checked->date;
}

std::optional<Snapshot> decodeSnapshot(std::string_view json, std::string* error) {
    return SnapshotDecoder().decode(json, error);
}

}  // namespace tarnwick
