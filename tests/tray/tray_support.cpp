// Program, TrayUser and TrayPanel: processes, folders and Qt's D-Bus client.
#include "tray/tray_support.h"

#include "support/virtual_display.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QStringList>

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace tarnwick::testing {

Program::Program(const std::string& path, const std::vector<std::string>& arguments) {
    int error = 0;
    if (auto started = ChildProcess::start(path, arguments, ChildProcess::Input::pipe,
                                           ChildProcess::ErrorOutput::discard, error))
        child_.emplace(std::move(*started));
    else
        ADD_FAILURE() << path << " did not start: " << std::strerror(error);
}

Program::~Program() {
    if (child_ && !status_) child_->terminateInBackground();
}

std::optional<std::string> Program::lineStartingWith(const std::string& prefix, double seconds) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    for (;;) {
        for (size_t end; (end = buffer_.find('\n')) != std::string::npos;) {
            std::string line = buffer_.substr(0, end);
            buffer_.erase(0, end + 1);
            if (line.rfind(prefix, 0) == 0) return line;
        }
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (!child_ || left.count() <= 0) return std::nullopt;
        pollfd ready{child_->output().get(), POLLIN, 0};
        if (::poll(&ready, 1, static_cast<int>(left.count())) <= 0) continue;
        char chunk[4096];
        ssize_t n = ::read(child_->output().get(), chunk, sizeof chunk);
        if (n <= 0) return std::nullopt;
        buffer_.append(chunk, static_cast<size_t>(n));
    }
}

