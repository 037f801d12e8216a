#include "HXBlockDevices.h"

#include "HXPartitionMapReader.h"
#include "HXSystemRoot.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <blkid/blkid.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace {

QString readTrimmed(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.read(4096)).trimmed();
}

// A block device's folder in sysfs: the fixture tree's when it has one, else
// the kernel's own (a loop device named on the command line during a run
// under a fixture root still has its real attributes).
QString sysfsFolder(const QString &kernelName)
{
    const QString mapped = HXSystemRoot::map(QStringLiteral("/sys/class/block/") + kernelName);
    if (QFileInfo::exists(mapped))
        return mapped;
    return QStringLiteral("/sys/class/block/") + kernelName;
}

bool isSkippedKind(const QString &name)
{
    static const char *const prefixes[] = {"loop", "ram", "zram", "dm-", "sr", "md", "nbd", "fd"};
    for (const char *prefix : prefixes) {
        if (name.startsWith(QLatin1String(prefix)))
            return true;
    }
    return false;
}

struct Mount
{
    dev_t device = 0;
    QString root; // the folder of the file system shown there: "/" unless a bind mount
    QString source;
    QString devicePath; // the source with its links followed
    QString mountPoint;
    QString fsType;
    bool readWrite = false;
};

QString unescapeMountField(const QString &field)
{
    // mountinfo writes blanks and the like as octal escapes (\040).
    QString out;
    for (qsizetype i = 0; i < field.size(); ++i) {
        if (field[i] == QLatin1Char('\\') && i + 3 < field.size()) {
            bool ok = false;
            const int code = field.mid(i + 1, 3).toInt(&ok, 8);
            if (ok) {
                out += QChar(code);
                i += 3;
                continue;
            }
        }
        out += field[i];
    }
    return out;
}

QList<Mount> readMounts()
{
    QList<Mount> mounts;
    QFile file(HXSystemRoot::map(QStringLiteral("/proc/self/mountinfo")));
    if (!file.open(QIODevice::ReadOnly))
        return mounts;
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (const QByteArray &line : lines) {
        // id parent major:minor root mountpoint options [optional...] - fstype source superoptions
        const QStringList fields =
            QString::fromUtf8(line).split(QLatin1Char(' '), Qt::SkipEmptyParts);
        const qsizetype dash = fields.indexOf(QStringLiteral("-"));
        if (fields.size() < 6 || dash < 6 || dash + 2 >= fields.size())
            continue;
        Mount mount;
        const QStringList numbers = fields[2].split(QLatin1Char(':'));
        if (numbers.size() == 2)
            mount.device = makedev(numbers[0].toUInt(), numbers[1].toUInt());
        mount.root = unescapeMountField(fields[3]);
        mount.mountPoint = unescapeMountField(fields[4]);
        // The file system's own options, the same in every mount namespace:
        // a service that sees the system read-only (systemd's ProtectSystem)
        // still sees whether the file system is in use read-write.
        const QString superOptions = dash + 3 < fields.size() ? fields[dash + 3] : fields[5];
        mount.readWrite = superOptions.split(QLatin1Char(',')).contains(QStringLiteral("rw"));
        mount.fsType = fields[dash + 1];
        mount.source = unescapeMountField(fields[dash + 2]);
        // /dev/mapper/root is /dev/dm-0 to the kernel's own records.
        const QString canonical = QFileInfo(mount.source).canonicalFilePath();
        mount.devicePath = canonical.isEmpty() ? mount.source : canonical;
        mounts.append(mount);
    }
    return mounts;
}

dev_t deviceNumber(const QString &kernelName, const QString &devicePath)
{
    struct stat st
    {
    };
    if (::stat(QFile::encodeName(devicePath).constData(), &st) == 0 && S_ISBLK(st.st_mode))
        return st.st_rdev;
    const QStringList numbers =
        readTrimmed(sysfsFolder(kernelName) + QStringLiteral("/dev")).split(QLatin1Char(':'));
    if (numbers.size() == 2)
        return makedev(numbers[0].toUInt(), numbers[1].toUInt());
    return 0;
}

