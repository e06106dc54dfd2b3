// The D-Bus half of the KWin backend: one session-bus connection that loads
// scripts into KWin, runs them, and receives the one answer each sends back.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace tarnwick::KWin {

// Where a script sends its answer: our connection's unique name, and the
// object and method that take it. A script calls
//   callDBus(service, path, interface, method, token, payload)
// once, with the token it was given.
struct ReplyAddress {
    std::string service;
    std::string path;
    std::string interface;
    std::string method;
    // What a script kept loaded calls, with the label it was given, to wait
    // for its next token (an empty one: wait again).
    std::string next;
};

// One connection to the session bus that KWin serves. Not thread-safe: the
// backend holds its own lock around every use. Only KWin's calls reach our
// object: a call from any other connection is refused, so another program
// has to get a script of its own into KWin to answer in KWin's name.
class Bus {
public:
    // Connects to $DBUS_SESSION_BUS_ADDRESS and checks that org.kde.KWin
    // answers there; nothing, with a one-line reason, otherwise.
    static std::unique_ptr<Bus> open(std::string& why);
    ~Bus();
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    const ReplyAddress& replyAddress() const;

    // Loads `source` as a script under a name of its own, runs it, waits until
    // it calls back with `token` (at most `timeout`), and unloads it. The
    // payload it sent; nothing, with the reason in `why`, when loading,
    // running or the answer failed. `checkNumber` false leaves out the check
    // that KWin gave the script a number no other script has (a question to
    // KWin): only to measure what KWin itself costs.
    std::optional<std::string> runScript(const std::string& source, const std::string& token,
                                         std::chrono::milliseconds timeout, std::string& why,
                                         bool checkNumber = true);

    // Asks the script kept loaded in KWin (see residentListingScript) for
    // the answer to `token`, loading the script `source` makes first when
    // none is. Nothing, with the reason in `why`, when it cannot be loaded or
    // does not answer within `timeout`; it is then unloaded, and loaded
    // afresh at the next ask.
    std::optional<std::string> askResident(std::string (*source)(const ReplyAddress&, const std::string& label),
                                           const std::string& token, std::chrono::milliseconds timeout,
                                           std::string& why);

    // How many times KWin has started again since the connection was made.
    std::uint64_t kwinStarts() const;

    // The name the script kept loaded has in KWin; empty while none is.
    const std::string& residentName() const;

    // Reads what has come in and answers a wait the loaded script has held
    // for long with an empty token: KWin gives up on a call after 25 s, and
    // a script whose call failed waits for nothing ever after. Cheap; to be
    // called every few seconds.
    void keepResidentWaiting();

    // KWin's own description of itself for bug reports (org.kde.KWin
    // supportInformation); nothing, with the reason in `why`, when it does not answer.
    std::optional<std::string> supportInformation(std::string& why);

    // Whether the connection to the session bus has closed.
    bool lost() const;

    // A fresh token for the next script: stale answers never match it.
    std::string nextToken();

private:
    struct State;
    explicit Bus(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

}  // namespace tarnwick::KWin
