#pragma once

#include <QLocale>
#include <QStringList>

// The rows of the schedule's two popups.
class HXScheduleMenus
{
public:
    // Twelve rows: "15 Minutes", "30 Minutes", "1 Hour", "2 Hours" … "10 Hours".
    static QStringList localizedDurationMenuContent();
    // Twenty-four rows, row h being h o'clock in the pattern "h a" made the
    // locale's own: "12 AM", "1 AM" … "11 PM" in English, "0", "1" … "23" where
    // the locale has no AM and PM.
    static QStringList localizedHourMenuContent(const QLocale &locale = QLocale::system());
    // The locale's short time pattern without minutes and seconds.
    static QString hourPattern(const QLocale &locale);
};
