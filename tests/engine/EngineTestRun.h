#pragma once

#include "HXConstants.h"
#include "HXMachineTest.h"

#include <QFile>
#include <QStringList>
#include <QtTest>

// Writes `data` to `path`, or adds it at the end; the calling test fails otherwise.
inline void writeFile(const QString &path, const QByteArray &data, bool append = false)
{
    QFile file(path);
    QVERIFY(file.open(append ? QIODevice::Append : QIODevice::WriteOnly));
    QCOMPARE(file.write(data), data.size());
}

// One run of one of the engine's tests: what it found, and the lines it
// wrote for the worker's log.
struct EngineTestRun
{
    QList<HXTestFinding> findings;
    QStringList notes;

    bool noted(const QString &part) const { return notes.join(QLatin1Char('\n')).contains(part); }
    // The finding on the device the kernel calls `name`, or an empty one.
    HXTestFinding on(const QString &name) const
    {
        for (const HXTestFinding &finding : findings)
            if (finding.testInfo.value(HXDiskKey).toMap().value(HXBSDNameKey) == name)
                return finding;
        return {};
    }
    QString disk(const QString &name, const QString &key) const
    {
        return on(name).testInfo.value(HXDiskKey).toMap().value(key).toString();
    }
};

template<typename Test> EngineTestRun runEngineTest(Test &&test, HXEngineContext context = {})
{
    EngineTestRun run;
    context.note = [&run](const QString &line) {
        run.notes.append(line);
    };
    run.findings = test.run(context);
    return run;
}

// Run on a fixture root: ORVEX_SYSROOT is left pointing there.
template<typename Test> EngineTestRun runTestUnder(const QString &sysroot)
{
    qputenv("ORVEX_SYSROOT", sysroot.toUtf8());
    return runEngineTest(Test());
}
