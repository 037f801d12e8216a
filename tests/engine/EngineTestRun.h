#pragma once

#include "HXMachineTest.h"

#include <QStringList>

// One of the engine's tests run once on a fixture root (ORVEX_SYSROOT is left
// pointing there): what it found, and the lines it wrote for the worker's log.
struct EngineTestRun
{
    QList<HXTestFinding> findings;
    QStringList notes;
};

template<typename Test> EngineTestRun runTestUnder(const QString &sysroot)
{
    qputenv("ORVEX_SYSROOT", sysroot.toUtf8());
    EngineTestRun run;
    HXEngineContext context;
    context.note = [&run](const QString &line) {
        run.notes.append(line);
    };
    Test test;
    run.findings = test.run(context);
    return run;
}
