// Reading a Snapshot from its JSON form, strictly, on simdjson's DOM parser.
#include "model/iso_date.h"
#include "model/snapshot_json.h"

#include <simdjson.h>

#include <array>
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

// The members of an object that a reader knows, found in one pass over it: the
// first member of each key, as a lookup by name would find it.
template <size_t N>
struct Members {
    const std::array<std::string_view, N>& keys;
    std::array<element, N> values{};
    std::array<bool, N> present{};

    // Most keys differ in length or first letter, which is cheaper to see than
    // calling memcmp; none of the known keys is empty.
    static bool same(std::string_view known, std::string_view key) {
        return known.size() == key.size() && known.front() == key.front() && known.substr(1) == key.substr(1);
    }

    Members(object obj, const std::array<std::string_view, N>& names) : keys(names) {
        for (simdjson::dom::key_value_pair member : obj)
            for (size_t i = 0; i < N; ++i)
                if (!present[i] && same(keys[i], member.key)) {
                    values[i] = member.value;
                    present[i] = true;
                    break;
                }
    }
};

class Reader {
public:
    std::string error;
    // False: every check is made but nothing is kept, for a caller that only
    // needs to know whether a file is a snapshot, and its date.
    bool build = true;
    // False: the keys only Linux writes are skipped like unknown keys.
    bool linuxKeys = true;

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
    template <size_t N>
    bool required(const Members<N>& members, size_t i, const Where& parent, element& out) {
        Where where = parent.child(members.keys[i]);
        if (!members.present[i]) return fail(where, "is missing");
        out = members.values[i];
        if (out.is_null()) return fail(where, "is null");
        return true;
    }