void probeFileSystem(HXVolume *volume)
{
    blkid_probe probe =
        blkid_new_probe_from_filename(QFile::encodeName(volume->devicePath).constData());
    if (!probe)
        return;
    blkid_probe_enable_superblocks(probe, 1);
    blkid_probe_set_superblocks_flags(probe,
                                      BLKID_SUBLKS_TYPE | BLKID_SUBLKS_UUID | BLKID_SUBLKS_LABEL);
    if (blkid_do_safeprobe(probe) == 0) {
        const char *value = nullptr;
        if (blkid_probe_lookup_value(probe, "TYPE", &value, nullptr) == 0)
            volume->fsType = QString::fromUtf8(value);
        if (blkid_probe_lookup_value(probe, "UUID", &value, nullptr) == 0)
            volume->uuid = QString::fromUtf8(value);
        if (blkid_probe_lookup_value(probe, "LABEL", &value, nullptr) == 0)
            volume->label = QString::fromUtf8(value);
    }
    blkid_free_probe(probe);
}

void attachMount(HXVolume *volume, const QList<Mount> &mounts)
{
    const dev_t number = deviceNumber(volume->kernelName, volume->devicePath);
    for (const Mount &mount : mounts) {
        if ((number == 0 || mount.device != number) && mount.devicePath != volume->devicePath)
            continue;
        volume->mountedReadWrite = volume->mountedReadWrite || mount.readWrite;
        if (volume->fsType.isEmpty())
            volume->fsType = mount.fsType;
        // One file system may be shown in several places (bind mounts, a
        // service's own view of the system): it is named by the first mount
        // of its whole tree, not by a folder of it bound elsewhere.
        const bool whole = mount.root == QLatin1String("/");
        if (volume->mountPoint.isEmpty() || (whole && !volume->mountedWhole)) {
            volume->mountPoint = mount.mountPoint;
            volume->mountedWhole = whole;
        }
    }
}

// A device-mapper device (an encrypted or LVM volume) over one partition
// lies on that partition's range of its disk; over several, on none.
void placeOnDisk(HXVolume *volume)
{
    QString name = volume->kernelName;
    for (int depth = 0; depth < 8; ++depth) {
        const QDir slaves(sysfsFolder(name) + QStringLiteral("/slaves"));
        const QStringList below =
            slaves.entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::System);
        if (below.size() != 1)
            return;
        name = below.first();
        const QString folder = sysfsFolder(name);
        if (QFileInfo::exists(folder + QStringLiteral("/partition"))) {
            volume->diskKernelName =
                QFileInfo(QFileInfo(folder).canonicalFilePath()).dir().dirName();
            volume->startBytes = readTrimmed(folder + QStringLiteral("/start")).toLongLong() * 512;
            volume->sizeBytes = readTrimmed(folder + QStringLiteral("/size")).toLongLong() * 512;
            return;
        }
    }
}

} // namespace

QList<HXBlockDisk> HXBlockDevices::machineDisks()
{
    QList<HXBlockDisk> disks;
    const QDir folder(HXSystemRoot::map(QStringLiteral("/sys/block")));
    const QStringList names =
        folder.entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::System, QDir::Name);
    for (const QString &name : names) {
        if (isSkippedKind(name))
            continue;
        QString why;
        if (const auto disk = diskAt(QStringLiteral("/dev/") + name, &why);
            disk && disk->sizeBytes > 0)
            disks.append(*disk);
    }
    return disks;
}

std::optional<HXBlockDisk> HXBlockDevices::diskAt(const QString &devicePath, QString *why)
{
    const QString canonical = QFileInfo(devicePath).canonicalFilePath();
    struct stat st
    {
    };
    if (canonical.isEmpty() || ::stat(QFile::encodeName(canonical).constData(), &st) != 0) {
        *why = QStringLiteral("%1 does not exist").arg(devicePath);
        return std::nullopt;
    }
    if (!S_ISBLK(st.st_mode)) {
        *why = QStringLiteral("%1 is not a block device").arg(devicePath);
        return std::nullopt;
    }
    HXBlockDisk disk;
    disk.devicePath = canonical;
    disk.kernelName = QFileInfo(canonical).fileName();
    const QString sys = sysfsFolder(disk.kernelName);
    if (QFileInfo::exists(sys + QStringLiteral("/partition"))) {
        *why = QStringLiteral("%1 is a partition; name the whole disk").arg(devicePath);
        return std::nullopt;
    }
    const int fd = ::open(QFile::encodeName(canonical).constData(), O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        quint64 bytes = 0;
        int blockSize = 0;
        if (::ioctl(fd, BLKGETSIZE64, &bytes) == 0)
            disk.sizeBytes = qint64(bytes);
        if (::ioctl(fd, BLKSSZGET, &blockSize) == 0 && blockSize > 0)
            disk.logicalBlockSize = blockSize;
        ::close(fd);
    } else {
        // Not readable by this process (a container, a missing capability):
        // the kernel's attributes still describe it, and each test that
        // needs to read it says why it could not.
        const QString error = QString::fromLocal8Bit(strerror(errno));
        bool ok = false;
        disk.sizeBytes = readTrimmed(sys + QStringLiteral("/size")).toLongLong(&ok) * 512;
        if (!ok || disk.sizeBytes <= 0) {
            *why = QStringLiteral("%1 cannot be opened: %2").arg(devicePath, error);
            return std::nullopt;
        }
        const int blockSize =
            readTrimmed(sys + QStringLiteral("/queue/logical_block_size")).toInt();
        if (blockSize > 0)
            disk.logicalBlockSize = blockSize;
    }
    disk.model = readTrimmed(sys + QStringLiteral("/device/model"));
    if (disk.model.isEmpty() && disk.kernelName.startsWith(QLatin1String("loop"))) {
        const QString backing = readTrimmed(sys + QStringLiteral("/loop/backing_file"));
        if (!backing.isEmpty())
            disk.model = QStringLiteral("Loop device on %1").arg(QFileInfo(backing).fileName());
    }
    disk.uuid = diskIdentity(disk);
    return disk;
}

