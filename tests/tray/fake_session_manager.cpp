// A stand-in X session manager for the tray application's log-out test: it
// listens for XSMP clients, says "address ADDRESS" (the value for
// SESSION_MANAGER) and "registered" when a client joins, and on the order
// "logout" on standard input asks every client to save itself before a
// shutdown, saying "saved" when a client answers that it is done.
//
//   tarnwick_fake_session_manager
#include <X11/ICE/ICElib.h>
#include <X11/SM/SMlib.h>

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

void say(const std::string& line) {
    std::fputs((line + "\n").c_str(), stdout);
    std::fflush(stdout);
}

std::vector<SmsConn> clients;
std::vector<IceConn> connections;
std::vector<IceConn> closing;  // closed once the message that asked for it is handled
int nextId = 1;

// Clients come from this machine only; nothing else could reach the socket.
Bool anyHost(char*) { return True; }

Status registerClient(SmsConn conn, SmPointer, char* previousId) {
    std::string id = previousId != nullptr ? previousId : "1tarnwick-test" + std::to_string(nextId++);
    if (previousId != nullptr) free(previousId);
    SmsRegisterClientReply(conn, const_cast<char*>(id.c_str()));
    clients.push_back(conn);
    say("registered");
    return 1;
}

void interactRequest(SmsConn, SmPointer, int) {}
void interactDone(SmsConn, SmPointer, Bool) {}
void saveYourselfRequest(SmsConn, SmPointer, int, Bool, int, Bool, Bool) {}
void saveYourselfPhase2Request(SmsConn conn, SmPointer) { SmsSaveYourselfPhase2(conn); }
void saveYourselfDone(SmsConn, SmPointer, Bool success) { say(std::string("saved ") + (success ? "ok" : "failed")); }
void closeConnection(SmsConn conn, SmPointer, int count, char** reasons) {
    SmFreeReasons(count, reasons);
    std::erase(clients, conn);
    closing.push_back(SmsGetIceConnection(conn));
    SmsCleanUp(conn);
}
void setProperties(SmsConn, SmPointer, int count, SmProp** properties) {
    for (int i = 0; i < count; ++i) SmFreeProperty(properties[i]);
    free(properties);
}
void deleteProperties(SmsConn, SmPointer, int count, char** names) {
    for (int i = 0; i < count; ++i) free(names[i]);
    free(names);
}
void getProperties(SmsConn conn, SmPointer) { SmsReturnProperties(conn, 0, nullptr); }

Status newClient(SmsConn, SmPointer, unsigned long* mask, SmsCallbacks* callbacks, char**) {
    *mask = 0;
    std::memset(callbacks, 0, sizeof *callbacks);
    callbacks->register_client.callback = registerClient;
    callbacks->interact_request.callback = interactRequest;
    callbacks->interact_done.callback = interactDone;
    callbacks->save_yourself_request.callback = saveYourselfRequest;
    callbacks->save_yourself_phase2_request.callback = saveYourselfPhase2Request;
    callbacks->save_yourself_done.callback = saveYourselfDone;
    callbacks->close_connection.callback = closeConnection;
    callbacks->set_properties.callback = setProperties;
    callbacks->delete_properties.callback = deleteProperties;
    callbacks->get_properties.callback = getProperties;
    return 1;
}

}  // namespace

int main() {
    char error[256];
    if (!SmsInitialize(const_cast<char*>("tarnwick-test"), const_cast<char*>("1.0"), newClient, nullptr, anyHost,
                       sizeof error, error)) {
        say(std::string("error: ") + error);
        return 1;
    }
    int count = 0;
    IceListenObj* listeners = nullptr;
    if (!IceListenForConnections(&count, &listeners, sizeof error, error) || count == 0) {
        say(std::string("error: ") + error);
        return 1;
    }
    for (int i = 0; i < count; ++i) IceSetHostBasedAuthProc(listeners[i], anyHost);
    char* address = IceComposeNetworkIdList(count, listeners);
    say(std::string("address ") + address);
    free(address);

    for (;;) {
        std::vector<pollfd> watched{{STDIN_FILENO, POLLIN, 0}};
        for (int i = 0; i < count; ++i) watched.push_back({IceGetListenConnectionNumber(listeners[i]), POLLIN, 0});
        for (IceConn connection : connections) watched.push_back({IceConnectionNumber(connection), POLLIN, 0});
        if (::poll(watched.data(), watched.size(), -1) < 0) continue;
        if (watched[0].revents != 0) {
            char buffer[256];
            ssize_t n = ::read(STDIN_FILENO, buffer, sizeof buffer - 1);
            if (n <= 0) return 0;
            buffer[n] = '\0';
            if (std::strstr(buffer, "logout") != nullptr)
                for (SmsConn client : clients) SmsSaveYourself(client, SmSaveBoth, True, SmInteractStyleNone, False);
        }
        for (int i = 0; i < count; ++i) {
            if (watched[1 + static_cast<size_t>(i)].revents == 0) continue;
            IceAcceptStatus status;
            IceConn connection = IceAcceptConnection(listeners[i], &status);
            if (connection == nullptr) continue;
            // Finishes the connection's set-up, the protocol start included.
            IceConnectStatus state;
            while ((state = IceConnectionStatus(connection)) == IceConnectPending)
                IceProcessMessages(connection, nullptr, nullptr);
            if (state == IceConnectAccepted)
                connections.push_back(connection);
            else
                IceCloseConnection(connection);
        }
        std::vector<IceConn> ready;
        for (size_t i = 0; i < connections.size(); ++i)
            if (watched[1 + static_cast<size_t>(count) + i].revents != 0) ready.push_back(connections[i]);
        for (IceConn connection : ready)
            if (IceProcessMessages(connection, nullptr, nullptr) == IceProcessMessagesIOError &&
                std::find(closing.begin(), closing.end(), connection) == closing.end())
                closing.push_back(connection);
        for (IceConn connection : closing) {
            std::erase(connections, connection);
            IceCloseConnection(connection);
        }
        closing.clear();
    }
}
