// KWin::Bus: sd-bus calls into KWin's scripting, and the object scripts answer.
#include "platform/kwin/kwin_bus.h"

#include <systemd/sd-bus.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace tarnwick::KWin {

namespace {

constexpr const char* kwinService = "org.kde.KWin";
constexpr const char* scriptingPath = "/Scripting";
constexpr const char* scriptingInterface = "org.kde.kwin.Scripting";
constexpr const char* scriptInterface = "org.kde.kwin.Script";
constexpr const char* answerPath = "/com/tarnwick/Tarnwick/KWin";
constexpr const char* answerInterface = "com.tarnwick.Tarnwick.KWinAnswer";
constexpr const char* answerMethod = "Answer";
constexpr const char* nextMethod = "Next";
// KWin gives up on a call after 25 s: a wait held for this long is answered
// empty, so that the script asks again.
constexpr auto heldWaitRenewed = std::chrono::seconds(10);
// A wait held this long (as we count, from when we read it) may have been
// given up already: the script is loaded afresh rather than trusted.
constexpr auto heldWaitStale = std::chrono::seconds(15);
// The script asks again as soon as it has a token, before it lists: one
// that does not within this is gone.
constexpr auto waitAgainWithin = std::chrono::milliseconds(1000);
// Scripts loaded in vain, each holding a number another script has (see
// loadAndRun), before loading gives up.
constexpr int loadAttempts = 4;
// A call into KWin's own interfaces: it answers at once or is not there.
constexpr std::uint64_t callTimeoutMicroseconds = 2'000'000;

struct BusUnref {
    void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};
struct SlotUnref {
    void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
};
struct MessageUnref {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, MessageUnref>;

// Whether a call came from KWin's own connection.
bool fromKWin(sd_bus_message* message, const std::string& owner) {
    const char* sender = sd_bus_message_get_sender(message);
    return sender != nullptr && !owner.empty() && owner == sender;
}

// An error of one call, freed when it goes out of scope.
struct CallError {
    // Zeroed, as SD_BUS_ERROR_NULL (a C compound literal) makes it.
    sd_bus_error error{};
    ~CallError() { sd_bus_error_free(&error); }
    std::string text(int result) const {
        if (error.message != nullptr) return error.message;
        if (error.name != nullptr) return error.name;
        return std::strerror(-result);
    }
};

}  // namespace

struct Bus::State {
    std::unique_ptr<sd_bus, BusUnref> bus;
    std::unique_ptr<sd_bus_slot, SlotUnref> object;
    std::unique_ptr<sd_bus_slot, SlotUnref> ownerWatch;
    ReplyAddress address;
    std::string kwinOwner;         // the unique name of the connection that is org.kde.KWin
    std::filesystem::path folder;  // our own, for the script files KWin reads
    std::uint64_t counter = 0;
    std::map<std::string, std::string> answers;  // by token, until taken
    std::string residentName;      // the script kept loaded, as KWin knows it, while it is
    std::string residentLabel;     // what it says of itself when it waits
    std::uint64_t residentCount = 0;
    Message held;                  // its call waiting for a token
    std::chrono::steady_clock::time_point heldSince;
    std::vector<std::string> placeholders;  // scripts loaded in vain, kept to hold their numbers
    std::uint64_t kwinStarts = 0;
    std::string scriptPrefix;  // where KWin puts a loaded script, once one has run

    ~State() {
        unloadResident();
        for (const std::string& name : placeholders) {
            std::string ignored;
            call(scriptingPath, scriptingInterface, "unloadScript", ignored, "b", name.c_str());
        }
        std::error_code ignored;
        if (!folder.empty()) std::filesystem::remove_all(folder, ignored);
    }

    // A scripting call that answers with nothing or an integer.
    int call(const char* path, const char* interface, const char* member, std::string& why, const char* types = "",
             const char* first = nullptr, const char* second = nullptr) {
        CallError error;
        sd_bus_message* raw = nullptr;
        sd_bus_message* request = nullptr;
        int result = sd_bus_message_new_method_call(bus.get(), &request, kwinService, path, interface, member);
        Message owned(request);
        if (result >= 0 && first != nullptr) result = sd_bus_message_append_basic(request, 's', first);
        if (result >= 0 && second != nullptr) result = sd_bus_message_append_basic(request, 's', second);
        if (result >= 0) result = sd_bus_call(bus.get(), request, callTimeoutMicroseconds, &error.error, &raw);
        Message reply(raw);
        if (result < 0) {
            why = std::string(member) + ": " + error.text(result);
            return result;
        }
        if (std::strcmp(types, "i") == 0) {
            std::int32_t value = 0;
            result = sd_bus_message_read_basic(reply.get(), 'i', &value);
            if (result < 0) {
                why = std::string(member) + ": " + std::strerror(-result);
                return result;
            }
            return value;
        }
        return 0;
    }

