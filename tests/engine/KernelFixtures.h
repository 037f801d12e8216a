#pragma once

#include "EngineTestRun.h"
#include "TestSupport.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

// A machine for the kernel-record tests: a copy of tests/fixtures/kernel/sysroot
// as ORVEX_SYSROOT, a folder first (and alone) on PATH where a fake journalctl
// can be put, and a state folder. Everything is put back when it goes.
class KernelMachine
{
public:
    KernelMachine()
        : m_oldPath(qgetenv("PATH"))
        , m_oldRoot(qgetenv("ORVEX_SYSROOT"))
    {
        QDir().mkpath(bin());
        if (QProcess::execute(QStringLiteral("/bin/cp"),
                              {QStringLiteral("-R"), fixture(QStringLiteral("sysroot")), root()}))
            qFatal("cannot copy the kernel fixture tree");
        qputenv("ORVEX_SYSROOT", QFile::encodeName(root()));
        qputenv("PATH", QFile::encodeName(bin()));
    }
    ~KernelMachine()
    {
        qputenv("PATH", m_oldPath);
        if (m_oldRoot.isNull())
            qunsetenv("ORVEX_SYSROOT");
        else
            qputenv("ORVEX_SYSROOT", m_oldRoot);
    }

    static QString fixture(const QString &relative)
    {
        return QStringLiteral(FIXTURES "/") + relative;
    }

    QString folder() const { return m_dir.path(); }
    QString root() const { return m_dir.filePath(QStringLiteral("root")); }
    QString bin() const { return m_dir.filePath(QStringLiteral("bin")); }
    QString stateFolder() const { return m_dir.filePath(QStringLiteral("state")); }
    QString kmsg() const { return root() + QStringLiteral("/dev/kmsg"); }

    // A journalctl that prints `journal` (the records after --after-cursor's,
    // when given), then `err` on standard error, and ends with `exitCode`.
    // Each call's arguments are kept for journalCalls().
    void useJournal(const QString &journal, int exitCode = 0, const QString &err = {})
    {
        QFile::remove(journalCopy());
        QFile::copy(journal, journalCopy());
        const QString script = bin() + QStringLiteral("/journalctl");
        writeFile(script, QStringLiteral(R"sh(#!/bin/sh
printf '%s\n' "$*" >> '%1/journal-calls'
after=
for a; do case "$a" in --after-cursor=*) after="${a#--after-cursor=}";; esac; done
if [ -z "$after" ]; then /bin/cat '%2'
else /usr/bin/awk -v c="\"__CURSOR\":\"$after\"" 'found { print } index($0, c) { found = 1 }' '%2'
fi
printf '%s' '%3' >&2
exit %4
)sh")
                              .arg(folder(), journalCopy(), err)
                              .arg(exitCode)
                              .toUtf8());
        QFile::setPermissions(script, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    QString journalCopy() const { return m_dir.filePath(QStringLiteral("journal.json")); }
    QStringList journalCalls() const
    {
        return QString::fromUtf8(TestSupport::readFile(folder() + QStringLiteral("/journal-calls")))
            .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }

    void setBootId(const QByteArray &id)
    {
        writeFile(root() + QStringLiteral("/proc/sys/kernel/random/boot_id"), id + '\n');
    }

private:
    QTemporaryDir m_dir;
    QByteArray m_oldPath;
    QByteArray m_oldRoot;
};
