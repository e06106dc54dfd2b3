// The Linux desktop's shell, on Qt Widgets: a tray icon whose menu is refilled
// at every opening, a serial work thread, Qt's event loop as the main queue,
// settings and the login item as freedesktop files, and the power-off
// announcement from logind (a delay inhibitor) and from the X session manager.
#include "app/application.h"

#include "app/app_delegate.h"
#include "app/texts.h"
#include "model/printable.h"
#include "store/data_folder.h"
#include "store/log.h"

#include <QApplication>
#include <QCursor>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusUnixFileDescriptor>
#include <QDBusVariant>
#include <QDateTime>
#include <QDesktopServices>
#include <QIcon>
#include <QLocale>
#include <QMenu>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QSessionManager>
#include <QSettings>
#include <QSystemTrayIcon>
#include <QThread>
#include <QTimer>
#include <QUrl>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <thread>

namespace tarnwick::MenuBar {

namespace {

QString qText(const std::string& text) { return QString::fromStdString(text); }

// Where settings and autostart entries live.
std::filesystem::path configHome() { return configLocation().value_or("/"); }

// The program as a desktop entry's Exec names it: quoted, with the characters
// that quoting reserves escaped.
std::string execWord(const std::string& path) {
    std::string word = "\"";
    for (char c : path) {
        if (c == '"' || c == '`' || c == '$' || c == '\\') word += "\\\\";
        word += c;
    }
    return word + "\"";
}

// The program a login starts: the "tarnwick" this tray program was started
// through (beside it in a build, in bin/ when installed), else this program.
std::string ownProgram() {
    std::error_code error;
    auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) return "tarnwick";
    for (const auto& launcher : {self.parent_path() / "tarnwick", self.parent_path() / "../../bin/tarnwick"})
        if (std::filesystem::exists(launcher, error)) return launcher.lexically_normal().string();
    return self.string();
}

// One thread that runs queued tasks in order. Tasks still queued when it is
// destroyed are dropped; the running one is waited for.
class WorkQueue {
public:
    WorkQueue() : thread_([this] { run(); }) {}
    ~WorkQueue() {
        {
            std::lock_guard guard(lock_);
            stopping_ = true;
        }
        wake_.notify_one();
        thread_.join();
    }
    WorkQueue(const WorkQueue&) = delete;
    WorkQueue& operator=(const WorkQueue&) = delete;

    void push(Task task) {
        {
            std::lock_guard guard(lock_);
            tasks_.push_back(std::move(task));
        }
        wake_.notify_one();
    }

private:
    void run() {
        for (;;) {
            Task task;
            {
                std::unique_lock guard(lock_);
                wake_.wait(guard, [this] { return stopping_ || !tasks_.empty(); });
                if (stopping_) return;
                task = std::move(tasks_.front());
                tasks_.pop_front();
            }
            task();
        }
    }

    std::mutex lock_;
    std::condition_variable wake_;
    std::deque<Task> tasks_;
    bool stopping_ = false;
    std::thread thread_;
};

class QtTimer final : public Timer {
public:
    explicit QtTimer(QTimer* timer) : timer_(timer) {}
    ~QtTimer() override { invalidate(); }
    void invalidate() override {
        if (!timer_) return;
        timer_->stop();
        timer_->deleteLater();
        timer_.clear();
    }

private:
    QPointer<QTimer> timer_;
};

class ThreadSignal final : public Signal {
public:
    void signal() override {
        {
            std::lock_guard guard(lock_);
            signalled_ = true;
        }
        done_.notify_all();
    }
    bool wait(double seconds) {
        std::unique_lock guard(lock_);
        return done_.wait_for(guard, std::chrono::duration<double>(seconds), [this] { return signalled_; });
    }

private:
    std::mutex lock_;
    std::condition_variable done_;
    bool signalled_ = false;
};

}  // namespace

// Holds a logind delay lock for shutdown while the application runs, and
// turns logind's announcement into the power-off save: the lock is let go
// once the save is done, so the shutdown waits for it (logind bounds the wait
// too), and taken again when the shutdown is called off.
class PowerOffWatch : public QObject {
    Q_OBJECT
public:
    explicit PowerOffWatch(Task handler) : handler_(std::move(handler)) {
        QDBusConnection bus = QDBusConnection::systemBus();
        if (!bus.isConnected()) {
            log("power-off: no system bus: " + printable(bus.lastError().message().toStdString()));
            return;
        }
        bus.connect("org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager",
                    "PrepareForShutdown", this, SLOT(prepareForShutdown(bool)));
        takeLock();
    }

private slots:
    void prepareForShutdown(bool starting) {
        if (!starting) {
            // Called off: hold the next one back too.
            takeLock();
            return;
        }
        handler_();
        lock_ = QDBusUnixFileDescriptor();
    }

private:
    void takeLock() {
        if (lock_.isValid()) return;
        QDBusMessage call = QDBusMessage::createMethodCall("org.freedesktop.login1", "/org/freedesktop/login1",
                                                           "org.freedesktop.login1.Manager", "Inhibit");
        call << QString("shutdown") << QString("Tarnwick") << QString("Saving the session before power-off")
             << QString("delay");
        QDBusMessage reply = QDBusConnection::systemBus().call(call, QDBus::Block, 5000);
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
            log("power-off: no shutdown inhibitor: " + printable(reply.errorMessage().toStdString()));
            return;
        }
        lock_ = reply.arguments().constFirst().value<QDBusUnixFileDescriptor>();
    }

    Task handler_;
    QDBusUnixFileDescriptor lock_;
};