    static int onAnswer(sd_bus_message* message, void* data, sd_bus_error* error) {
        auto* state = static_cast<State*>(data);
        if (!fromKWin(message, state->kwinOwner))
            return sd_bus_error_set(error, SD_BUS_ERROR_ACCESS_DENIED, "only KWin answers here");
        const char* token = nullptr;
        const char* payload = nullptr;
        if (sd_bus_message_read(message, "ss", &token, &payload) >= 0) state->answers[token] = payload;
        return sd_bus_reply_method_return(message, "");
    }

    // The loaded script waits: its call is answered when a listing is wanted.
    // A script we let go of, whose call was on its way, is told to stop.
    static int onNext(sd_bus_message* message, void* data, sd_bus_error* error) {
        auto* state = static_cast<State*>(data);
        if (!fromKWin(message, state->kwinOwner))
            return sd_bus_error_set(error, SD_BUS_ERROR_ACCESS_DENIED, "only KWin waits here");
        const char* label = nullptr;
        if (sd_bus_message_read_basic(message, 's', &label) < 0 || state->residentLabel.empty() ||
            state->residentLabel != label)
            return sd_bus_error_set(error, SD_BUS_ERROR_FAILED, "this listing script is no longer used");
        // One wait at a time: an older one is let go with an empty token.
        if (state->held) sd_bus_reply_method_return(state->held.get(), "s", "");
        state->held.reset(sd_bus_message_ref(message));
        state->heldSince = std::chrono::steady_clock::now();
        return 1;
    }

    // KWin started again, or ended: the script kept loaded went with the old one.
    static int onOwnerChanged(sd_bus_message* message, void* data, sd_bus_error*) {
        auto* state = static_cast<State*>(data);
        const char* name = nullptr;
        const char* before = nullptr;
        const char* after = nullptr;
        if (sd_bus_message_read(message, "sss", &name, &before, &after) < 0 || std::strcmp(name, kwinService) != 0)
            return 0;
        state->kwinOwner = after;
        state->kwinStarts += 1;
        state->scriptPrefix.clear();
        state->residentName.clear();
        state->residentLabel.clear();
        state->held.reset();
        state->placeholders.clear();
        return 0;
    }

    // Handles what has come in until `done` holds, at most until `deadline`.
    bool processUntil(const std::function<bool()>& done, std::chrono::steady_clock::time_point deadline,
                      std::string& why) {
        for (;;) {
            if (done()) return true;
            int processed = sd_bus_process(bus.get(), nullptr);
            if (processed < 0) {
                why = std::string("the session bus failed: ") + std::strerror(-processed);
                return false;
            }
            if (processed > 0) continue;
            auto left =
                std::chrono::duration_cast<std::chrono::microseconds>(deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0) return false;
            int waited = sd_bus_wait(bus.get(), static_cast<std::uint64_t>(left.count()));
            if (waited < 0 && waited != -EINTR) {
                why = std::string("the session bus failed: ") + std::strerror(-waited);
                return false;
            }
        }
    }

    std::filesystem::path scriptFile(const std::string& name) const { return folder / (name + ".js"); }

