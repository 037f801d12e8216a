#pragma once

#include "HXLogEntry.h"
#include "HXStatusReport.h"
#include "HXTestResult.h"

#include <QByteArray>
#include <QString>

#include <optional>

// The report file's codec: a keyed archive whose root is an HXStatusReport,
// decoded securely (only the three model classes and property-list values).
class HXReportArchive
{
public:
    static void registerModelClasses(KeyedUnarchiver &unarchiver);

    // Null, with a clause saying what is wrong in *error, when the data is not
    // a report archive.
    static HXStatusReportRef decodeReport(const QByteArray &bytes, QString *error);
    static QByteArray encodeReport(const HXStatusReport &report);

    static HXTestResultRef decodeTestResult(const QByteArray &bytes, QString *error = nullptr);
    static HXLogEntryRef decodeLogEntry(const QByteArray &bytes, QString *error = nullptr);

    // The list under `key` read straight into typed lists; nullopt when the
    // archive failed. A missing key gives an empty list.
    static std::optional<HXTestResultList> testResultsUnder(KeyedUnarchiver::Coder &coder,
                                                            QLatin1StringView key);
    static std::optional<HXLogEntryList> logEntriesUnder(KeyedUnarchiver::Coder &coder,
                                                         QLatin1StringView key);
    // The list of log entries archived at `uid`.
    static std::optional<HXLogEntryList> logEntriesAt(KeyedUnarchiver &unarchiver, quint64 uid,
                                                      int depth);
};
