#include "DiskImages.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <unistd.h>

namespace DiskImages {

bool run(const QString &program, const QStringList &arguments, QString *why,
         const QByteArray &input, QByteArray *output)
{
    const QString path = QStandardPaths::findExecutable(
        program,
        {QStringLiteral("/usr/sbin"), QStringLiteral("/sbin"), QStringLiteral("/usr/bin")});
    if (path.isEmpty()) {
        if (why)
            *why = QStringLiteral("%1 is not installed").arg(program);
        return false;
    }
    QProcess process;
    process.start(path, arguments);
    if (!input.isEmpty())
        process.write(input);
    process.closeWriteChannel();
    const bool finished = process.waitForFinished(120000);
    const QByteArray out = process.readAllStandardOutput();
    if (output)
        *output = out;
    if (!finished || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        if (why)
            *why = QStringLiteral("%1 %2 failed: %3")
                       .arg(program, arguments.join(QLatin1Char(' ')),
                            QString::fromLocal8Bit(process.readAllStandardError() + out));
        return false;
    }
    return true;
}

QString loopUnavailableReason()
{
    if (::geteuid() != 0)
        return QStringLiteral("loop devices need root");
    if (QStandardPaths::findExecutable(QStringLiteral("losetup"),
                                       {QStringLiteral("/usr/sbin"), QStringLiteral("/sbin")})
            .isEmpty())
        return QStringLiteral("losetup is not installed");
    if (!QFileInfo::exists(QStringLiteral("/dev/loop-control")))
        return QStringLiteral("the kernel has no loop driver (/dev/loop-control is missing)");
    return {};
}

bool makeImage(const QString &path, qint64 bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.resize(bytes);
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeAt(const QString &path, qint64 offset, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::ReadWrite) && file.seek(offset) &&
           file.write(bytes) == bytes.size();
}

LoopDevice::LoopDevice(const QString &image, Options options)
{
    m_error = loopUnavailableReason();
    if (!m_error.isEmpty())
        return;
    QStringList arguments{QStringLiteral("--find"), QStringLiteral("--show")};
    if (options.readOnly)
        arguments << QStringLiteral("--read-only");
    if (options.sectorSize > 0)
        arguments << QStringLiteral("--sector-size") << QString::number(options.sectorSize);
    if (options.partitions)
        arguments << QStringLiteral("--partscan");
    QByteArray output;
    if (!run(QStringLiteral("losetup"), arguments << image, &m_error, {}, &output))
        return;
    m_path = QString::fromLocal8Bit(output).trimmed();
    // The kernel here does not always scan the map at attach time (and a
    // re-read does not help): the partitions are added one by one, which
    // fails harmlessly for those it did find.
    if (options.partitions)
        run(QStringLiteral("partx"), {QStringLiteral("--add"), m_path});
}

LoopDevice::~LoopDevice()
{
    if (isAttached())
        run(QStringLiteral("losetup"), {QStringLiteral("--detach"), m_path});
}

QString LoopDevice::kernelName() const
{
    return QFileInfo(m_path).fileName();
}

} // namespace DiskImages
