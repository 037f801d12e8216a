#include "HXDesktopEntries.h"

#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>

namespace {

QString execLine(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    bool inEntry = false;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.startsWith(QLatin1Char('[')))
            inEntry = line == QLatin1String("[Desktop Entry]");
        else if (inEntry && line.startsWith(QLatin1String("Exec=")))
            return line.mid(5);
    }
    return {};
}

} // namespace

QString HXDesktopEntries::find(const QString &applicationId)
{
    return QStandardPaths::locate(QStandardPaths::ApplicationsLocation,
                                  applicationId + QStringLiteral(".desktop"));
}

bool HXDesktopEntries::launch(const QString &applicationId)
{
    const QString path = find(applicationId);
    if (path.isEmpty())
        return false;
    QString exec = execLine(path);
    // Field codes (%f, %U, ...) stand for files and URLs; none are passed.
    static const QRegularExpression fieldCode(QStringLiteral("\\s*%[fFuUdDnNickvm]"));
    exec.remove(fieldCode);
    exec.replace(QStringLiteral("%%"), QStringLiteral("%"));
    QStringList command = QProcess::splitCommand(exec);
    if (command.isEmpty())
        return false;
    const QString program = command.takeFirst();
    return QProcess::startDetached(program, command);
}

bool HXDesktopEntries::launchFirst(const QStringList &applicationIds)
{
    for (const QString &id : applicationIds) {
        if (!find(id).isEmpty())
            return launch(id);
    }
    return false;
}

QStringList HXDesktopEntries::powerSettingsIds()
{
    return {QStringLiteral("gnome-power-panel"), QStringLiteral("kcm_powerdevilprofilesconfig"),
            QStringLiteral("xfce4-power-manager-settings")};
}

bool HXDesktopEntries::revealPowerSettings()
{
    return launchFirst(powerSettingsIds());
}
