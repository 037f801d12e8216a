#include "HXDaemonFiles.h"

#include "AtomicFileWriter.h"
#include "BinaryPlistWriter.h"
#include "PropertyList.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

QVariant HXDaemonReadPlistFile(const QString &path, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = file.errorString();
        return {};
    }
    return readPropertyList(file.readAll(), error);
}

bool HXDaemonWritePlistFile(const QString &path, const QVariant &value, QString *error)
{
    const QByteArray bytes = BinaryPlistWriter::write(value, error);
    if (bytes.isEmpty())
        return false;
    QDir().mkpath(QFileInfo(path).absolutePath());
    const AtomicFileWriter::Result result = AtomicFileWriter::write(path, bytes, 0644, QString());
    if (!result.written)
        *error = result.writeError;
    return result.written;
}
