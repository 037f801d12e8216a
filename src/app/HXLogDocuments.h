#pragma once

#include "HXStatusReport.h"

#include <QString>

class QPrinter;
class QTextDocument;

// The worker's log as the user takes it away: the log file as text, the
// report's log as a PDF, and the log file printed.
namespace HXLogDocuments {

// The worker daemon's log file.
QString workerLogPath();
// Its text, in UTF-8 when it is valid UTF-8 and Latin-1 otherwise.
QString workerLogText(QString *error);

// Replaces `destination` with a copy of the worker's log file; a file that
// was there stays as it was unless the copy is whole.
bool saveWorkerLogAsText(const QString &destination, QString *error);

// The report's log as a table of time, kind and message, damaged files
// listed under their message; the caller owns the document.
QTextDocument *logPrintDocument(const HXStatusReportRef &report);
// That table as a PDF, paginated vertically. An existing file is replaced
// only by a whole new one; false, with the reason, otherwise.
bool saveLogAsPdf(const QString &destination, const HXStatusReportRef &report, QString *error);

// The worker's log file as plain text, as wide as the printable page and
// continued over as many pages as it takes; false, with the reason, when the
// file cannot be read (nothing is printed then) or the printer refuses.
bool printWorkerLog(QPrinter *printer, QString *error);

} // namespace HXLogDocuments