    // The numbers of the scripts KWin has on the bus now: /N on KWin 5.27,
    // /Scripting/ScriptN on KWin 6.
    std::set<int> publishedScripts() {
        std::set<int> numbers;
        for (const char* parent : {"/", "/Scripting"}) {
            // Once a script has run, where KWin puts them is known.
            if (!scriptPrefix.empty() && (std::strcmp(parent, "/") == 0) != (scriptPrefix == "/")) continue;
            CallError error;
            sd_bus_message* raw = nullptr;
            int result = sd_bus_call_method(bus.get(), kwinService, parent, "org.freedesktop.DBus.Introspectable",
                                            "Introspect", &error.error, &raw, "");
            Message reply(raw);
            const char* xml = nullptr;
            if (result < 0 || sd_bus_message_read_basic(raw, 's', &xml) < 0 || xml == nullptr) continue;
            const std::string_view text(xml);
            const std::string_view prefix = std::strcmp(parent, "/") == 0 ? "" : "Script";
            const std::string_view opening = "<node name=\"";
            for (size_t at = text.find(opening); at != std::string_view::npos; at = text.find(opening, at + 1)) {
                size_t start = at + opening.size();
                size_t end = text.find('"', start);
                if (end == std::string_view::npos) break;
                std::string_view node = text.substr(start, end - start);
                if (node.substr(0, prefix.size()) != prefix) continue;
                node.remove_prefix(prefix.size());
                if (node.empty() || node.size() > 6 || node.find_first_not_of("0123456789") != std::string_view::npos)
                    continue;
                numbers.insert(std::stoi(std::string(node)));
            }
        }
        return numbers;
    }

    // Writes `source` as the script `name` in our folder, loads and runs it;
    // false, with the reason, when KWin refuses. `loadedAs` is the name KWin
    // has it under, to unload it by, set even when it did not run. KWin reads
    // the file once the script runs, on a thread of its own: the file stays
    // until the script has called us.
    bool loadAndRun(const std::string& source, const std::string& name, std::string& loadedAs, std::string& why,
                    bool checkNumber = true) {
        const std::filesystem::path file = scriptFile(name);
        {
            std::ofstream out(file, std::ios::binary | std::ios::trunc);
            out << source;
            if (!out.flush()) {
                why = "cannot write the script " + file.string();
                return false;
            }
        }
        const std::string path = file.string();
        const std::set<int> taken = checkNumber ? publishedScripts() : std::set<int>{};
        for (int attempt = 0; attempt < loadAttempts; ++attempt) {
            std::string as = attempt == 0 ? name : name + "+" + std::to_string(attempt);
            int id = call(scriptingPath, scriptingInterface, "loadScript", why, "i", path.c_str(), as.c_str());
            if (id < 0) {
                if (why.empty()) why = "KWin refused to load the script";
                return false;
            }
            // HACK: KWin numbers a script by how many are loaded. Once one is
            // unloaded below another that stays (ours kept loaded, or anyone's),
            // the next script gets the number of the one that stayed, and the
            // bus keeps that one under it: running "ours" would reach it. The
            // script loaded in vain stays loaded, holding that number, until
            // this connection ends, and the next load gets a number of its own.
            if (taken.count(id) > 0) {
                placeholders.push_back(as);
                continue;
            }
            loadedAs = as;
            // HACK: KWin 5.27 exports a loaded script as /N; Plasma 6 as /Scripting/ScriptN.
            for (const char* prefix : {"/", "/Scripting/Script"}) {
                if (!scriptPrefix.empty() && scriptPrefix != prefix) continue;
                std::string scriptPath = prefix + std::to_string(id);
                if (call(scriptPath.c_str(), scriptInterface, "run", why) >= 0) {
                    scriptPrefix = prefix;
                    why.clear();
                    return true;
                }
            }
            return false;
        }
        why = "KWin gave each script the number of one already loaded";
        return false;
    }

