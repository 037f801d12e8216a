#include "ZRReportFolder.h"

#include "HXProductPaths.h"

#include <QDir>
#include <cstdlib>

ZRReportFolder::ZRReportFolder(const QString &parent)
{
    const QString base = parent.isEmpty() ? HXProductPaths::map(QStringLiteral("/tmp")) : parent;
    QByteArray pattern = QFile::encodeName(base + QStringLiteral("/OrvexReport.XXXXXX"));
    if (char *made = mkdtemp(pattern.data()))
        m_path = QFile::decodeName(made);
}

QStringList ZRReportFolder::archives() const
{
    return {logsArchive(), systemProfileArchive(), installDebugArchive(), diskInfoArchive()};
}

void ZRReportFolder::remove()
{
    if (m_path.isEmpty())
        return;
    // QDir removes a symbolic link itself, not what it points to.
    QDir(m_path).removeRecursively();
}