void Program::tell(const std::string& line) {
    std::string text = line + "\n";
    if (!child_) return;
    EXPECT_EQ(::write(child_->input().get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

std::optional<int> Program::exited(double seconds) {
    if (!child_) return std::nullopt;
    if (!status_)
        status_ = child_->waitUntil(std::chrono::steady_clock::now() +
                                    std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000)));
    return status_;
}

namespace {

Item readItem(const QDBusArgument& argument) {
    Item item;
    QVariantMap properties;
    argument.beginStructure();
    argument >> item.id >> properties;
    argument.beginArray();
    while (!argument.atEnd()) {
        QDBusVariant child;
        argument >> child;
        item.children.push_back(readItem(child.variant().value<QDBusArgument>()));
    }
    argument.endArray();
    argument.endStructure();
    item.label = properties.value("label").toString().toStdString();
    item.enabled = properties.value("enabled", true).toBool();
    item.separator = properties.value("type").toString() == "separator";
    item.checked = properties.value("toggle-state", 0).toInt() == 1;
    return item;
}

}  // namespace

std::vector<std::string> rows(const std::vector<Item>& items) {
    std::vector<std::string> out;
    for (const Item& item : items) {
        if (item.separator) {
            out.push_back("---");
            continue;
        }
        std::string row = item.label;
        if (item.checked) row += " (on)";
        if (!item.enabled) row += " (disabled)";
        if (!item.children.empty()) row += " >" + std::to_string(item.children.size());
        out.push_back(row);
    }
    return out;
}

const Item* find(const std::vector<Item>& items, const std::string& label) {
    for (const Item& item : items) {
        if (item.label == label) return &item;
        if (const Item* inside = find(item.children, label)) return inside;
    }
    return nullptr;
}

std::vector<std::string> fileLines(const std::filesystem::path& file) {
    std::vector<std::string> lines;
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

TrayUser::TrayUser() {
    std::filesystem::create_directories(runtime());
    ::chmod(runtime().c_str(), 0700);
}

bool TrayUser::logHas(const std::string& text) const { return !logLinesWith(text).empty(); }

std::vector<std::string> TrayUser::logLinesWith(const std::string& text) const {
    std::vector<std::string> found;
    for (const std::string& line : fileLines(logFile()))
        if (line.find(text) != std::string::npos) found.push_back(line.substr(line.find(' ') + 1));
    return found;
}

std::vector<std::filesystem::path> TrayUser::snapshotFiles() const {
    std::vector<std::filesystem::path> files;
    std::error_code error;
    for (auto it = std::filesystem::directory_iterator(snapshots(), error);
         !error && it != std::filesystem::directory_iterator(); it.increment(error))
        if (it->path().extension() == ".json" && it->path().filename().string()[0] != '.')
            files.push_back(it->path());
    std::sort(files.begin(), files.end());
    return files;
}

TrayPanel::TrayPanel(const std::vector<std::string>& host)
    : hostCommand_(host), connection_(QString("tray-panel-%1").arg(::getpid())) {}

TrayPanel::~TrayPanel() {
    host_.reset();
    watcher_.reset();
    if (bus_) QDBusConnection::disconnectFromBus(connection_);
}

void TrayPanel::start() {
    const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    ASSERT_TRUE(address) << "no session bus to put the tray on";
    bus_.emplace(QDBusConnection::connectToBus(QString::fromLocal8Bit(address), connection_));
    ASSERT_TRUE(bus_->isConnected());
    watcher_.emplace(programPath("status-notifier-watcher"), std::vector<std::string>{});
    ASSERT_TRUE(eventually([&] { return watcherProperty("IsStatusNotifierHostRegistered").isValid(); }, 20.0))
        << "the watcher did not start";
    host_.emplace(hostCommand_.front(), std::vector<std::string>(hostCommand_.begin() + 1, hostCommand_.end()));
    ASSERT_TRUE(eventually([&] { return watcherProperty("IsStatusNotifierHostRegistered").toBool(); }, 20.0))
        << "the tray did not register with the watcher";
}

QVariant TrayPanel::watcherProperty(const char* name) {
    QDBusMessage get = QDBusMessage::createMethodCall("org.kde.StatusNotifierWatcher", "/StatusNotifierWatcher",
                                                      "org.freedesktop.DBus.Properties", "Get");
    get << QString("org.kde.StatusNotifierWatcher") << QString(name);
    QDBusMessage reply = bus_->call(get);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return {};
    return reply.arguments().at(0).value<QDBusVariant>().variant();
}

void TrayPanel::findItem() {
    QStringList items;
    ASSERT_TRUE(eventually([&] {
        items = watcherProperty("RegisteredStatusNotifierItems").toStringList();
        return items.size() == 1;
    }, 20.0)) << "the application registered no tray item";
    // A bus name, with the item's path after it when it is not the usual one.
    itemService_ = items.front().section('/', 0, 0);
    QDBusMessage get = QDBusMessage::createMethodCall(itemService_, "/StatusNotifierItem",
                                                      "org.freedesktop.DBus.Properties", "Get");
    get << QString("org.kde.StatusNotifierItem") << QString("Menu");
    QDBusMessage reply = bus_->call(get);
    ASSERT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
    menuPath_ = reply.arguments().at(0).value<QDBusVariant>().variant().value<QDBusObjectPath>().path();
    ASSERT_FALSE(menuPath_.isEmpty());
}

std::vector<Item> TrayPanel::openMenu() {
    QDBusMessage show = QDBusMessage::createMethodCall(itemService_, menuPath_, "com.canonical.dbusmenu", "AboutToShow");
    show << 0;
    bus_->call(show);
    QDBusMessage layout = QDBusMessage::createMethodCall(itemService_, menuPath_, "com.canonical.dbusmenu", "GetLayout");
    layout << 0 << -1 << QStringList();
    QDBusMessage reply = bus_->call(layout);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() < 2) {
        ADD_FAILURE() << "no menu layout: " << reply.errorMessage().toStdString();
        return {};
    }
    return readItem(reply.arguments().at(1).value<QDBusArgument>()).children;
}

void TrayPanel::choose(const std::string& label, std::optional<size_t> position) {
    const std::vector<Item> menu = openMenu();
    const Item* item = find(menu, label);
    ASSERT_TRUE(item) << "no item \"" << label << "\" in " << ::testing::PrintToString(rows(menu));
    if (position) {
        ASSERT_LT(*position, item->children.size()) << label;
        item = &item->children[*position];
    }
    QDBusMessage event = QDBusMessage::createMethodCall(itemService_, menuPath_, "com.canonical.dbusmenu", "Event");
    event << item->id << QString("clicked") << QVariant::fromValue(QDBusVariant(0)) << 0u;
    QDBusMessage reply = bus_->call(event);
    ASSERT_NE(reply.type(), QDBusMessage::ErrorMessage) << reply.errorMessage().toStdString();
}

void TrayPanel::activate(int x, int y) {
    QDBusMessage call = QDBusMessage::createMethodCall(itemService_, "/StatusNotifierItem",
                                                       "org.kde.StatusNotifierItem", "Activate");
    call << x << y;
    QDBusMessage reply = bus_->call(call);
    ASSERT_NE(reply.type(), QDBusMessage::ErrorMessage) << reply.errorMessage().toStdString();
}

}  // namespace tarnwick::testing