    void unloadResident() {
        if (!residentName.empty()) {
            std::string ignored;
            call(scriptingPath, scriptingInterface, "unloadScript", ignored, "b", residentName.c_str());
        }
        if (!residentLabel.empty()) {
            std::error_code gone;
            std::filesystem::remove(scriptFile(residentLabel), gone);
        }
        if (held) sd_bus_reply_method_errorf(held.get(), SD_BUS_ERROR_FAILED, "this listing script is no longer used");
        residentName.clear();
        residentLabel.clear();
        held.reset();
    }
};

Bus::Bus(std::unique_ptr<State> state) : state_(std::move(state)) {}
Bus::~Bus() = default;

const ReplyAddress& Bus::replyAddress() const { return state_->address; }

std::unique_ptr<Bus> Bus::open(std::string& why) {
    const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    if (address == nullptr || *address == '\0') {
        why = "no D-Bus session bus: DBUS_SESSION_BUS_ADDRESS is not set";
        return nullptr;
    }
    auto state = std::make_unique<State>();
    sd_bus* raw = nullptr;
    int result = sd_bus_open_user(&raw);
    state->bus.reset(raw);
    if (result < 0) {
        why = std::string("cannot connect to the D-Bus session bus: ") + std::strerror(-result);
        return nullptr;
    }
    CallError error;
    sd_bus_message* answer = nullptr;
    int owned = 0;
    result = sd_bus_call_method(state->bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                "org.freedesktop.DBus", "NameHasOwner", &error.error, &answer, "s", kwinService);
    Message reply(answer);
    if (result < 0 || sd_bus_message_read_basic(answer, 'b', &owned) < 0 || !owned) {
        why = "KWin does not answer on the D-Bus session bus (no org.kde.KWin)";
        return nullptr;
    }
    const char* unique = nullptr;
    if (sd_bus_get_unique_name(state->bus.get(), &unique) < 0 || unique == nullptr) {
        why = "the D-Bus session bus gave no name";
        return nullptr;
    }
    // Who KWin is, now and whenever it starts again.
    sd_bus_slot* watch = nullptr;
    result = sd_bus_add_match(state->bus.get(), &watch,
                              "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
                              "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg0='org.kde.KWin'",
                              &State::onOwnerChanged, state.get());
    state->ownerWatch.reset(watch);
    CallError ownerError;
    sd_bus_message* ownerAnswer = nullptr;
    if (result >= 0)
        result = sd_bus_call_method(state->bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                    "org.freedesktop.DBus", "GetNameOwner", &ownerError.error, &ownerAnswer, "s",
                                    kwinService);
    Message ownerReply(ownerAnswer);
    const char* owner = nullptr;
    if (result < 0 || sd_bus_message_read_basic(ownerAnswer, 's', &owner) < 0 || owner == nullptr) {
        why = "KWin does not answer on the D-Bus session bus (no owner of org.kde.KWin)";
        return nullptr;
    }
    state->kwinOwner = owner;
    static const sd_bus_vtable answerTable[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD(answerMethod, "ss", "", &State::onAnswer, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_METHOD(nextMethod, "s", "s", &State::onNext, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_VTABLE_END,
    };
    sd_bus_slot* slot = nullptr;
    result = sd_bus_add_object_vtable(state->bus.get(), &slot, answerPath, answerInterface, answerTable, state.get());
    state->object.reset(slot);
    if (result < 0) {
        why = std::string("cannot serve KWin's answers: ") + std::strerror(-result);
        return nullptr;
    }
    state->address = ReplyAddress{unique, answerPath, answerInterface, answerMethod, nextMethod};

    // KWin reads a script from a file: ours go into a folder only we can write.
    std::error_code noTemp;
    std::filesystem::path base = std::filesystem::temp_directory_path(noTemp);
    if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime != nullptr && *runtime == '/') base = runtime;
    std::string pattern = (base / "tarnwick-kwin-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        why = "cannot make a folder for KWin scripts in " + base.string() + ": " + std::strerror(errno);
        return nullptr;
    }
    state->folder = pattern;
    return std::unique_ptr<Bus>(new Bus(std::move(state)));
}

bool Bus::lost() const { return sd_bus_is_open(state_->bus.get()) <= 0; }

std::string Bus::nextToken() {
    state_->counter += 1;
    return std::to_string(::getpid()) + "-" + std::to_string(state_->counter);
}

std::optional<std::string> Bus::supportInformation(std::string& why) {
    CallError error;
    sd_bus_message* raw = nullptr;
    int result = sd_bus_call_method(state_->bus.get(), kwinService, "/KWin", "org.kde.KWin", "supportInformation",
                                    &error.error, &raw, "");
    Message reply(raw);
    const char* text = nullptr;
    if (result >= 0) result = sd_bus_message_read_basic(reply.get(), 's', &text);
    if (result < 0 || text == nullptr) {
        why = "supportInformation: " + error.text(result);
        return std::nullopt;
    }
    return std::string(text);
}

std::optional<std::string> Bus::runScript(const std::string& source, const std::string& token,
                                          std::chrono::milliseconds timeout, std::string& why, bool checkNumber) {
    State& s = *state_;
    const std::string name = "tarnwick-" + token;
    // Unloaded whatever happens: a script left loaded would run again with
    // the next one of that name.
    struct Cleanup {
        State& s;
        const std::string& name;
        std::string loadedAs;
        ~Cleanup() {
            std::string ignored;
            if (!loadedAs.empty())
                s.call(scriptingPath, scriptingInterface, "unloadScript", ignored, "b", loadedAs.c_str());
            std::error_code gone;
            std::filesystem::remove(s.scriptFile(name), gone);
            s.answers.clear();
        }
    } cleanup{s, name, {}};
    if (!s.loadAndRun(source, name, cleanup.loadedAs, why, checkNumber)) return std::nullopt;
    auto deadline = std::chrono::steady_clock::now() + timeout;
    if (!s.processUntil([&] { return s.answers.count(token) > 0; }, deadline, why)) {
        if (why.empty()) why = "KWin's script did not answer within " + std::to_string(timeout.count()) + " ms";
        return std::nullopt;
    }
    return std::move(s.answers[token]);
}

std::optional<std::string> Bus::askResident(std::string (*source)(const ReplyAddress&, const std::string& label),
                                            const std::string& token, std::chrono::milliseconds timeout,
                                            std::string& why) {
    State& s = *state_;
    auto now = std::chrono::steady_clock::now();
    auto deadline = now + timeout;
    // Whatever came in since: a new wait, or news that KWin started again.
    std::string ignored;
    s.processUntil([] { return false; }, now, ignored);
    if (s.held && now - s.heldSince > heldWaitStale) s.unloadResident();
    bool fresh = false;
    if (s.residentLabel.empty()) {
        // Named by our connection, whose name the bus never gives again: a
        // script some earlier Tarnwick left loaded never stands in the way.
        s.residentCount += 1;
        std::string connection = s.address.service;
        for (char& c : connection)
            if (c == ':' || c == '.') c = '_';
        s.residentLabel = "tarnwick-listing" + connection + "-" + std::to_string(s.residentCount);
        if (!s.loadAndRun(source(s.address, s.residentLabel), s.residentLabel, s.residentName, why)) {
            s.unloadResident();
            return std::nullopt;
        }
        fresh = true;
    }
    auto failed = [&](const std::string& reason) -> std::optional<std::string> {
        if (why.empty()) why = reason;
        s.unloadResident();
        s.answers.clear();
        return std::nullopt;
    };
    auto waitDeadline = fresh ? deadline : std::min(deadline, now + waitAgainWithin);
    if (!s.processUntil([&] { return s.held != nullptr; }, waitDeadline, why))
        return failed("KWin's listing script is not waiting for us");
    if (fresh) {
        std::error_code gone;
        std::filesystem::remove(s.scriptFile(s.residentLabel), gone);
    }
    Message waiting = std::move(s.held);
    int sent = sd_bus_reply_method_return(waiting.get(), "s", token.c_str());
    if (sent < 0) return failed(std::string("cannot answer KWin's listing script: ") + std::strerror(-sent));
    // It waits again before it lists: one that does not has gone, and is
    // not waited for longer.
    auto answered = [&] { return s.answers.count(token) > 0; };
    if (!s.processUntil([&] { return answered() || s.held != nullptr; },
                        std::min(deadline, std::chrono::steady_clock::now() + waitAgainWithin), why) &&
        !answered())
        return failed("KWin's listing script took the token and is gone");
    if (!s.processUntil(answered, deadline, why))
        return failed("KWin's listing script did not answer within " + std::to_string(timeout.count()) + " ms");
    std::string payload = std::move(s.answers[token]);
    s.answers.clear();
    return payload;
}

std::uint64_t Bus::kwinStarts() const { return state_->kwinStarts; }

const std::string& Bus::residentName() const { return state_->residentName; }

void Bus::keepResidentWaiting() {
    State& s = *state_;
    std::string ignored;
    s.processUntil([] { return false; }, std::chrono::steady_clock::now(), ignored);
    auto now = std::chrono::steady_clock::now();
    if (s.held && now - s.heldSince > heldWaitRenewed) {
        sd_bus_reply_method_return(s.held.get(), "s", "");
        s.held.reset();
        // Its next wait is counted from when it comes, not from the next look.
        s.processUntil([&] { return s.held != nullptr; }, now + std::chrono::milliseconds(100), ignored);
    }
}

}  // namespace tarnwick::KWin
