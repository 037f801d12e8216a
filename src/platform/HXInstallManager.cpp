#include "HXInstallManager.h"

#include "HXSystemLog.h"

#include <QProcess>
#include <QStandardPaths>

const QString HXInstallManager::kHelperLabel = QStringLiteral("com.apple.bsd.SMJobBlessHelper");
const QString HXInstallManager::kOSStatusErrorDomain = QStringLiteral("NSOSStatusErrorDomain");
const QString HXInstallManager::kInstallErrorDomain = QStringLiteral("HXInstallManagerErrorDomain");

namespace {
// pkexec's own exit statuses: the user dismissed the dialog, or was not
// authorised (or pkexec itself failed).
constexpr int kPkexecDismissed = 126;
constexpr int kPkexecNotAuthorized = 127;
// An installation never takes longer than this; a stuck one is a failure.
constexpr int kInstallTimeoutMs = 5 * 60 * 1000;
} // namespace

HXInstallManager::Programs HXInstallManager::defaultPrograms()
{
    return {QStandardPaths::findExecutable(QStringLiteral("pkexec")),
            QStringLiteral(ORVEX_LIBEXECDIR "/orvex-install-helper")};
}

HXInstallManager::HXInstallManager(Programs programs)
    : m_programs(std::move(programs))
{
}

void HXInstallManager::install()
{
    HXError error;
    if (blessHelperWithLabel(kHelperLabel, &error))
        HXSystemLog::write(QStringLiteral("Job is available!"));
    else
        HXSystemLog::write(QStringLiteral("Something went wrong! %1 / %2").arg(error.domain).arg(error.code));
}

bool HXInstallManager::blessHelperWithLabel(const QString &label, HXError *error)
{
    if (!error)
        return false;
    if (m_programs.pkexec.isEmpty()) {
        *error = {kOSStatusErrorDomain, kAuthorizationInternal,
                  QStringLiteral("pkexec is not installed, so no administrator can be asked")};
        return false;
    }
    QProcess run;
    run.setProcessChannelMode(QProcess::MergedChannels);
    run.start(m_programs.pkexec, {m_programs.installer, label});
    if (!run.waitForStarted()) {
        *error = {kOSStatusErrorDomain, kAuthorizationInternal, run.errorString()};
        return false;
    }
    if (!run.waitForFinished(kInstallTimeoutMs)) {
        run.kill();
        run.waitForFinished();
        *error = {kInstallErrorDomain, -1, QStringLiteral("The helper installer did not finish")};
        return false;
    }
    const QString output = QString::fromLocal8Bit(run.readAll()).trimmed();
    if (run.exitStatus() != QProcess::NormalExit) {
        *error = {kInstallErrorDomain, -1, QStringLiteral("The helper installer crashed")};
        return false;
    }
    switch (run.exitCode()) {
    case 0:
        return true;
    case kPkexecDismissed:
        *error = {kOSStatusErrorDomain, kAuthorizationCanceled, output};
        return false;
    case kPkexecNotAuthorized:
        *error = {kOSStatusErrorDomain, kAuthorizationDenied, output};
        return false;
    default:
        *error = {kInstallErrorDomain, run.exitCode(), output};
        return false;
    }
}
