#include "HXUpdateCheck.h"

#include "HXEndpoints.h"
#include "HXMachineProbes.h"
#include "HXSystemLog.h"
#include "HXWebBrowser.h"

#include <QApplication>
#include <QDateTime>
#include <QLocale>
#include <QMessageBox>
#include <QMutex>
#include <QPushButton>
#include <QThread>
#include <QUrl>
#include <QWidget>
#include <pwd.h>
#include <unistd.h>

#ifndef ORVEX_BUILD_VERSION
#define ORVEX_BUILD_VERSION "0"
#endif

namespace {

struct Settings
{
    quint16 port = HXUpdateRecords::kPort;
    HXUpdateExchange::Limits limits;
    QString shortVersion;
    qint64 build = -1;
    std::function<void(HXUpdateCheck::Outcome)> finished;
};

QMutex settingsLock;
Settings &settings()
{
    static Settings s;
    return s;
}

// A text of the "UpdateCheck" table: the key is the source text, and
// without a translation the English default stands.
QString text(const char *key, const char *english)
{
    const QString translated = QCoreApplication::translate("UpdateCheck", key);
    return translated == QLatin1String(key) ? QString::fromUtf8(english) : translated;
}

// The alerts come over the window the user works in, which comes forward.
QWidget *frontWindow()
{
    QWidget *window = QApplication::activeWindow();
    if (!window) {
        for (QWidget *w : QApplication::topLevelWidgets()) {
            if (w->isVisible() && w->objectName() == QLatin1String("MainWindow"))
                window = w;
        }
    }
    if (window) {
        window->raise();
        window->activateWindow();
    }
    return window;
}

QByteArray fullUserName()
{
    const passwd *entry = ::getpwuid(::getuid());
    if (!entry)
        return {};
    // The GECOS field: the full name, then office, telephone numbers and
    // other, separated by commas.
    QByteArray gecos(entry->pw_gecos ? entry->pw_gecos : "");
    gecos = gecos.left(gecos.indexOf(',') < 0 ? gecos.size() : gecos.indexOf(','));
    return gecos.isEmpty() ? QByteArray(entry->pw_name) : gecos;
}

void reportFinished(HXUpdateCheck::Outcome outcome)
{
    std::function<void(HXUpdateCheck::Outcome)> handler;
    {
        QMutexLocker locker(&settingsLock);
        handler = settings().finished;
    }
    if (handler)
        handler(outcome);
}

} // namespace

QString HXUpdateCheck::runningShortVersion()
{
    QMutexLocker locker(&settingsLock);
    if (!settings().shortVersion.isEmpty())
        return settings().shortVersion;
    const QString version = QCoreApplication::applicationVersion();
    return version.isEmpty() ? QStringLiteral(ORVEX_VERSION) : version;
}

qint64 HXUpdateCheck::runningBuild()
{
    QMutexLocker locker(&settingsLock);
    return settings().build >= 0 ? settings().build : QByteArray(ORVEX_BUILD_VERSION).toLongLong();
}

namespace {

// Everything of the request but the full name, whose look-up may ask a
// directory service over the network and so stays off the interface thread.
HXUpdateRecords::Request requestWithoutName()
{
    HXUpdateRecords::Request request;
    request.version =
        HXUpdateRecords::valueFromHexidecimalString(HXUpdateCheck::runningShortVersion());
    request.signature = "????";
    request.locale = QLocale::system().name().toUtf8();
    const HXSystemVersion v = HXSystemVersion::current();
    request.systemVersion = HXUpdateRecords::systemVersionValue(v.major, v.minor, v.bugfix);
    return request;
}

// One check at a time: a second click while one runs would only stack a
// second alert on the first. Touched on the interface thread only.
bool checkRunning = false;

} // namespace

HXUpdateRecords::Request HXUpdateCheck::currentRequest()
{
    HXUpdateRecords::Request request = requestWithoutName();
    request.fullName = fullUserName();
    return request;
}

double HXUpdateCheck::defaultUpdateCheckInterval()
{
    const QDateTime now = QDateTime::currentDateTime();
    return double(QDateTime::currentDateTime().msecsTo(now)) / 1000.0 + 86400.0;
}