    // An optional member: false when it is missing or null.
    template <size_t N>
    static bool optional(const Members<N>& members, size_t i, element& out) {
        out = members.values[i];
        return members.present[i] && !out.is_null();
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

    // A member read with `read` when it is there and not null; nothing otherwise.
    template <size_t N, typename T>
    bool optional(const Members<N>& members, size_t i, const Where& parent, std::optional<T>& out,
                  bool (Reader::*read)(element, const Where&, T&)) {
        element value;
        if (!optional(members, i, value)) return true;
        return (this->*read)(value, parent.child(members.keys[i]), out.emplace());
    }

    // A key only Linux writes: skipped elsewhere. What it holds refines a
    // session that is whole without it, so a value of the wrong type reads as
    // absent instead of losing the whole file.
    template <size_t N, typename T>
    bool linuxOnly(const Members<N>& members, size_t i, const Where& parent, std::optional<T>& out,
                   bool (Reader::*read)(element, const Where&, T&)) {
        if (!linuxKeys || optional(members, i, parent, out, read)) return true;
        // Reading stops at the first failure, so this one is the only one.
        error.clear();
        out.reset();
        return true;
    }

    // A member that must be there, not null, and readable with `read`.
    template <size_t N, typename T>
    bool required(const Members<N>& members, size_t i, const Where& parent, T& out,
                  bool (Reader::*read)(element, const Where&, T&)) {
        element value;
        return required(members, i, parent, value) && (this->*read)(value, parent.child(members.keys[i]), out);
    }

    bool frame(element value, const Where& where, Frame& out) {
        static constexpr std::array<std::string_view, 4> keys{"x", "y", "w", "h"};
        object obj;
        if (!asObject(value, where, obj)) return false;
        Members members(obj, keys);
        double* fields[] = {&out.x, &out.y, &out.w, &out.h};
        for (size_t i = 0; i < keys.size(); ++i)
            if (!required(members, i, where, *fields[i], &Reader::number)) return false;
        return true;
    }

    bool window(element value, const Where& where, WindowState& out) {
        enum { title, document, frame_, minimized, fullScreen, workspace, maximizedHorizontally, maximizedVertically,
               output };
        static constexpr std::array<std::string_view, 9> keys{
            "title",     "document",  "frame", "minimized", "fullScreen", "workspace", "maximizedHorizontally",
            "maximizedVertically", "output"};
        object obj;
        if (!asObject(value, where, obj)) return false;
        Members members(obj, keys);
        return optional(members, title, where, out.title, &Reader::text) &&
               optional(members, document, where, out.document, &Reader::text) &&
               optional(members, frame_, where, out.frame, &Reader::frame) &&
               required(members, minimized, where, out.minimized, &Reader::flag) &&
               required(members, fullScreen, where, out.fullScreen, &Reader::flag) &&
               linuxOnly(members, workspace, where, out.workspace, &Reader::integer) &&
               linuxOnly(members, maximizedHorizontally, where, out.maximizedHorizontally, &Reader::flag) &&
               linuxOnly(members, maximizedVertically, where, out.maximizedVertically, &Reader::flag) &&
               linuxOnly(members, output, where, out.output, &Reader::text);
    }

    // A list of texts, each item a string.
    bool texts(element value, const Where& where, std::vector<std::string>& out) {
        simdjson::dom::array list;
        if (!array(value, where, list)) return false;
        size_t n = 0;
        for (element item : list)
            if (!text(item, where.at(n++), out.emplace_back())) return false;
        return true;
    }

    bool scripted(element value, const Where& where, ScriptedWindow& out) {
        enum { frame_, items, activeIndex };
        static constexpr std::array<std::string_view, 3> keys{"frame", "items", "activeIndex"};
        object obj;
        element itemsValue;
        simdjson::dom::array list;
        if (!asObject(value, where, obj)) return false;
        Members members(obj, keys);
        if (!optional(members, frame_, where, out.frame, &Reader::frame) ||
            !required(members, items, where, itemsValue) || !array(itemsValue, where.child("items"), list) ||
            !required(members, activeIndex, where, out.activeIndex, &Reader::integer))
            return false;
        // Checked first, which also gives their size, so that the list's buffer is allocated once.
        Where itemsWhere = where.child("items");
        size_t i = 0, bytes = 0;
        for (element item : list) {
            std::string_view view;
            if (!textView(item, itemsWhere.at(i++), view)) return false;
            bytes += view.size();
        }
        if (!build) return true;
        out.items.reserve(i, bytes);
        for (element item : list) out.items.push_back(item.get_string().value_unsafe());
        return true;
    }

    template <size_t N, typename T, typename ReadOne>
    bool list(const Members<N>& members, size_t key, const Where& parent, std::vector<T>& out, ReadOne readOne) {
        element value;
        simdjson::dom::array items;
        Where where = parent.child(members.keys[key]);
        if (!required(members, key, parent, value) || !array(value, where, items)) return false;
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

    bool appKind(element value, const Where& where, AppKind& out) {
        std::string_view name;
        if (!textView(value, where, name)) return false;
        auto parsed = appKindFrom(name);
        if (!parsed) return fail(where, "is an unknown kind \"" + std::string(name) + "\"");
        out = *parsed;
        return true;
    }

    bool date(element value, const Where& where, Date& out) {
        std::string_view text;
        if (!textView(value, where, text)) return false;
        auto parsed = isoDateFrom(text);
        if (!parsed) return fail(where, "is not an ISO 8601 date: \"" + std::string(text) + "\"");
        out = *parsed;
        return true;
    }

    bool app(element value, const Where& where, AppState& out) {
        enum { name, bundleID, bundlePath, kind, hidden, windows, scripted_, commandLine, workingDirectory };
        static constexpr std::array<std::string_view, 9> keys{
            "name",   "bundleID", "bundlePath",  "kind",  "hidden", "windows", "scripted", "commandLine",
            "workingDirectory"};
        object obj;
        if (!asObject(value, where, obj)) return false;
        Members members(obj, keys);
        return required(members, name, where, out.name, &Reader::text) &&
               optional(members, bundleID, where, out.bundleID, &Reader::text) &&
               required(members, bundlePath, where, out.bundlePath, &Reader::text) &&
               required(members, kind, where, out.kind, &Reader::appKind) &&
               required(members, hidden, where, out.hidden, &Reader::flag) &&
               list(members, windows, where, out.windows, &Reader::window) &&
               list(members, scripted_, where, out.scripted, &Reader::scripted) &&
               linuxOnly(members, commandLine, where, out.commandLine, &Reader::texts) &&
               linuxOnly(members, workingDirectory, where, out.workingDirectory, &Reader::text);
    }

    bool snapshot(element root, Snapshot& out) {
        enum { date_, reason, frontmost, apps, signature };
        static constexpr std::array<std::string_view, 5> keys{"date", "reason", "frontmost", "apps", "signature"};
        Where where;
        object obj;
        if (!asObject(root, where, obj)) return false;
        Members members(obj, keys);
        return required(members, date_, where, out.date, &Reader::date) &&
               required(members, reason, where, out.reason, &Reader::text) &&
               optional(members, frontmost, where, out.frontmost, &Reader::text) &&
               list(members, apps, where, out.apps, &Reader::app) &&
               linuxOnly(members, signature, where, out.signature, &Reader::text);
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

    std::optional<Snapshot> read(std::string_view json, bool padded, bool build, System system, std::string* error) {
        auto root = parse(json, padded, error);
        if (!root) return std::nullopt;
        Reader reader;
        reader.build = build;
        reader.linuxKeys = system == System::linuxDesktop;
        Snapshot snapshot;
        // Text from a file is nobody's until its signature says whose it is.
        snapshot.trusted = false;
        if (!reader.snapshot(*root, snapshot)) {
            if (error) *error = reader.error;
            return std::nullopt;
        }
        return snapshot;
    }
};

static_assert(SnapshotDecoder::padding >= simdjson::SIMDJSON_PADDING);

SnapshotDecoder::SnapshotDecoder(System system) : parser_(std::make_unique<Parser>()), system_(system) {}
SnapshotDecoder::~SnapshotDecoder() = default;

std::optional<Snapshot> SnapshotDecoder::decode(std::string_view json, std::string* error) {
    return parser_->read(json, false, true, system_, error);
}

std::optional<Snapshot> SnapshotDecoder::decodePadded(std::string_view json, std::string* error) {
    return parser_->read(json, true, true, system_, error);
}

std::optional<Date> SnapshotDecoder::datePadded(std::string_view json, std::string* error) {
    auto checked = parser_->read(json, true, false, system_, error);
    if (!checked) return std::nullopt;
    return checked->date;
}

std::optional<Snapshot> decodeSnapshot(std::string_view json, std::string* error, System system) {
    return SnapshotDecoder(system).decode(json, error);
}

}  // namespace tarnwick