QString HXBlockDevices::diskIdentity(const HXBlockDisk &disk)
{
    const QString sys = sysfsFolder(disk.kernelName);
    for (const QString &file : {QStringLiteral("/wwid"), QStringLiteral("/device/wwid")}) {
        const QString wwid = readTrimmed(sys + file);
        if (!wwid.isEmpty())
            return wwid;
    }
    const QString fromMap = HXPartitionMapReader::diskIdentifier(disk.devicePath);
    if (!fromMap.isEmpty())
        return fromMap;
    for (const QString &file : {QStringLiteral("/serial"), QStringLiteral("/device/serial")}) {
        const QString serial = readTrimmed(sys + file);
        if (!serial.isEmpty())
            return QStringLiteral("serial-%1").arg(serial);
    }
    return QStringLiteral("%1-%2").arg(disk.kernelName).arg(disk.sizeBytes);
}

QList<HXVolume> HXBlockDevices::volumesOf(const HXBlockDisk &disk)
{
    QList<HXVolume> volumes;
    const QList<Mount> mounts = readMounts();
    const QDir folder(sysfsFolder(disk.kernelName));
    const QStringList entries =
        folder.entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::System, QDir::Name);
    for (const QString &entry : entries) {
        const QString base = folder.filePath(entry);
        if (!QFileInfo::exists(base + QStringLiteral("/partition")))
            continue;
        HXVolume volume;
        volume.kernelName = entry;
        volume.devicePath = QStringLiteral("/dev/") + entry;
        volume.diskKernelName = disk.kernelName;
        // sysfs counts partitions in 512-byte sectors whatever the block size.
        volume.startBytes = readTrimmed(base + QStringLiteral("/start")).toLongLong() * 512;
        volume.sizeBytes = readTrimmed(base + QStringLiteral("/size")).toLongLong() * 512;
        probeFileSystem(&volume);
        attachMount(&volume, mounts);
        if (!volume.fsType.isEmpty())
            volumes.append(volume);
    }
    if (volumes.isEmpty()) {
        // A file system written straight onto the disk.
        HXVolume whole;
        whole.kernelName = disk.kernelName;
        whole.devicePath = disk.devicePath;
        whole.diskKernelName = disk.kernelName;
        whole.sizeBytes = disk.sizeBytes;
        probeFileSystem(&whole);
        attachMount(&whole, mounts);
        if (!whole.fsType.isEmpty())
            volumes.append(whole);
    }
    return volumes;
}

QList<HXVolume> HXBlockDevices::mountedVolumes()
{
    QList<HXVolume> volumes;
    const QList<Mount> mounts = readMounts();
    for (const Mount &mount : mounts) {
        if (!mount.source.startsWith(QLatin1String("/dev/")))
            continue;
        const QString path = mount.devicePath;
        if (std::any_of(volumes.cbegin(), volumes.cend(),
                        [&](const HXVolume &v) { return v.devicePath == path; }))
            continue;
        HXVolume volume;
        volume.devicePath = path;
        volume.kernelName = QFileInfo(path).fileName();
        probeFileSystem(&volume);
        attachMount(&volume, mounts);
        if (volume.fsType.isEmpty())
            volume.fsType = mount.fsType;
        placeOnDisk(&volume);
        volumes.append(volume);
    }
    return volumes;
}
