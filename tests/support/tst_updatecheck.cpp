// The update check against a server of the tests' own (update_server.py):
// the request byte for byte, each kind of reply, the time-outs, the alerts.
#include "HXSystemLog.h"
#include "HXUpdateCheck.h"
#include "TestSupport.h"

#include <QApplication>
#include <QDesktopServices>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMutex>
#include <QProcess>
#include <QTimer>
#include <QtTest>

using namespace HXUpdateRecords;

namespace {

const QString kServer = QStringLiteral(ORVEX_TESTS_DIR "/support/update_server.py");
const QString kPython = QStringLiteral("/usr/bin/python3");
constexpr qint64 kBuild = 100;

// Catches what would go to the browser.
class Browser : public QObject
{
    Q_OBJECT
public:
    QList<QUrl> opened;
public Q_SLOTS:
    void open(const QUrl &url) { opened.append(url); }
};

} // namespace

class TestUpdateCheck : public QObject
{
    Q_OBJECT

private:
    // Starts the server in `mode`; its port, or 0.
    quint16 startServer(const QString &mode);
    // Runs one check to its end, answering its alert with `press`.
    HXUpdateCheck::Outcome runCheck(bool interactive, const QString &press, QStringList *alert);
    QJsonObject serverReport();

    std::unique_ptr<QProcess> m_server;
    Browser m_browser;

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();

    void versionValues_data();
    void versionValues();
    void versionStrings_data();
    void versionStrings();
    void systemValues();
    void records();
    void comparison_data();
    void comparison();

    void replies_data();
    void replies();
    void yesOpensThePage();
    void yesOpensOnlyWebAddresses();
    void backgroundCheckTellsOnlyOfUpdates();
    void secondClickWhileRunningStartsNothing();
    void unknownBuildIsNotOfferedItsOwnVersion();
    void silentServerTimesOutWhileTheWindowRuns();
    void connectTimesOut();
    void noServer();
    void defaultPortIs1055();
};

void TestUpdateCheck::cleanupTestCase()
{
    QDesktopServices::unsetUrlHandler(QStringLiteral("http"));
    QDesktopServices::unsetUrlHandler(QStringLiteral("file"));
}

void TestUpdateCheck::initTestCase()
{
    if (!QFileInfo::exists(kPython))
        QSKIP("Debian's /usr/bin/python3 is needed for the server side");
    QDesktopServices::setUrlHandler(QStringLiteral("http"), &m_browser, "open");
    // A file address that got through would land here, not in a real program.
    QDesktopServices::setUrlHandler(QStringLiteral("file"), &m_browser, "open");
}

void TestUpdateCheck::init()
{
    HXUpdateCheck::resetForTesting();
    HXUpdateCheck::setRunningReleaseForTesting(QStringLiteral("5.0.1"), kBuild);
    HXUpdateCheck::setLimitsForTesting({2000, 3000});
    qputenv("ORVEX_UPDATE_SERVER", "127.0.0.1");
    m_browser.opened.clear();
}

void TestUpdateCheck::cleanup()
{
    if (m_server) {
        m_server->kill();
        m_server->waitForFinished();
        m_server.reset();
    }
    HXUpdateCheck::resetForTesting();
}

quint16 TestUpdateCheck::startServer(const QString &mode)
{
    const QJsonObject expected{{QStringLiteral("version"), 0x501},
                               {QStringLiteral("build"), kBuild},
                               {QStringLiteral("locale"), QStringLiteral("fr_CA")},
                               {QStringLiteral("system"), 0x1068}};
    m_server = std::make_unique<QProcess>();
    m_server->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_server->start(
        kPython,
        {kServer, mode, QString::fromUtf8(QJsonDocument(expected).toJson(QJsonDocument::Compact))});
    if (!m_server->waitForReadyRead(10000))
        return 0;
    const QByteArray line = m_server->readLine().trimmed();
    if (!line.startsWith("port "))
        return 0;
    const quint16 port = quint16(line.mid(5).toUInt());
    HXUpdateCheck::setPortForTesting(port);
    return port;
}

QJsonObject TestUpdateCheck::serverReport()
{
    if (!m_server->canReadLine())
        m_server->waitForReadyRead(10000);
    return QJsonDocument::fromJson(m_server->readLine()).object();
}

