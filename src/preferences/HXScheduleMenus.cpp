#include "HXScheduleMenus.h"

#include "HXPreferencesText.h"

#include <QRegularExpression>
#include <QTime>

QStringList HXScheduleMenus::localizedDurationMenuContent()
{
    const QString minutes = HXPreferencesText("%d Minutes", "%d Minutes");
    const QString hour = HXPreferencesText("%d Hour", "%d Hour");
    const QString hours = HXPreferencesText("%d Hours", "%d Hours");
    const auto with = [](QString format, int n) {
        return format.replace(QLatin1String("%d"), QString::number(n));
    };
    QStringList rows{with(minutes, 15), with(minutes, 30), with(hour, 1)};
    for (int index = 3; index <= 11; ++index)
        rows.append(with(hours, index - 1));
    return rows;
}

QString HXScheduleMenus::hourPattern(const QLocale &locale)
{
    // The C locale has no wording of its own: the pattern stands as it is.
    if (locale.language() == QLocale::C)
        return QStringLiteral("h AP");
    QString pattern = locale.timeFormat(QLocale::ShortFormat);
    // Minutes and seconds go with the separator before them ("h:mm AP" →
    // "h AP", "HH.mm" → "HH"); a quoted literal between them goes too.
    static const QRegularExpression minutesAndSeconds(QStringLiteral("[^hHmsaApPt ]*[ms]+"));
    pattern.remove(minutesAndSeconds);
    pattern = pattern.simplified();
    if (!pattern.contains(QLatin1Char('h')) && !pattern.contains(QLatin1Char('H')))
        pattern = QStringLiteral("h AP");
    return pattern;
}

QStringList HXScheduleMenus::localizedHourMenuContent(const QLocale &locale)
{
    // A wall-clock hour in the system time zone: formatting the time alone
    // keeps a day on which the clocks change from skipping or repeating a row.
    const QString pattern = hourPattern(locale);
    QStringList rows;
    for (int hour = 0; hour < 24; ++hour)
        rows.append(locale.toString(QTime(hour, 0), pattern));
    return rows;
}