bool HXUpdateCheck::checkForUpdate(bool interactive)
{
    if (checkRunning) {
        HXSystemLog::write(QStringLiteral("An update check is already running"));
        return false;
    }
    checkRunning = true;
    const HXUpdateRecords::Request partial = requestWithoutName();
    const QString host = HXEndpoints::current().updateServer();
    const quint16 port = serverPort();
    HXUpdateExchange::Limits limits;
    {
        QMutexLocker locker(&settingsLock);
        limits = settings().limits;
    }
    const qint64 build = runningBuild();
    QThread *worker = QThread::create([=] {
        HXUpdateRecords::Request request = partial;
        request.fullName = fullUserName();
        QString error;
        const std::optional<QByteArray> bytes =
            HXUpdateExchange::run(host, port, HXUpdateRecords::encodeRequest(request),
                                  HXUpdateRecords::kReplySize, limits, &error);
        std::optional<HXUpdateRecords::Reply> reply;
        if (bytes)
            reply = HXUpdateRecords::decodeReply(*bytes);
        else
            HXSystemLog::write(QStringLiteral("Update check with %1 failed: %2").arg(host, error));
        QMetaObject::invokeMethod(
            qApp, [=] { finish(interactive, reply, request.version, build); },
            Qt::QueuedConnection);
    });
    QObject::connect(worker, &QThread::finished, worker, &QObject::deleteLater);
    worker->start();
    return true;
}

quint16 HXUpdateCheck::serverPort()
{
    QMutexLocker locker(&settingsLock);
    return settings().port;
}

bool HXUpdateCheck::isCheckRunning()
{
    return checkRunning;
}

void HXUpdateCheck::finish(bool interactive, const std::optional<HXUpdateRecords::Reply> &reply,
                           quint32 running, qint64 build)
{
    // The check counts as running until its alert is answered.
    Outcome outcome = UpdateAvailable;
    if (!reply) {
        outcome = Failed;
        if (interactive)
            alertUserOfFailure();
    } else if (!HXUpdateRecords::offersUpdate(*reply, running, build)) {
        outcome = NoUpdate;
        if (interactive)
            alertUserOfNoUpdate(*reply);
    } else {
        alertUserToAvailableUpdate(*reply);
    }
    checkRunning = false;
    reportFinished(outcome);
}

void HXUpdateCheck::alertUserToAvailableUpdate(const HXUpdateRecords::Reply &reply)
{
    QWidget *parent = frontWindow();
    const QString title =
        text("Product Update Options Notice",
             "%1, version %2 is currently available. Do you wish to download this product update?")
            .arg(reply.productName, versionStringFromVersionValue(reply.version));
    QMessageBox box(QMessageBox::Information, QStringLiteral("Orvex"), title, QMessageBox::NoButton,
                    parent);
    box.setInformativeText(
        text("Product Update Options Advice",
             "Your internet browser will be used to access the available update."));
    QPushButton *yes = box.addButton(text("Yes", "Yes"), QMessageBox::YesRole);
    box.addButton(text("No", "No"), QMessageBox::NoRole);
    box.setDefaultButton(yes);
    box.exec();
    if (box.clickedButton() == yes)
        HXWebBrowser::openWebAddress(QUrl(reply.url), QStringLiteral("the update page"));
}

void HXUpdateCheck::alertUserOfNoUpdate(const HXUpdateRecords::Reply &reply)
{
    QWidget *parent = frontWindow();
    const QString title =
        text("No Product Update Notice",
             "You are running version %1, which is the most current version available.")
            .arg(versionStringFromVersionValue(reply.version));
    QMessageBox box(QMessageBox::Information, QStringLiteral("Orvex"), title, QMessageBox::Ok,
                    parent);
    box.setInformativeText(text("No Product Update Advice", "Please check again later."));
    box.exec();
}

void HXUpdateCheck::alertUserOfFailure()
{
    QWidget *parent = frontWindow();
    QMessageBox box(QMessageBox::Warning, QStringLiteral("Orvex"),
                    text("A problem was encountered while checking for an update",
                         "A problem was encountered while checking for an update"),
                    QMessageBox::Ok, parent);
    box.setInformativeText(text("The server may be temporarily unavailable.",
                                "The server may be temporarily unavailable."));
    box.exec();
}

void HXUpdateCheck::setPortForTesting(quint16 port)
{
    QMutexLocker locker(&settingsLock);
    settings().port = port;
}

void HXUpdateCheck::setLimitsForTesting(HXUpdateExchange::Limits limits)
{
    QMutexLocker locker(&settingsLock);
    settings().limits = limits;
}

void HXUpdateCheck::setRunningReleaseForTesting(const QString &shortVersion, qint64 build)
{
    QMutexLocker locker(&settingsLock);
    settings().shortVersion = shortVersion;
    settings().build = build;
}

void HXUpdateCheck::setFinishedHandlerForTesting(std::function<void(Outcome)> handler)
{
    QMutexLocker locker(&settingsLock);
    settings().finished = std::move(handler);
}

void HXUpdateCheck::resetForTesting()
{
    QMutexLocker locker(&settingsLock);
    settings() = Settings();
}
