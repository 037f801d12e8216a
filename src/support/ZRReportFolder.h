#pragma once

#include <QString>
#include <QStringList>

// The private folder of one report. The archives keep their fixed names, but
// inside a folder made with mkdtemp(3) (mode 0700) in the temporary folder,
// so another local user can neither plant nor swap them.
class ZRReportFolder
{
public:
    // Makes a fresh folder under `parent` (the product's /tmp when empty);
    // isValid() says whether that worked.
    explicit ZRReportFolder(const QString &parent = QString());

    bool isValid() const { return !m_path.isEmpty(); }
    QString path() const { return m_path; }
    QString file(const QString &name) const { return m_path + QLatin1Char('/') + name; }

    QString logsArchive() const { return file(QStringLiteral("OrvexLogs.zip")); }
    QString systemProfileArchive() const { return file(QStringLiteral("SystemProfile.zip")); }
    QString installDebugArchive() const { return file(QStringLiteral("OrvexInstallDebug.zip")); }
    QString diskInfoArchive() const { return file(QStringLiteral("OrvexDiskInfo.zip")); }
    // The four archives in the order they are attached.
    QStringList archives() const;

    QString installDebugLog() const { return file(QStringLiteral("OrvexInstallDebug.log")); }
    QString workerSampleLog() const { return file(QStringLiteral("OrvexWorkerSample.log")); }
    QString idleDaemonPrefs() const { return file(QStringLiteral("OrvexIdleDaemonPrefs.plist")); }
    QString systemProfile() const { return file(QStringLiteral("system_profile.spx")); }
    QString diskInfoFolder() const { return file(QStringLiteral("tmp.Orvex.diskInfo")); }

    // Removes the folder and everything in it; links inside are removed,
    // never followed.
    void remove();

private:
    QString m_path;
};