// Tells when a panel's tray, a StatusNotifierItem host, is there on the
// session bus: the watcher announces each host that registers, and a watcher
// that starts later announces them the same way.
class TrayHostWatch : public QObject {
    Q_OBJECT
public:
    explicit TrayHostWatch(Task onHost) : onHost_(std::move(onHost)) {
        QDBusConnection::sessionBus().connect(watcherService, watcherPath, watcherInterface,
                                              "StatusNotifierHostRegistered", this, SLOT(hostRegistered()));
    }

    // Whether a host has registered with the watcher by now.
    static bool registered() {
        QDBusMessage get = QDBusMessage::createMethodCall(watcherService, watcherPath,
                                                          "org.freedesktop.DBus.Properties", "Get");
        get << QString(watcherInterface) << QString("IsStatusNotifierHostRegistered");
        QDBusMessage reply = QDBusConnection::sessionBus().call(get, QDBus::Block, 5000);
        return reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty() &&
               reply.arguments().constFirst().value<QDBusVariant>().variant().toBool();
    }

private slots:
    void hostRegistered() { onHost_(); }

private:
    static constexpr const char* watcherService = "org.kde.StatusNotifierWatcher";
    static constexpr const char* watcherPath = "/StatusNotifierWatcher";
    static constexpr const char* watcherInterface = "org.kde.StatusNotifierWatcher";
    Task onHost_;
};

namespace {

class QtShell final : public Shell {
public:
    QtShell()
        // Our own folder, private as the data and log folders are; QSettings
        // would make it with the umask's modes.
        : settings_(QString::fromStdString((prepareFolder(configHome() / "Tarnwick", 1) / "settings.ini").string()),
                    QSettings::IniFormat) {}

    ~QtShell() override {
        // The menu and icon go before the work thread stops: nothing calls into
        // the delegate any more. Hidden first, so a tray drops the item at once.
        hostWatch_.reset();
        if (tray_) {
            tray_->hide();
            tray_->setContextMenu(nullptr);
        }
        tray_.reset();
        menu_.reset();
    }