HXUpdateCheck::Outcome TestUpdateCheck::runCheck(bool interactive, const QString &press,
                                                 QStringList *alert)
{
    std::optional<HXUpdateCheck::Outcome> outcome;
    HXUpdateCheck::setFinishedHandlerForTesting(
        [&outcome](HXUpdateCheck::Outcome o) { outcome = o; });
    TestSupport::AlertAnswerer answerer(press);
    HXUpdateCheck::checkForUpdate(interactive);
    if (!QTest::qWaitFor([&outcome] { return outcome.has_value(); }, 60000))
        qFatal("the update check never ended");
    if (alert)
        *alert = answerer.alerts().isEmpty() ? QStringList() : answerer.alerts().constLast();
    if (answerer.alerts().size() > 1)
        qFatal("one check showed %d alerts", int(answerer.alerts().size()));
    return *outcome;
}

void TestUpdateCheck::versionValues_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<quint32>("value");
    QTest::newRow("5.0.1") << "5.0.1" << quint32(0x501);
    QTest::newRow("5.01 reads the same") << "5.01" << quint32(0x501);
    QTest::newRow("10.2.1") << "10.2.1" << quint32(0x1021);
    QTest::newRow("0.1.0") << "0.1.0" << quint32(0x10);
    QTest::newRow("letters, either case") << "1.a.F" << quint32(0x1AF);
    QTest::newRow("other characters skipped") << "v5.0.1 beta" << quint32(0x501BEA);
    QTest::newRow("empty") << "" << quint32(0);
}

void TestUpdateCheck::versionValues()
{
    QFETCH(QString, text);
    QFETCH(quint32, value);
    QCOMPARE(HXUpdateCheck::valueFromHexidecimalString(text), value);
}

void TestUpdateCheck::versionStrings_data()
{
    QTest::addColumn<quint32>("value");
    QTest::addColumn<QString>("text");
    QTest::newRow("three hex digits") << quint32(0x501) << "5.0.1";
    QTest::newRow("four") << quint32(0x1021) << "10.2.1";
    QTest::newRow("more than four: the last four") << quint32(0x51021) << "10.2.1";
    QTest::newRow("major 0") << quint32(0x10) << "0.1.0";
    QTest::newRow("letters") << quint32(0xa0f) << "a.0.f";
}

void TestUpdateCheck::versionStrings()
{
    QFETCH(quint32, value);
    QFETCH(QString, text);
    const QString shown = HXUpdateCheck::versionStringFromVersionValue(value);
    QCOMPARE(shown, text);
    QVERIFY(!shown.contains(QChar(0)));
    QVERIFY(!shown.startsWith(QLatin1Char('.')));
}

void TestUpdateCheck::systemValues()
{
    QCOMPARE(systemVersionValue(10, 6, 8), quint32(0x1068));
    QCOMPARE(systemVersionValue(10, 10, 3), quint32(0xA0A03));
    QCOMPARE(systemVersionValue(10, 15, 0), quint32(0xA0F00));
    // The units digit of a major below ten is dropped, as the protocol has it.
    QCOMPARE(systemVersionValue(9, 2, 1), quint32(0x021));
    QCOMPARE(systemVersionValue(11, 4, 2), quint32(0x1042));
}

void TestUpdateCheck::records()
{
    Request request;
    request.version = 0x501;
    request.signature = "????";
    request.fullName = QByteArray(40, 'n'); // longer than its field
    request.locale = "en_GB";
    request.systemVersion = 0xA0F00;
    const QByteArray bytes = encodeRequest(request);
    QCOMPARE(bytes.size(), 180);
    QCOMPARE(bytes.mid(104, 32), QByteArray(31, 'n') + '\0');
    QCOMPARE(bytes.mid(136, 6), QByteArray("en_GB\0", 6));
    // Names whose 31st byte falls inside a character: the character goes
    // whole, and what stays is valid UTF-8.
    const auto nameField = [&request](const QString &name) {
        request.fullName = name.toUtf8();
        const QByteArray field = encodeRequest(request).mid(104, 32);
        return field.left(field.indexOf('\0'));
    };
    QCOMPARE(nameField(QStringLiteral("Żółć Łęczyńska-Ślęzakówna")),
             QStringLiteral("Żółć Łęczyńska-Ślęzak").toUtf8()); // 30 of 31 bytes
    QCOMPARE(nameField(QStringLiteral("山田太郎山田太郎山田太郎")),
             QStringLiteral("山田太郎山田太郎山田").toUtf8());
    QCOMPARE(nameField(QStringLiteral("abcdefghijklmnopqrstuvwxyz12\U0001F600")),
             QByteArray("abcdefghijklmnopqrstuvwxyz12"));

    Reply reply{7, 0x1021, QStringLiteral("Orvex"), QStringLiteral("http://x.example/u"),
                QStringLiteral("4711")};
    const QByteArray replyBytes = encodeReply(reply);
    QCOMPARE(replyBytes.size(), 368);
    const std::optional<Reply> back = decodeReply(replyBytes);
    QVERIFY(back);
    QCOMPARE(back->version, quint32(0x1021));
    QCOMPARE(back->productName, reply.productName);
    QCOMPARE(back->url, reply.url);
    QCOMPARE(back->build, reply.build);
    QVERIFY(!decodeReply(replyBytes.left(367)));
    QVERIFY(!decodeReply(replyBytes + '\0'));
    // A product name filling its field without a NUL stops at the field's end.
    QByteArray full = replyBytes;
    full.replace(8, 32, QByteArray(32, 'P'));
    QCOMPARE(decodeReply(full)->productName, QString(32, QLatin1Char('P')));
}

