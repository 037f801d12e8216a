#pragma once

#include <QJsonValue>
#include <QString>
#include <QStringList>
#include <QVariant>

// Shared helpers of the test suites.
namespace TestSupport {

// A file of tests/fixtures/plist (real files made by other software, kept
// byte for byte as their README lists them).
QString fixture(const QString &relativePath);
bool fixturesAvailable();
QByteArray readFile(const QString &path);

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

} // namespace TestSupport
