#pragma once

#include "TestSupport.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
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
        const QString from = fixture(QStringLiteral("sysroot"));
        QDirIterator it(from, QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            const QString target = root() + path.mid(from.size());
            if (it.fileInfo().isDir())
                QDir().mkpath(target);
            else
                QFile::copy(path, target);
        }
        QDir().mkpath(bin());
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
    void useJournal(const QString &journal, int exitCode = 0, const QByteArray &err = {})
    {
        QFile::remove(journalCopy());
        QFile::copy(journal, journalCopy());
        QFile script(bin() + QStringLiteral("/journalctl"));
        QVERIFY(script.open(QIODevice::WriteOnly | QIODevice::Truncate));
        script.write("#!/bin/sh\n"
                     "printf '%s\\n' \"$*\" >> '" +
                     QFile::encodeName(folder()) +
                     "/journal-calls'\n"
                     "after=\n"
                     "for a in \"$@\"; do case \"$a\" in --after-cursor=*) "
                     "after=\"${a#--after-cursor=}\";; esac; done\n"
                     "if [ -n \"$after\" ]; then\n"
                     "  /usr/bin/awk -v c=\"\\\"__CURSOR\\\":\\\"$after\\\"\" 'found { print } "
                     "index($0, c) { found = 1 }' '" +
                     QFile::encodeName(journalCopy()) +
                     "'\n"
                     "else\n"
                     "  /bin/cat '" +
                     QFile::encodeName(journalCopy()) +
                     "'\n"
                     "fi\n"
                     "printf '%s' '" +
                     err +
                     "' >&2\n"
                     "exit " +
                     QByteArray::number(exitCode) + "\n");
        script.close();
        script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    QString journalCopy() const { return m_dir.filePath(QStringLiteral("journal.json")); }
    QStringList journalCalls() const
    {
        QFile file(m_dir.filePath(QStringLiteral("journal-calls")));
        if (!file.open(QIODevice::ReadOnly))
            return {};
        return QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }

    static void append(const QString &path, const QByteArray &data)
    {
        QFile file(path);
        QVERIFY(file.open(QIODevice::Append));
        file.write(data);
    }
    void setBootId(const QByteArray &id)
    {
        QFile file(root() + QStringLiteral("/proc/sys/kernel/random/boot_id"));
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(id + '\n');
    }

private:
    QTemporaryDir m_dir;
    QByteArray m_oldPath;
    QByteArray m_oldRoot;
};