void TestUpdateCheck::comparison_data()
{
    QTest::addColumn<quint32>("version");
    QTest::addColumn<QString>("build");
    QTest::addColumn<qint64>("running");
    QTest::addColumn<bool>("offers");
    QTest::newRow("newer") << quint32(0x502) << "100" << qint64(100) << true;
    QTest::newRow("same version, higher build") << quint32(0x501) << "101" << qint64(100) << true;
    QTest::newRow("lower version, higher build") << quint32(0x500) << "101" << qint64(100) << true;
    QTest::newRow("same") << quint32(0x501) << "100" << qint64(100) << false;
    QTest::newRow("older") << quint32(0x500) << "99" << qint64(100) << false;
    QTest::newRow("build text with a tail")
        << quint32(0x501) << "100 (beta)" << qint64(100) << false;
    QTest::newRow("no build number") << quint32(0x501) << "" << qint64(100) << false;
    // A build without version history knows its version but not its build.
    QTest::newRow("unknown build, same version")
        << quint32(0x501) << "4711" << kUnknownBuild << false;
    QTest::newRow("unknown build, lower version")
        << quint32(0x500) << "4711" << kUnknownBuild << false;
    QTest::newRow("unknown build, newer version") << quint32(0x502) << "1" << kUnknownBuild << true;
}

void TestUpdateCheck::comparison()
{
    QFETCH(quint32, version);
    QFETCH(QString, build);
    QFETCH(qint64, running);
    QFETCH(bool, offers);
    Reply reply;
    reply.version = version;
    reply.build = build;
    QCOMPARE(offersUpdate(reply, 0x501, running), offers);
}

void TestUpdateCheck::replies_data()
{
    QTest::addColumn<QString>("mode");
    QTest::addColumn<int>("outcome");
    QTest::addColumn<QStringList>("alert");
    const QStringList available{
        QStringLiteral("Orvex, version %1 is currently available. Do you wish to download this "
                       "product update?"),
        QStringLiteral("Your internet browser will be used to access the available update."),
        QStringLiteral("Yes"), QStringLiteral("No")};
    auto offer = [&available](const QString &version) {
        QStringList a = available;
        a[0] = a[0].arg(version);
        return a;
    };
    QTest::newRow("newer version")
        << "newer" << int(HXUpdateCheck::UpdateAvailable) << offer(QStringLiteral("5.0.2"));
    QTest::newRow("same version, higher build")
        << "samehigherbuild" << int(HXUpdateCheck::UpdateAvailable)
        << offer(QStringLiteral("5.0.1"));
    QTest::newRow("lower version, higher build")
        << "lowerhigherbuild" << int(HXUpdateCheck::UpdateAvailable)
        << offer(QStringLiteral("5.0.0"));
    QTest::newRow("same version and build")
        << "same" << int(HXUpdateCheck::NoUpdate)
        << QStringList{
               QStringLiteral(
                   "You are running version 5.0.1, which is the most current version available."),
               QStringLiteral("Please check again later."), QStringLiteral("OK")};
    QTest::newRow("367-byte reply")
        << "short" << int(HXUpdateCheck::Failed)
        << QStringList{QStringLiteral("A problem was encountered while checking for an update"),
                       QStringLiteral("The server may be temporarily unavailable."),
                       QStringLiteral("OK")};
}

void TestUpdateCheck::replies()
{
    QFETCH(QString, mode);
    QFETCH(int, outcome);
    QFETCH(QStringList, alert);
    QVERIFY(startServer(mode));
    QStringList shown;
    QCOMPARE(int(runCheck(true, QStringLiteral("No"), &shown)), outcome);
    QCOMPARE(serverReport().value(QStringLiteral("problems")).toArray(), QJsonArray());
    QCOMPARE(shown, alert);
    // "No" and "OK" leave the browser alone.
    QVERIFY(m_browser.opened.isEmpty());
}

