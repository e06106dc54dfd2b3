// Stand-ins for the desktop services the tray application talks to that
// cannot run here for real, for its end-to-end tests: logind on the system bus
// (a shutdown inhibitor and the PrepareForShutdown announcement) and a file
// manager's org.freedesktop.FileManager1 on the session bus. It says what
// happens on standard output, one line each, and
// takes orders on standard input: "shutdown" announces a power-off, "cancel"
// calls it off.
//
//   tarnwick_fake_services [--logind] [--file-manager]
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusUnixFileDescriptor>
#include <QElapsedTimer>
#include <QObject>
#include <QSocketNotifier>
#include <QStringList>

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace {

void say(const QString& line) {
    std::fputs((line + "\n").toUtf8().constData(), stdout);
    std::fflush(stdout);
}

}  // namespace

// org.freedesktop.login1.Manager, as far as the application uses it.
class Login : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.login1.Manager")
public:
    // The time since the last announcement, for the release line.
    QElapsedTimer announced;

public slots:
    QDBusUnixFileDescriptor Inhibit(const QString& what, const QString& who, const QString& why, const QString& mode) {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) return {};
        say("inhibit " + what + " " + who + " " + mode + " (" + why + ")");
        // The lock is held while any copy of the write end is open: once the
        // holder closes its copy, the read end sees the end of the file.
        auto* notifier = new QSocketNotifier(ends[0], QSocketNotifier::Read, this);
        connect(notifier, &QSocketNotifier::activated, this, [this, notifier, readEnd = ends[0]] {
            char byte;
            if (::read(readEnd, &byte, 1) > 0) return;
            notifier->setEnabled(false);
            ::close(readEnd);
            say("released " + QString::number(announced.isValid() ? announced.elapsed() : -1));
            notifier->deleteLater();
        });
        QDBusUnixFileDescriptor handed(ends[1]);  // takes a copy
        ::close(ends[1]);
        return handed;
    }
};

// org.freedesktop.FileManager1: what a file manager is asked to show.
class FileManager : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")
public slots:
    void ShowItems(const QStringList& uris, const QString&) { say("show-items " + uris.join(' ')); }
    void ShowFolders(const QStringList& uris, const QString&) { say("show-folders " + uris.join(' ')); }
    void ShowItemProperties(const QStringList& uris, const QString&) { say("show-properties " + uris.join(' ')); }
};

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    Login login;
    FileManager files;
    if (arguments.contains("--logind")) {
        QDBusConnection system = QDBusConnection::systemBus();
        if (!system.registerObject("/org/freedesktop/login1", &login, QDBusConnection::ExportAllSlots) ||
            !system.registerService("org.freedesktop.login1")) {
            say("error: no system bus to serve logind on");
            return 1;
        }
    }
    if (arguments.contains("--file-manager")) {
        QDBusConnection session = QDBusConnection::sessionBus();
        if (!session.registerObject("/org/freedesktop/FileManager1", &files, QDBusConnection::ExportAllSlots) ||
            !session.registerService("org.freedesktop.FileManager1")) {
            say("error: no session bus to serve the file manager on");
            return 1;
        }
    }
    QSocketNotifier orders(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&orders, &QSocketNotifier::activated, [&] {
        char buffer[256];
        ssize_t n = ::read(STDIN_FILENO, buffer, sizeof buffer - 1);
        if (n <= 0) {
            application.quit();
            return;
        }
        buffer[n] = '\0';
        for (const QString& order : QString::fromUtf8(buffer).split('\n', Qt::SkipEmptyParts)) {
            if (order != "shutdown" && order != "cancel") continue;
            bool starting = order == "shutdown";
            if (starting) login.announced.start();
            QDBusMessage signal = QDBusMessage::createSignal("/org/freedesktop/login1", "org.freedesktop.login1.Manager",
                                                             "PrepareForShutdown");
            signal << starting;
            QDBusConnection::systemBus().send(signal);
            say(QString("prepare ") + (starting ? "true" : "false"));
        }
    });
    say("ready");
    return application.exec();
}

#include "fake_services.moc"
