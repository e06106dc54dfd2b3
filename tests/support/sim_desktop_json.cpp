// A simulated desktop built from its JSON description.
#include "support/sim_desktop_json.h"

#include "model/iso_date.h"

#include <simdjson.h>

#include <functional>

namespace tarnwick::testing {

namespace {

using simdjson::dom::array;
using simdjson::dom::element;
using simdjson::dom::object;

// Reads one described object; every key must be known, so a misspelt key in a
// test's description fails loudly instead of being ignored.
class Reader {
public:
    explicit Reader(std::string& error) : error_(error) {}

    bool fail(const std::string& where, const std::string& what) {
        if (error_.empty()) error_ = where + " " + what;
        return false;
    }

    using Fields = std::map<std::string, std::function<bool(element, const std::string&)>>;

    bool fields(element value, const std::string& where, const Fields& known) {
        object members;
        if (value.get_object().get(members) != simdjson::SUCCESS) return fail(where, "is not an object");
        for (auto member : members) {
            std::string key(member.key);
            auto found = known.find(key);
            if (found == known.end()) return fail(where + "." + key, "is not a known key");
            if (!found->second(member.value, where + "." + key)) return false;
        }
        return true;
    }

    bool text(element value, const std::string& where, std::string& out) {
        std::string_view view;
        if (value.get_string().get(view) != simdjson::SUCCESS) return fail(where, "is not a string");
        out = std::string(view);
        return true;
    }
    bool text(element value, const std::string& where, std::optional<std::string>& out) {
        if (value.is_null()) return out.reset(), true;
        std::string read;
        if (!text(value, where, read)) return false;
        out = read;
        return true;
    }
    bool flag(element value, const std::string& where, bool& out) {
        return value.get_bool().get(out) == simdjson::SUCCESS || fail(where, "is not a boolean");
    }
    bool number(element value, const std::string& where, double& out) {
        return value.get_double().get(out) == simdjson::SUCCESS || fail(where, "is not a number");
    }
    bool integer(element value, const std::string& where, std::int64_t& out) {
        return value.get_int64().get(out) == simdjson::SUCCESS || fail(where, "is not an integer");
    }
    bool texts(element value, const std::string& where, std::vector<std::string>& out) {
        return each(value, where, [&](element item, const std::string& at) {
            std::string read;
            if (!text(item, at, read)) return false;
            out.push_back(read);
            return true;
        });
    }
    bool each(element value, const std::string& where, const std::function<bool(element, const std::string&)>& read) {
        array items;
        if (value.get_array().get(items) != simdjson::SUCCESS) return fail(where, "is not an array");
        size_t index = 0;
        for (element item : items)
            if (!read(item, where + "[" + std::to_string(index++) + "]")) return false;
        return true;
    }
    bool frame(element value, const std::string& where, Frame& out) {
        std::vector<double> numbers;
        bool read = each(value, where, [&](element item, const std::string& at) {
            double n = 0;
            if (!number(item, at, n)) return false;
            numbers.push_back(n);
            return true;
        });
        if (!read) return false;
        if (numbers.size() != 4) return fail(where, "is not [x, y, width, height]");
        out = Frame{numbers[0], numbers[1], numbers[2], numbers[3]};
        return true;
    }
    template <class Enum>
    bool choice(element value, const std::string& where, const std::map<std::string, Enum>& names, Enum& out) {
        std::string name;
        if (!text(value, where, name)) return false;
        auto found = names.find(name);
        if (found == names.end()) return fail(where, "is not one of the known values");
        out = found->second;
        return true;
    }

    bool window(element value, const std::string& where, SimWindow& out) {
        return fields(value, where,
                      {{"subrole", [&](element v, const std::string& w) { return text(v, w, out.subrole); }},
                       {"title", [&](element v, const std::string& w) { return text(v, w, out.title); }},
                       {"document", [&](element v, const std::string& w) { return text(v, w, out.document); }},
                       {"frame", [&](element v, const std::string& w) { return frame(v, w, out.frame); }},
                       {"minimized", [&](element v, const std::string& w) { return flag(v, w, out.minimized); }},
                       {"fullScreen", [&](element v, const std::string& w) { return flag(v, w, out.fullScreen); }},
                       {"listed", [&](element v, const std::string& w) { return flag(v, w, out.listed); }},
                       {"appearsAfter", [&](element v, const std::string& w) { return number(v, w, out.appearsAfter); }},
                       {"tabs", [&](element v, const std::string& w) { return texts(v, w, out.tabs); }},
                       {"activeTab", [&](element v, const std::string& w) { return integer(v, w, out.activeTab); }},
                       {"incognito", [&](element v, const std::string& w) { return flag(v, w, out.incognito); }},
                       {"folder", [&](element v, const std::string& w) { return text(v, w, out.folder); }},
                       {"tty", [&](element v, const std::string& w) { return text(v, w, out.tty); }},
                       {"shellDirectory",
                        [&](element v, const std::string& w) { return text(v, w, out.shellDirectory); }}});
    }

    bool windows(element value, const std::string& where, std::vector<SimWindow>& out) {
        return each(value, where, [&](element item, const std::string& at) {
            SimWindow read;
            if (!window(item, at, read)) return false;
            out.push_back(std::move(read));
            return true;
        });
    }

