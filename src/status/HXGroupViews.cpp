#include "HXGroupViews.h"

#include "HXMachineProbes.h"

#include <QCoreApplication>

namespace {

// A sentence looked up by its old key, whose English says it for this system.
QString keyedText(const char *context, const char *key, const char *english)
{
    const QString translated = QCoreApplication::translate(context, key);
    return translated == QLatin1String(key) ? QString::fromUtf8(english) : translated;
}

} // namespace

HXHardwareView::HXHardwareView(QWidget *parent)
    : HXAnimView(HXTestGroup::Hardware, tr("Hardware"), QStringLiteral("hardwareGroup"), parent)
{
    explainWhenNotApplicable(
        batteryField(), [] { return batteryExists(); }, tr("No Battery"),
        tr("Your computer is not equiped with an internal battery."));
}

bool HXHardwareView::testApplies(HXTest test) const
{
    return test != HXTest::Battery || batteryExists();
}

void HXHardwareView::setStatusForMemory(qint32 memory, qint32 battery)
{
    setStatusForTests({{HXTest::Memory, memory}, {HXTest::Battery, battery}});
}

HXSystemView::HXSystemView(QWidget *parent)
    : HXAnimView(HXTestGroup::System, tr("System"), QStringLiteral("systemGroup"), parent)
{
}

void HXSystemView::setStatusForIO(qint32 io, qint32 post)
{
    setStatusForTests({{HXTest::IO, io}, {HXTest::POST, post}});
}

HXDrivesView::HXDrivesView(QWidget *parent)
    : HXAnimView(HXTestGroup::Drives, tr("Drives"), QStringLiteral("drivesGroup"), parent)
{
    explainWhenNotApplicable(
        partitionMapField(), [] { return partitionMapIsTestable(); },
        tr("Cannot test partition map"),
        keyedText("HXDrivesView", "The partition map test is available on Mac OS X 10.7 and later.",
                  "The partition map test is available on this system."));
    explainWhenNotApplicable(
        raidField(), [] { return HXMachineProbes::current().raidExists(); }, tr("No RAID Array"),
        tr("Your computer is not equiped with a RAID Array."));
    explainWhenNotApplicable(
        smartField(), [] { return HXMachineProbes::current().smartExists(); },
        tr("SMART Not Supported"),
        tr("Your computer does not have any SMART enabled drives connected."));
}

bool HXDrivesView::partitionMapIsTestable()
{
    return HXMachineProbes::current().partitionMapIsTestable();
}

bool HXDrivesView::testApplies(HXTest test) const
{
    const HXMachineProbes &machine = HXMachineProbes::current();
    switch (test) {
    case HXTest::PartitionMap:
        return partitionMapIsTestable();
    case HXTest::RAID:
        return machine.raidExists();
    case HXTest::SMART:
        return machine.smartExists();
    default:
        return true;
    }
}

void HXDrivesView::setStatusForVolumeStructures(qint32 volumeStructures, qint32 partitionMap, qint32 raid,
                                                qint32 surfaceScan, qint32 smart)
{
    setStatusForTests({{HXTest::VolumeStructures, volumeStructures},
                       {HXTest::PartitionMap, partitionMap},
                       {HXTest::RAID, raid},
                       {HXTest::SurfaceScan, surfaceScan},
                       {HXTest::SMART, smart}});
}

HXFilesView::HXFilesView(QWidget *parent)
    : HXAnimView(HXTestGroup::Files, tr("Files"), QStringLiteral("filesGroup"), parent)
{
}

void HXFilesView::setStatusForFileStructures(qint32 fileStructures)
{
    setStatusForTests({{HXTest::FileStructures, fileStructures}});
}
