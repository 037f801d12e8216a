#include "HXVolumeCatalogue.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStorageInfo>
#include <QStringList>
#include <libudev.h>
#include <memory>
#include <sys/stat.h>

namespace {

const HXVolumeCatalogue *g_current = nullptr;

QString udevLabel(const QString &device)
{
    struct stat info
    {
    };
    if (device.isEmpty() || ::stat(QFile::encodeName(device).constData(), &info) != 0 ||
        !S_ISBLK(info.st_mode))
        return {};
    std::unique_ptr<udev, decltype(&udev_unref)> context(udev_new(), &udev_unref);
    if (!context)
        return {};
    std::unique_ptr<udev_device, decltype(&udev_device_unref)> dev(
        udev_device_new_from_devnum(context.get(), 'b', info.st_rdev), &udev_device_unref);
    if (!dev)
        return {};
    const char *label = udev_device_get_property_value(dev.get(), "ID_FS_LABEL");
    return label ? QString::fromUtf8(label) : QString();
}

// fstab escapes blanks as octal sequences (\040).
QString unescapeFstab(const QByteArray &field)
{
    QByteArray out;
    for (int i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size()) {
            bool ok = false;
            const int code = field.mid(i + 1, 3).toInt(&ok, 8);
            if (ok) {
                out.append(char(code));
                i += 3;
                continue;
            }
        }
        out.append(field[i]);
    }
    return QString::fromUtf8(out);
}

QString fstabLabel(const QString &fstab, const QString &rootPath)
{
    QFile file(fstab);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    while (!file.atEnd()) {
        const QList<QByteArray> fields = file.readLine().simplified().split(' ');
        if (fields.size() < 2 || fields[0].startsWith('#'))
            continue;
        if (fields[0].startsWith("LABEL=") && unescapeFstab(fields[1]) == rootPath)
            return unescapeFstab(fields[0].mid(6));
    }
    return {};
}

} // namespace

const HXVolumeCatalogue &HXVolumeCatalogue::current()
{
    static const HXLinuxVolumeCatalogue real;
    return g_current ? *g_current : real;
}

void HXVolumeCatalogue::setCurrent(const HXVolumeCatalogue *catalogue)
{
    g_current = catalogue;
}

std::optional<bool> HXLinuxVolumeCatalogue::isVolumeRoot(const QString &path) const
{
    const QString canonical = QFileInfo(path).canonicalFilePath();
    if (canonical.isEmpty())
        return std::nullopt;
    const QStorageInfo volume(canonical);
    if (!volume.isValid())
        return std::nullopt;
    return QDir::cleanPath(volume.rootPath()) == canonical;
}

QString HXLinuxVolumeCatalogue::volumeLabel(const QString &rootPath) const
{
    const QStorageInfo volume(rootPath);
    if (!volume.isValid())
        return {};
    QString label = udevLabel(QString::fromLocal8Bit(volume.device()));
    if (label.isEmpty())
        label = volume.name(); // the /dev/disk/by-label links udev made
    if (label.isEmpty())
        label = fstabLabel(fstabFile, QDir::cleanPath(volume.rootPath()));
    return label;
}
