#include "ReportFactory.h"

#include "HXConstants.h"

#include <QDateTime>

namespace ReportFactory {

HXStatusReportRef make(int results, int logEntries)
{
    static const QString names[] = {HXDSMARTCheckTestName,     HXDSurfaceScanTestName,
                                    HXDFileStructureTestName,  HXDMemoryTestName,
                                    HXDFilesystemCheckTestName, HXDPartitionMapCheckTestName,
                                    HXDRAIDCheckTestName,      HXDBatteryTestName,
                                    HXDIOErrorTestName,        HXDPOSTCheckTestName};
    static const QString types[] = {HXDTestResultSuccessType, HXDTestResultSuccessType,
                                    HXDTestResultSuccessType, HXDTestResultWarningType,
                                    HXDTestResultErrorType};
    auto report = HXStatusReport::report();
    HXTestResultList list;
    list.reserve(results);
    for (int i = 0; i < results; ++i) {
        const int disk = i % 48;
        const QString &name = names[i % 10];
        const QString &type = types[(i / 10) % 5];
        const QVariantMap info{
            {HXDiskKey,
             QVariantMap{{QStringLiteral("uuid"),
                          QStringLiteral("5D3F%1-22C1-4B7A-9E10-%2").arg(disk, 4, 10, QLatin1Char('0')).arg(i, 12, 10, QLatin1Char('0'))},
                         {QStringLiteral("bsdName"), QStringLiteral("sd%1").arg(QChar(u'a' + disk % 26))},
                         {QStringLiteral("volumeName"), QStringLiteral("Volume %1").arg(disk)}}}};
        list.append(HXTestResult::resultWithType(
            type, name,
            QStringLiteral("%1 on sd%2: %3 after checking %4 blocks")
                .arg(name, QChar(u'a' + disk % 26), type)
                .arg(1000 + i),
            info));
    }
    report->setTestResults(list);

    HXLogEntryList log;
    log.reserve(logEntries);
    const QDateTime start = QDateTime::fromSecsSinceEpoch(1767225600, Qt::UTC);
    for (int i = 0; i < logEntries; ++i) {
        const QString &type = types[i % 5];
        QString text = QStringLiteral("%1: %2 finished on disk sd%3 with %4 problems found")
                           .arg(type, names[i % 10], QChar(u'a' + i % 26))
                           .arg(i % 7);
        if (i % 10 == 0) {
            for (int f = 0; f < 3; ++f)
                text += QStringLiteral("\n/home/user/Documents/project-%1/file-%2.dat").arg(i).arg(f);
        }
        auto e = HXLogEntry::entryWithTypeCompoundString(type, text);
        e->setTimestamp(start.addSecs(i));
        log.append(e);
    }
    report->setLog(log);
    return report;
}

} // namespace ReportFactory
