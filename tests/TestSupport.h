#pragma once

#include <QJsonValue>
#include <QList>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <functional>
#include <memory>

class QMessageBox;
class QTimer;

// Shared helpers of the test suites.
namespace TestSupport {

// A file of tests/fixtures/plist (real files made by other software, kept
// byte for byte as their README lists them).
QString fixture(const QString &relativePath);
bool fixturesAvailable();
QByteArray readFile(const QString &path);

// Takes every product path under `root` and puts the daemons on the session
// bus, which a suite runs privately (dbus-run-session); false when there is
// no session bus.
bool useTestRoot(const QString &root);

// Debian's Python with plistlib, the independent peer of the codec tests.
bool pythonPeerAvailable();
// Runs the peer; false (with its standard error in *output) on failure.
bool runPythonPeer(const QStringList &arguments, QByteArray *output);

// The peer's tagged JSON form of property-list values.
QJsonValue toTagged(const QVariant &value);
QVariant fromTagged(const QJsonValue &tagged);

// Value equality that treats integers of any width alike and compares dates
// to the millisecond, as a property list carries them.
bool samePlistValue(const QVariant &a, const QVariant &b, QString *where = nullptr);

// Answers, while it lives, every modal message box that opens, as a person
// would: the button titled `press`, or Escape when `press` is empty (or no
// button has that title). The boxes are looked for every 10 ms by the event
// loop, so they are found inside their own modal loops.
class AlertAnswerer
{
public:
    explicit AlertAnswerer(const QString &press = QString());
    ~AlertAnswerer();
    // One list per box, in the order they opened: its text, its informative
    // text, then its button titles without mnemonics.
    const QList<QStringList> &alerts() const { return m_alerts; }

private:
    void answer();

    QString m_press;
    std::unique_ptr<QTimer> m_poll;
    QList<QPointer<QMessageBox>> m_answered;
    QList<QStringList> m_alerts;
};

// Runs `action`, answering the message box it opens; that box as
// AlertAnswerer records it (the last one when several opened), or an empty
// list when none opened before `action` returned.
QStringList answerAlert(const std::function<void()> &action, const QString &press = QString());

} // namespace TestSupport
