#pragma once

#include "HXLogEntry.h"

#include <QDateTime>
#include <QLocale>
#include <QString>

// The words a log row shows, without pixels: the date or time of an entry,
// its message taken out of the log-line form, a file row's path and name.
namespace HXLogEntryText {

// The message between the first ":" and the first "::", trimmed; a text
// without ":" is answered whole, after the system-log line
// "Error parsing log entry: <text>".
QString message(const QString &string);
// The entry's string less one trailing ",".
QString withoutTrailingComma(const QString &string);
// A file row's text: the last path component, then a blank.
QString fileName(const QString &path);
// The time (short style) for an entry of `today` or later, else the date
// (short style).
QString dateText(const QDateTime &timestamp, const QDate &today, const QLocale &locale = QLocale());
// Long date and long time, for the date's tooltip.
QString longDateText(const QDateTime &timestamp, const QLocale &locale = QLocale());
// The severity as a person reads it: the type word, or "File" for a file row.
QString typeName(const HXLogEntry &entry);

} // namespace HXLogEntryText
