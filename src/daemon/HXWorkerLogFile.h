#pragma once

#include <QByteArray>
#include <QString>

// The worker's own log, /var/log/orvex/OrvexWorkerDaemon.log (under
// ORVEX_ROOT when set): every report log line the worker prints, and the
// lines that never reach the report (what a pass skipped and why). "Save Log
// as Text…", "Print Log…" and the support report read it.
class HXWorkerLogFile
{
public:
    static QString path();
    // From now on every report log line goes to standard output and to the file.
    static void install();
    // An "Info" line: the file only, and standard output while echoing.
    static void note(const QString &message);
    // Whether notes also go to standard output (they do unless told).
    static void setEcho(bool echo);
    // Appends one finished line; false (said once in the system log) when the
    // file cannot be written, a full disk say: the report still gets the line.
    static bool append(const QByteArray &line);
};
