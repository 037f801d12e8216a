#include "HXReportLog.h"

#include "HXConstants.h"
#include "HXLogEntry.h"
#include "HXStatusReporter.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QMutex>

#include <cstdio>

namespace {
QMutex g_sinkMutex;
std::function<void(const QByteArray &)> g_sink;

void printLine(const QByteArray &line)
{
    QMutexLocker lock(&g_sinkMutex);
    if (g_sink) {
        g_sink(line);
        return;
    }
    std::fwrite(line.constData(), 1, size_t(line.size()), stdout);
    std::fflush(stdout);
}
} // namespace

void HXReportLogSetLineSink(std::function<void(const QByteArray &)> sink)
{
    QMutexLocker lock(&g_sinkMutex);
    g_sink = std::move(sink);
}

void HXReportLogInfo(const QString &message)
{
    HXLogStatus(HXDTestResultInformationType, message);
}

void HXReportLogDebug(const QString &message)
{
    HXLogStatus(HXDTestResultDebugType, message);
}

void HXReportLogSuccess(const QString &message)
{
    HXLogStatus(HXDTestResultSuccessType, message);
}

void HXReportLogWarning(const QString &message)
{
    HXLogStatus(HXDTestResultWarningType, message);
}

void HXReportLogError(const QString &message)
{
    HXLogStatus(HXDTestResultErrorType, message);
}

void HXLogStatus(const QString &type, const QString &message)
{
    const QString line = HXReportLogPrintLine(type, message);
    if (!line.isEmpty())
        HXEmitReportLogEntry(type, line);
}

QString HXReportLogPrintLine(const QString &type, const QString &message)
{
    if (type == HXDTestResultInformationType || type == HXDTestResultDebugType)
        return {};
    // The type word as the user's language has it; the English word otherwise.
    const QByteArray key = type.toUtf8();
    QString word = QCoreApplication::translate("Localizable", key.constData());
    if (word.isEmpty())
        word = type;
    const QString line = word + QLatin1String(": ") + message;
    const QString date = QDateTime::currentDateTime().toString(HXDTestResultDateFormat);
    printLine(date.toUtf8() + ' ' + line.toUtf8() + '\n');
    return line;
}

void HXEmitReportLogEntry(const QString &type, const QString &text)
{
    // Added to the report as the file holds it, not to a copy that may be
    // older than what another writer has put there since.
    HXStatusReporter::sharedReporter()->addLogEntry(
        HXLogEntry::entryWithTypeCompoundString(type, text));
}

QString HXDGetLogTypeFromLogString(const QString &logString)
{
    Q_UNUSED(logString);
    return HXDTestResultSuccessType;
}