    // An application: what is installed, plus for running ones their state now.
    struct Described {
        SimAppSpec spec;
        bool running = false;
        bool hidden = false;
        std::vector<SimWindow> windows;
    };

    bool app(element value, const std::string& where, Described& out) {
        SimAppSpec& spec = out.spec;
        bool ok = fields(
            value, where,
            {{"bundleID", [&](element v, const std::string& w) { return text(v, w, spec.bundleID); }},
             {"bundlePath", [&](element v, const std::string& w) { return text(v, w, spec.bundlePath); }},
             {"name", [&](element v, const std::string& w) { return text(v, w, spec.name); }},
             {"policy",
              [&](element v, const std::string& w) {
                  return choice<ActivationPolicy>(v, w,
                                                  {{"regular", ActivationPolicy::regular},
                                                   {"accessory", ActivationPolicy::accessory},
                                                   {"prohibited", ActivationPolicy::prohibited}},
                                                  spec.policy);
              }},
             {"windowsOnLaunch", [&](element v, const std::string& w) { return windows(v, w, spec.windowsOnLaunch); }},
             {"launchDelay", [&](element v, const std::string& w) { return number(v, w, spec.launchDelay); }},
             {"finishedAfter", [&](element v, const std::string& w) { return number(v, w, spec.finishedAfter); }},
             {"documentDelay", [&](element v, const std::string& w) { return number(v, w, spec.documentDelay); }},
             {"launchFault",
              [&](element v, const std::string& w) {
                  return choice<LaunchFault>(
                      v, w, {{"none", LaunchFault::none}, {"refuse", LaunchFault::refuse}, {"hang", LaunchFault::hang}},
                      spec.fault);
              }},
             {"scriptFault",
              [&](element v, const std::string& w) {
                  return choice<ScriptFault>(
                      v, w, {{"none", ScriptFault::none}, {"refuse", ScriptFault::refuse}, {"hang", ScriptFault::hang}},
                      spec.scripts);
              }},
             {"refusesDocuments", [&](element v, const std::string& w) { return flag(v, w, spec.refusesDocuments); }},
             {"running", [&](element v, const std::string& w) { return flag(v, w, out.running); }},
             {"hidden", [&](element v, const std::string& w) { return flag(v, w, out.hidden); }},
             {"windows", [&](element v, const std::string& w) { return windows(v, w, out.windows); }}});
        if (ok && spec.bundlePath.empty()) return fail(where, "has no bundlePath");
        return ok;
    }

private:
    std::string& error_;
};

}  // namespace

bool loadDesktop(SimDesktop& desktop, std::string_view json, std::string& error) {
    error.clear();
    simdjson::dom::parser parser;
    element root;
    if (parser.parse(json.data(), json.size()).get(root) != simdjson::SUCCESS) {
        error = "the description is not JSON";
        return false;
    }
    Reader reader(error);
    std::vector<Reader::Described> apps;
    std::vector<std::string> files;
    std::optional<std::string> frontmost;
    std::optional<std::string> date;
    double lostAt = -1;
    bool ok = reader.fields(
        root, "desktop",
        {{"home", [&](element v, const std::string& w) { return reader.text(v, w, desktop.home); }},
         {"trusted", [&](element v, const std::string& w) { return reader.flag(v, w, desktop.trusted); }},
         {"ownBundleID", [&](element v, const std::string& w) { return reader.text(v, w, desktop.ownBundleID); }},
         {"frontmost", [&](element v, const std::string& w) { return reader.text(v, w, frontmost); }},
         {"date", [&](element v, const std::string& w) { return reader.text(v, w, date); }},
         {"lostAt", [&](element v, const std::string& w) { return reader.number(v, w, lostAt); }},
         {"files", [&](element v, const std::string& w) { return reader.texts(v, w, files); }},
         {"apps", [&](element v, const std::string& w) {
              return reader.each(v, w, [&](element item, const std::string& at) {
                  Reader::Described described;
                  if (!reader.app(item, at, described)) return false;
                  apps.push_back(std::move(described));
                  return true;
              });
          }}});
    if (!ok) return false;
    if (lostAt >= 0) desktop.lostAt = lostAt;
    if (date) {
        auto start = *date == "now" ? std::optional<Date>(std::chrono::floor<std::chrono::seconds>(
                                          std::chrono::system_clock::now()))
                                    : isoDateFrom(*date);
        if (!start) {
            error = "desktop.date is neither \"now\" nor an ISO 8601 date";
            return false;
        }
        desktop.startDate = *start;
    }

    for (const std::string& file : files) desktop.addFile(file);
    for (const Reader::Described& described : apps) {
        desktop.install(described.spec);
        if (!described.running) continue;
        auto pid = desktop.startApp(described.spec);
        desktop.app(pid).hidden = described.hidden;
        for (const SimWindow& window : described.windows) desktop.addWindow(pid, window);
    }
    if (frontmost) {
        desktop.frontmost = desktop.pidOf(*frontmost);
        if (!desktop.frontmost) {
            error = "desktop.frontmost names no running application";
            return false;
        }
    }
    return true;
}

}  // namespace tarnwick::testing
