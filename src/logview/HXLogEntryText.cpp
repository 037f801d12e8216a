#include "HXLogEntryText.h"

#include "HXSystemLog.h"

#include <QCoreApplication>

namespace HXLogEntryText {

QString message(const QString &string)
{
    const qsizetype colon = string.indexOf(QLatin1Char(':'));
    if (colon < 0) {
        HXSystemLog::write(QStringLiteral("Error parsing log entry: %1").arg(string));
        return string;
    }
    const qsizetype start = colon + 1;
    const qsizetype delimiter = string.indexOf(QLatin1String("::"), start);
    const qsizetype length = delimiter < 0 ? -1 : delimiter - start;
    return string.mid(start, length).trimmed();
}

QString withoutTrailingComma(const QString &string)
{
    return string.endsWith(QLatin1Char(',')) ? string.chopped(1) : string;
}

QString fileName(const QString &path)
{
    // The component is taken after the blank is added, as the row has
    // always shown it: a path ending in "/" shows the blank alone.
    const QString withBlank = path + QLatin1Char(' ');
    const qsizetype slash = withBlank.lastIndexOf(QLatin1Char('/'));
    return slash < 0 ? withBlank : withBlank.mid(slash + 1);
}

QString dateText(const QDateTime &timestamp, const QDate &today, const QLocale &locale)
{
    if (!timestamp.isValid())
        return {};
    const QDateTime local = timestamp.toLocalTime();
    if (local.date() >= today)
        return locale.toString(local.time(), QLocale::ShortFormat);
    return locale.toString(local.date(), QLocale::ShortFormat);
}

QString longDateText(const QDateTime &timestamp, const QLocale &locale)
{
    if (!timestamp.isValid())
        return {};
    const QDateTime local = timestamp.toLocalTime();
    return locale.toString(local.date(), QLocale::LongFormat) + QLatin1Char(' ') +
           locale.toString(local.time(), QLocale::LongFormat);
}

QString typeName(const HXLogEntry &entry)
{
    if (entry.isFile())
        return QCoreApplication::translate("HXLogViewController", "File");
    return QCoreApplication::translate("HXLogViewController", entry.type().toUtf8().constData());
}

} // namespace HXLogEntryText