void TestUpdateCheck::yesOpensThePage()
{
    QVERIFY(startServer(QStringLiteral("newer")));
    QCOMPARE(runCheck(true, QStringLiteral("Yes"), nullptr), HXUpdateCheck::UpdateAvailable);
    QCOMPARE(m_browser.opened,
             QList<QUrl>{QUrl(QStringLiteral("http://127.0.0.1/orvex/update.html"))});
}

void TestUpdateCheck::yesOpensOnlyWebAddresses()
{
    QVERIFY(startServer(QStringLiteral("fileurl")));
    QStringList logged;
    HXSystemLog::setSink([&logged](const QString &line) { logged.append(line); });
    QCOMPARE(runCheck(true, QStringLiteral("Yes"), nullptr), HXUpdateCheck::UpdateAvailable);
    HXSystemLog::setSink(nullptr);
    QVERIFY2(m_browser.opened.isEmpty(), qPrintable(m_browser.opened.value(0).toString()));
    QCOMPARE(logged.size(), 1);
    QVERIFY2(logged.first().contains(QLatin1String("file:///etc/passwd")),
             qPrintable(logged.first()));
}

void TestUpdateCheck::backgroundCheckTellsOnlyOfUpdates()
{
    QStringList shown;
    QVERIFY(startServer(QStringLiteral("same")));
    QCOMPARE(runCheck(false, QStringLiteral("OK"), &shown), HXUpdateCheck::NoUpdate);
    QVERIFY2(shown.isEmpty(), qPrintable(shown.join(QLatin1Char('|'))));
    cleanup();
    init();
    QVERIFY(startServer(QStringLiteral("short")));
    QCOMPARE(runCheck(false, QStringLiteral("OK"), &shown), HXUpdateCheck::Failed);
    QVERIFY(shown.isEmpty());
    cleanup();
    init();
    QVERIFY(startServer(QStringLiteral("newer")));
    QCOMPARE(runCheck(false, QStringLiteral("No"), &shown), HXUpdateCheck::UpdateAvailable);
    QVERIFY(!shown.isEmpty());
}

void TestUpdateCheck::unknownBuildIsNotOfferedItsOwnVersion()
{
    HXUpdateCheck::setRunningReleaseForTesting(QStringLiteral("5.0.1"), kUnknownBuild);
    QCOMPARE(HXUpdateCheck::runningBuild(), kUnknownBuild);
    QVERIFY(startServer(QStringLiteral("samehigherbuild")));
    QStringList shown;
    QCOMPARE(runCheck(true, QStringLiteral("OK"), &shown), HXUpdateCheck::NoUpdate);
    QCOMPARE(shown.value(0),
             QStringLiteral(
                 "You are running version 5.0.1, which is the most current version available."));
}

void TestUpdateCheck::secondClickWhileRunningStartsNothing()
{
    QVERIFY(startServer(QStringLiteral("same")));
    QList<HXUpdateCheck::Outcome> outcomes;
    HXUpdateCheck::setFinishedHandlerForTesting(
        [&outcomes](HXUpdateCheck::Outcome o) { outcomes.append(o); });
    TestSupport::AlertAnswerer answerer(QStringLiteral("OK"));
    QVERIFY(HXUpdateCheck::checkForUpdate(true));
    QVERIFY(HXUpdateCheck::isCheckRunning());
    QVERIFY(!HXUpdateCheck::checkForUpdate(true));
    QVERIFY(QTest::qWaitFor([&outcomes] { return !outcomes.isEmpty(); }, 60000));
    QVERIFY(!HXUpdateCheck::isCheckRunning());
    // Once it has ended, a new click starts a new check; its end is also the
    // marker that no second check from the ignored click is still on its way.
    m_server->kill();
    m_server->waitForFinished();
    QVERIFY(startServer(QStringLiteral("same")));
    QVERIFY(HXUpdateCheck::checkForUpdate(true));
    QVERIFY(QTest::qWaitFor([&outcomes] { return outcomes.size() >= 2; }, 60000));
    QCOMPARE(outcomes,
             (QList<HXUpdateCheck::Outcome>{HXUpdateCheck::NoUpdate, HXUpdateCheck::NoUpdate}));
    QCOMPARE(answerer.alerts().size(), 2);
}

