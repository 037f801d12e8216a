#include "HXHostSystem.h"

#include "HXProductPaths.h"

#include <QFile>

QString HXHostSystem::prettyName()
{
    QString name;
    QString version;
    for (const char *path : {"/etc/os-release", "/usr/lib/os-release"}) {
        QFile file(HXProductPaths::map(QString::fromLatin1(path)));
        if (!file.open(QIODevice::ReadOnly))
            continue;
        for (const QByteArray &raw : file.readAll().split('\n')) {
            const QString line = QString::fromUtf8(raw).trimmed();
            const qsizetype equals = line.indexOf(QLatin1Char('='));
            if (equals <= 0 || line.startsWith(QLatin1Char('#')))
                continue;
            QString value = line.mid(equals + 1).trimmed();
            if (value.size() >= 2 &&
                (value.startsWith(QLatin1Char('"')) || value.startsWith(QLatin1Char('\''))) &&
                value.endsWith(value.front()))
                value = value.mid(1, value.size() - 2);
            const QString key = line.left(equals);
            if (key == QLatin1String("PRETTY_NAME") && !value.isEmpty())
                return value;
            if (key == QLatin1String("NAME"))
                name = value;
            else if (key == QLatin1String("VERSION"))
                version = value;
        }
        break;
    }
    if (name.isEmpty())
        return QStringLiteral("Linux");
    return version.isEmpty() ? name : name + QLatin1Char(' ') + version;
}
