#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

// Disk images and the loop devices that make real block devices of them, for
// the tests of the partition map and volume structure tests.
namespace DiskImages {

// Runs a tool (sgdisk, mkfs.ext4...) to its end; false, with its words in
// *why, when it fails.
bool run(const QString &program, const QStringList &arguments, QString *why = nullptr,
         const QByteArray &input = QByteArray(), QByteArray *output = nullptr);
// Why this machine cannot attach loop devices (not root, no losetup, no
// loop driver); empty when it can.
QString loopUnavailableReason();

bool makeImage(const QString &path, qint64 bytes); // a sparse file of that size
QByteArray readFile(const QString &path);
bool writeAt(const QString &path, qint64 offset, const QByteArray &bytes);

struct LoopOptions
{
    bool readOnly = true;
    int sectorSize = 0;      // 0: the driver's default, 512
    bool partitions = false; // create /dev/loopNpM for its partitions
};

// A loop device over an image, detached when it goes out of scope.
class LoopDevice
{
public:
    using Options = LoopOptions;
    explicit LoopDevice(const QString &image, Options options = {});
    ~LoopDevice();
    LoopDevice(const LoopDevice &) = delete;
    LoopDevice &operator=(const LoopDevice &) = delete;

    bool isAttached() const { return !m_path.isEmpty(); }
    const QString &path() const { return m_path; } // "/dev/loop3"
    QString kernelName() const;                    // "loop3"
    const QString &error() const { return m_error; }

private:
    QString m_path;
    QString m_error;
};

} // namespace DiskImages