void TestUpdateCheck::silentServerTimesOutWhileTheWindowRuns()
{
    HXUpdateCheck::setLimitsForTesting({2000, 400});
    QVERIFY(startServer(QStringLiteral("silent")));
    // The event loop runs while the server keeps silent: a timer queued
    // after the check started fires before the check ends.
    QStringList order;
    HXUpdateCheck::setFinishedHandlerForTesting([&order](HXUpdateCheck::Outcome o) {
        order.append(o == HXUpdateCheck::Failed ? QStringLiteral("failed")
                                                : QStringLiteral("other"));
    });
    TestSupport::AlertAnswerer answerer(QStringLiteral("OK"));
    // The worker logs its time-out just before it hands the failure over.
    QMutex logLock;
    QStringList logged;
    HXSystemLog::setSink([&logged, &logLock](const QString &line) {
        QMutexLocker locker(&logLock);
        logged.append(line);
    });
    HXUpdateCheck::checkForUpdate(true);
    // The request has arrived: the server is now the one keeping us waiting.
    QCOMPARE(serverReport().value(QStringLiteral("problems")).toArray(), QJsonArray());
    // The tick must come while the worker still waits, not from within the
    // error alert's own event loop after the time-out.
    bool tickedWhileWaiting = false;
    QTimer::singleShot(0, [&] {
        QMutexLocker locker(&logLock);
        tickedWhileWaiting =
            logged.isEmpty() && !QApplication::activeModalWidget() && answerer.alerts().isEmpty();
        order.append(QStringLiteral("tick"));
    });
    QVERIFY(QTest::qWaitFor([&order] { return order.contains(QStringLiteral("failed")); }, 60000));
    HXSystemLog::setSink(nullptr);
    QCOMPARE(order, (QStringList{QStringLiteral("tick"), QStringLiteral("failed")}));
    QVERIFY(tickedWhileWaiting);
    QVERIFY(logged.value(0).contains(QLatin1String("read: 0 of 368 bytes within 400 ms")));
    QCOMPARE(answerer.alerts().size(), 1);
    QCOMPARE(answerer.alerts().first().first(),
             QStringLiteral("A problem was encountered while checking for an update"));
}

void TestUpdateCheck::connectTimesOut()
{
    HXUpdateCheck::setLimitsForTesting({300, 3000});
    QVERIFY(startServer(QStringLiteral("backlog")));
    QStringList logged;
    HXSystemLog::setSink([&logged](const QString &line) { logged.append(line); });
    QStringList shown;
    QCOMPARE(runCheck(true, QStringLiteral("OK"), &shown), HXUpdateCheck::Failed);
    HXSystemLog::setSink(nullptr);
    // It was the connect that gave up, not the read.
    QCOMPARE(logged.size(), 1);
    QVERIFY2(logged.first().contains(QLatin1String("connect: no answer within 300 ms")),
             qPrintable(logged.first()));
    QCOMPARE(shown.value(0),
             QStringLiteral("A problem was encountered while checking for an update"));
}

void TestUpdateCheck::noServer()
{
    // A port nobody listens on, then a host that cannot be found.
    QVERIFY(startServer(QStringLiteral("newer")));
    m_server->kill();
    m_server->waitForFinished();
    QStringList shown;
    QCOMPARE(runCheck(true, QStringLiteral("OK"), &shown), HXUpdateCheck::Failed);
    QCOMPARE(shown.size(), 3);
    qputenv("ORVEX_UPDATE_SERVER", "updates.orvex.invalid");
    QCOMPARE(runCheck(true, QStringLiteral("OK"), &shown), HXUpdateCheck::Failed);
    QCOMPARE(shown.value(1), QStringLiteral("The server may be temporarily unavailable."));
}

void TestUpdateCheck::defaultPortIs1055()
{
    HXUpdateCheck::resetForTesting();
    QCOMPARE(HXUpdateCheck::serverPort(), quint16(1055));
    // The server on the protocol's own port, and a check left to its default.
    qputenv("UPDATE_SERVER_PORT", "1055");
    const quint16 port = startServer(QStringLiteral("same"));
    qunsetenv("UPDATE_SERVER_PORT");
    if (!port)
        QSKIP("port 1055 is taken on this machine");
    QCOMPARE(port, quint16(1055));
    HXUpdateCheck::resetForTesting();
    HXUpdateCheck::setRunningReleaseForTesting(QStringLiteral("5.0.1"), kBuild);
    QCOMPARE(runCheck(true, QStringLiteral("OK"), nullptr), HXUpdateCheck::NoUpdate);
    QCOMPARE(serverReport().value(QStringLiteral("problems")).toArray(), QJsonArray());
}

int main(int argc, char **argv)
{
    // What the request must carry about this machine, fixed for the server's checks.
    qputenv("LC_ALL", "fr_CA.UTF-8");
    qputenv("ORVEX_SYSTEM_VERSION", "10.6.8");
    QApplication app(argc, argv);
    TestUpdateCheck test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_updatecheck.moc"
