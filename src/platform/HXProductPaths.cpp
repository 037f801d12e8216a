#include "HXProductPaths.h"

#include <QDir>

QString HXProductPaths::root()
{
    QString r = qEnvironmentVariable("ORVEX_ROOT");
    while (r.endsWith(QLatin1Char('/')))
        r.chop(1);
    return r;
}

QString HXProductPaths::map(const QString &absolutePath)
{
    const QString r = root();
    if (r.isEmpty())
        return absolutePath;
    return r + QDir::cleanPath(absolutePath);
}

QString HXProductPaths::libraryFolder()
{
    return map(QStringLiteral("/var/lib/orvex"));
}

QString HXProductPaths::reportFile()
{
    return map(QStringLiteral("/var/lib/orvex/Report.zrrpt"));
}

QString HXProductPaths::testReportFile()
{
    return map(QStringLiteral("/var/lib/orvex/TestReport.zrrpt"));
}

QString HXProductPaths::logsFolder()
{
    return map(QStringLiteral("/var/log/orvex"));
}

QString HXProductPaths::workerStoreFile()
{
    return map(QStringLiteral("/var/lib/orvex/OrvexWorkerDaemon.storedata"));
}

QString HXProductPaths::idleDaemonSettingsFile()
{
    return map(QStringLiteral("/var/lib/orvex/OrvexIdleDaemon.plist"));
}

QString HXProductPaths::isIdleMarker()
{
    return map(QStringLiteral("/var/lib/orvex/.isIdle"));
}

QString HXProductPaths::isIdlePrimaryMarker()
{
    return map(QStringLiteral("/var/lib/orvex/.isIdlePrimary"));
}

QString HXProductPaths::isIdleSecondaryMarker()
{
    return map(QStringLiteral("/var/lib/orvex/.isIdleSecondary"));
}

QString HXProductPaths::forceFailuresMarker()
{
    return map(QStringLiteral("/var/lib/orvex/.forceFailures"));
}
