#pragma once

#include <QByteArray>
#include <QString>

#include <functional>

// Report log lines. A message of severity "Passed", "Warning" or "Error" is
// printed on standard output as "<date> <Type>: <message>" and added to the
// shared report's log (further lines of the message become file children),
// in one locked read-modify-write of the report file (see HXStatusReporter).
// "Info" and "Debug" are dropped.
void HXReportLogInfo(const QString &message);
void HXReportLogDebug(const QString &message);
void HXReportLogSuccess(const QString &message);
void HXReportLogWarning(const QString &message);
void HXReportLogError(const QString &message);

void HXLogStatus(const QString &type, const QString &message);
// Prints the line and answers the text it adds to the log ("<Type>: <message>"),
// for callers that add it themselves; empty for "Info" and "Debug".
QString HXReportLogPrintLine(const QString &type, const QString &message);
void HXEmitReportLogEntry(const QString &type, const QString &text);

// Answers "Passed" whatever the line; no caller depends on anything else.
QString HXDGetLogTypeFromLogString(const QString &logString);

// Where the printed lines go; standard output (flushed) unless a test says
// otherwise. An empty function restores standard output.
void HXReportLogSetLineSink(std::function<void(const QByteArray &)> sink);