    // --- Threads and time -------------------------------------------------------
    bool onMainThread() override { return QThread::currentThread() == qApp->thread(); }
    void async(Task task) override { work_.push(std::move(task)); }
    void toMain(Task task) override { QMetaObject::invokeMethod(qApp, std::move(task), Qt::QueuedConnection); }
    void after(double seconds, Task task) override {
        QTimer::singleShot(std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000)), qApp,
                           std::move(task));
    }
    std::shared_ptr<Timer> repeating(double interval, Task tick) override {
        auto* timer = new QTimer(qApp);
        timer->setInterval(std::chrono::milliseconds(static_cast<std::int64_t>(interval * 1000)));
        QObject::connect(timer, &QTimer::timeout, qApp, std::move(tick));
        timer->start();
        return std::make_shared<QtTimer>(timer);
    }
    std::shared_ptr<Signal> makeSignal() override { return std::make_shared<ThreadSignal>(); }
    bool wait(Signal& signal, double seconds) override { return static_cast<ThreadSignal&>(signal).wait(seconds); }

    // --- The visible parts --------------------------------------------------------
    void showStatusItem(const std::string&, const std::string& accessibilityDescription,
                        std::function<Menu()> build, std::function<void(Command, std::int64_t)> perform) override {
        build_ = std::move(build);
        perform_ = std::move(perform);
        menu_ = std::make_unique<QMenu>();
        QObject::connect(menu_.get(), &QMenu::aboutToShow, [this] { fill(*menu_, build_()); });
        // Filled once now, so that a tray that reads the menu before opening it finds items.
        fill(*menu_, build_());
        // On Wayland the icon can only go through a panel's StatusNotifierItem
        // tray, and Qt decides once, as the icon is made, whether there is one:
        // an icon made before the panel's tray registered (a start at login
        // that won the race with the panel) would never show. There it is
        // made once a tray is there.
        if (QGuiApplication::platformName() == "wayland") {
            hostWatch_ = std::make_unique<TrayHostWatch>([this, accessibilityDescription] {
                makeIcon(accessibilityDescription);
            });
            if (!TrayHostWatch::registered()) {
                log("tray: no system tray on this desktop yet; the icon appears when one starts");
                return;
            }
        }
        makeIcon(accessibilityDescription);
    }
    // The Mac's menu bar menus; a tray application has none.
    void setMainMenu(const Menu&) override {}
    // No window of ours stays open to bring forward; alerts come up in front.
    void activate() override {}
    int runAlert(const Alert& alert) override {
        QMessageBox box;
        box.setWindowTitle("Tarnwick");
        box.setIcon(QMessageBox::Information);
        box.setText(qText(alert.message));
        box.setInformativeText(qText(alert.informative));
        // Wide enough that the report's sentence and its problem lines do not
        // wrap at every word; the texts only, or the icon's label widens too and
        // pushes the text far to its right.
        box.setStyleSheet("QLabel#qt_msgbox_label, QLabel#qt_msgbox_informativelabel { min-width: 360px; }");
        std::vector<QAbstractButton*> buttons;
        if (alert.buttons.empty()) buttons.push_back(box.addButton(QMessageBox::Ok));
        for (size_t i = 0; i < alert.buttons.size(); ++i)
            buttons.push_back(box.addButton(qText(alert.buttons[i]),
                                            i == 0 ? QMessageBox::AcceptRole : QMessageBox::RejectRole));
        box.setDefaultButton(static_cast<QPushButton*>(buttons.front()));
        // Escape answers with the last button, the one that does least.
        box.setEscapeButton(buttons.back());
        box.exec();
        for (size_t i = 0; i < buttons.size(); ++i)
            if (box.clickedButton() == buttons[i]) return static_cast<int>(i);
        return static_cast<int>(buttons.size()) - 1;
    }
    std::string shortDate(Date date) override {
        auto seconds = std::chrono::duration_cast<std::chrono::seconds>(date.time_since_epoch()).count();
        return QLocale::system().toString(QDateTime::fromSecsSinceEpoch(seconds), "ddd d MMM, HH:mm").toStdString();
    }
    SystemTexts systemTexts() override { return linuxTexts(); }

    // --- Settings ------------------------------------------------------------------
    std::int64_t integerSetting(const std::string& key) override {
        QVariant value = settings_.value(qText(key));
        if (!value.isValid()) return 0;
        bool number = false;
        qlonglong read = value.toLongLong(&number);
        if (number) return read;
        // A hand-edited value that is no number (or too long for one) reads as
        // 0; it is read at every menu opening, so it is logged once.
        std::string text = value.toString().toStdString();
        if (unreadable_.insert(key + "=" + text).second)
            log("settings: " + printable(key) + " \"" + printable(text) + "\" is not a number; ignored, read as 0");
        return 0;
    }
    void setIntegerSetting(const std::string& key, std::int64_t value) override {
        settings_.setValue(qText(key), static_cast<qlonglong>(value));
        store();
    }
    bool booleanSetting(const std::string& key) override { return settings_.value(qText(key), false).toBool(); }
    void setBooleanSetting(const std::string& key, bool value) override {
        settings_.setValue(qText(key), value);
        store();
    }

    // --- Login item: an XDG autostart entry ------------------------------------------
    LoginItemStatus loginItemStatus() override {
        std::ifstream in(autostartEntry());
        if (!in) return LoginItemStatus::notRegistered;
        // An entry the user switched off in the desktop's settings stays, hidden.
        for (std::string line; std::getline(in, line);)
            if (line == "Hidden=true") return LoginItemStatus::notRegistered;
        return LoginItemStatus::enabled;
    }
    std::optional<std::string> registerLoginItem() override {
        std::error_code error;
        std::filesystem::create_directories(autostartEntry().parent_path(), error);
        if (error) return error.message();
        std::ofstream out(autostartEntry(), std::ios::trunc);
        out << "[Desktop Entry]\nType=Application\nName=Tarnwick\n"
               "Comment=Keeps your open programs and their windows safe across restarts\n"
            << "Exec=" << execWord(ownProgram()) << "\nIcon=com.tarnwick.Tarnwick\nTerminal=false\n"
            << "X-GNOME-Autostart-enabled=true\n";
        out.close();
        if (!out) return "could not write " + autostartEntry().string();
        return std::nullopt;
    }
    std::optional<std::string> unregisterLoginItem() override {
        std::error_code error;
        std::filesystem::remove(autostartEntry(), error);
        if (error) return error.message();
        return std::nullopt;
    }

    // --- Workspace ----------------------------------------------------------------------
    void openURL(const std::string& url) override { QDesktopServices::openUrl(QUrl(qText(url))); }
    // The file manager shows the folder selected where it offers the freedesktop
    // call; otherwise the folder is opened.
    void reveal(const std::string& path) override {
        QString url = QUrl::fromLocalFile(qText(path)).toString();
        QDBusMessage call = QDBusMessage::createMethodCall("org.freedesktop.FileManager1", "/org/freedesktop/FileManager1",
                                                           "org.freedesktop.FileManager1", "ShowItems");
        call << QStringList{url} << QString();
        QDBusMessage reply = QDBusConnection::sessionBus().call(call, QDBus::Block, 5000);
        if (reply.type() == QDBusMessage::ReplyMessage) return;
        QDesktopServices::openUrl(QUrl::fromLocalFile(qText(path)));
    }
    void observePowerOff(Task handler) override {
        powerOff_ = std::make_unique<PowerOffWatch>(handler);
        // Logging out: the X session manager asks each client to save its data.
        QObject::connect(qApp, &QGuiApplication::commitDataRequest, qApp, [handler](QSessionManager&) { handler(); });
    }
    void terminate() override { QCoreApplication::quit(); }

