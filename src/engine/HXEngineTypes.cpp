#include "HXEngineTypes.h"

#include "HXConstants.h"

HXTestResultRef HXMakeTestResult(HXTest test, const HXTestFinding &finding)
{
    const QString name = HXTestInfo(test).testName;
    QVariantMap info = finding.testInfo;
    info.insert(HXDTestResultTestNameKey, name);
    info.insert(HXDTestResultTypeKey, finding.type);
    info.insert(HXDTestResultPassedTestKey, finding.type == HXDTestResultSuccessType);
    return HXTestResult::resultWithType(finding.type, name, finding.log, info);
}

QString HXSizeText(qint64 bytes)
{
    static const char *const units[] = {"B", "kB", "MB", "GB", "TB", "PB"};
    double value = double(bytes);
    int unit = 0;
    while (value >= 1000.0 && unit < 5) {
        value /= 1000.0;
        ++unit;
    }
    if (unit == 0)
        return QStringLiteral("%1 B").arg(bytes);
    return QStringLiteral("%1 %2").arg(value, 0, 'f', 1).arg(QLatin1String(units[unit]));
}

QString HXBlockDisk::nameAndSize() const
{
    const QString name = model.isEmpty() ? kernelName : model;
    return sizeBytes > 0 ? QStringLiteral("%1 (%2)").arg(name, HXSizeText(sizeBytes)) : name;
}

QString HXBlockDisk::logName() const
{
    return model.isEmpty() ? kernelName : QStringLiteral("%1 (%2)").arg(model, kernelName);
}

QVariantMap HXBlockDisk::diskInfo() const
{
    return {{QStringLiteral("uuid"), uuid},
            {HXBSDNameKey, kernelName},
            // The status box reads "Disk: sda Volume: ..."; a whole disk is named by its model.
            {HXVolumeNameKey, nameAndSize()},
            {HXDeviceNameAndSizeKey, nameAndSize()}};
}

QString HXVolume::displayName() const
{
    if (!label.isEmpty())
        return label;
    return mountPoint.isEmpty() ? kernelName : mountPoint;
}

bool HXVolume::isExt() const
{
    return fsType == QLatin1String("ext2") || fsType == QLatin1String("ext3") ||
           fsType == QLatin1String("ext4");
}

QVariantMap HXVolume::diskInfo() const
{
    return {{QStringLiteral("uuid"), uuid.isEmpty() ? kernelName : uuid},
            {HXBSDNameKey, kernelName},
            {HXVolumeNameKey, displayName()},
            {HXDeviceNameAndSizeKey,
             sizeBytes > 0 ? QStringLiteral("%1 (%2)").arg(displayName(), HXSizeText(sizeBytes))
                           : displayName()}};
}