private:
    void makeIcon(const std::string& accessibilityDescription) {
        if (tray_) return;
        tray_ = std::make_unique<QSystemTrayIcon>(QIcon(":/tarnwick/com.tarnwick.Tarnwick.svg"));
        tray_->setToolTip(qText(accessibilityDescription));
        tray_->setContextMenu(menu_.get());
        // A click opens the menu as a right click does: the menu is all there is.
        QObject::connect(tray_.get(), &QSystemTrayIcon::activated, [this](QSystemTrayIcon::ActivationReason reason) {
            if (reason == QSystemTrayIcon::Trigger) menu_->popup(QCursor::pos());
        });
        tray_->show();
        if (!QSystemTrayIcon::isSystemTrayAvailable())
            log("tray: no system tray on this desktop yet; the icon appears when one starts");
    }

    static std::filesystem::path autostartEntry() {
        return configHome() / "autostart" / "com.tarnwick.Tarnwick.desktop";
    }

    void store() {
        settings_.sync();
        if (settings_.status() != QSettings::NoError)
            log("settings: could not write " + printable(settings_.fileName().toStdString()));
    }

    void fill(QMenu& menu, const Menu& items) {
        // clear() drops the actions but leaves the submenus to their parent:
        // refilled at every opening, they would pile up for as long as we run.
        for (QMenu* old : menu.findChildren<QMenu*>(Qt::FindDirectChildrenOnly)) old->deleteLater();
        menu.clear();
        for (const MenuItem& item : items) {
            if (item.separator) {
                menu.addSeparator();
                continue;
            }
            if (!item.submenu.empty()) {
                QMenu* sub = menu.addMenu(qText(item.title));
                sub->setEnabled(item.enabled);
                fill(*sub, item.submenu);
                continue;
            }
            QAction* action = menu.addAction(qText(item.title));
            action->setEnabled(item.enabled);
            if (item.checked) {
                action->setCheckable(true);
                action->setChecked(true);
            }
            if (item.command != Command::none) {
                Command command = item.command;
                std::int64_t tag = item.tag;
                // Queued: the menu closes before the command runs its alerts.
                QObject::connect(action, &QAction::triggered, qApp, [this, command, tag] {
                    QMetaObject::invokeMethod(
                        qApp, [this, command, tag] { perform_(command, tag); }, Qt::QueuedConnection);
                });
            }
        }
    }

    QSettings settings_;
    std::set<std::string> unreadable_;  // settings already logged as no number
    WorkQueue work_;
    std::function<Menu()> build_;
    std::function<void(Command, std::int64_t)> perform_;
    std::unique_ptr<QMenu> menu_;
    std::unique_ptr<TrayHostWatch> hostWatch_;
    std::unique_ptr<QSystemTrayIcon> tray_;
    std::unique_ptr<PowerOffWatch> powerOff_;
};

}  // namespace

namespace {

int run(int argc, char** argv, std::optional<std::string> unavailable) {
    QApplication application(argc, argv);
    application.setApplicationName("Tarnwick");
    application.setDesktopFileName("com.tarnwick.Tarnwick");
    // Closing an alert must not end a program whose only window is its tray icon.
    application.setQuitOnLastWindowClosed(false);
    int status = 0;
    {
        QtShell shell;
        auto delegate = AppDelegate::make(shell, std::move(unavailable));
        delegate->applicationDidFinishLaunching();
        status = application.exec();
    }
    return status;
}

}  // namespace

int runApplication(int argc, char** argv) { return run(argc, argv, std::nullopt); }

int runApplication(int argc, char** argv, const std::string& unavailable) { return run(argc, argv, unavailable); }

}  // namespace tarnwick::MenuBar

#include "shell_qt.moc"
