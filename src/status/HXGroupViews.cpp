#include "HXGroupViews.h"

#include "HXMachineProbes.h"
#include "HXStatusBoard.h"

#include <QCoreApplication>

HXHardwareView::HXHardwareView(QWidget *parent)
    : HXAnimView(tr("Hardware"), QStringLiteral("hardwareGroup"), parent)
{
    addTest(tr("Memory"));
    m_batteryField = addTest(tr("Battery"));
    explainWhenNotApplicable(m_batteryField, [] { return batteryExists(); }, tr("No Battery"),
                             tr("Your computer is not equiped with an internal battery."));
}

void HXHardwareView::setStatusForMemory(qint32 memory, qint32 battery)
{
    setTestCode(0, memory);
    setTestCode(1, batteryExists() ? battery : HXGroupStatusNotApplicable);
    showCombined();
}

HXSystemView::HXSystemView(QWidget *parent)
    : HXAnimView(tr("System"), QStringLiteral("systemGroup"), parent)
{
    addTest(tr("Disk I/O Errors"));
    addTest(tr("Power On Self-Test"));
}

void HXSystemView::setStatusForIO(qint32 io, qint32 post)
{
    setTestCode(0, io);
    setTestCode(1, post);
    showCombined();
}

HXDrivesView::HXDrivesView(QWidget *parent)
    : HXAnimView(tr("Drives"), QStringLiteral("drivesGroup"), parent)
{
    addTest(tr("Volume Structures"));
    // The partition map has no log action of its own.
    m_partitionMapField = addTest(tr("Partition Map"), false);
    m_raidField = addTest(tr("RAID"));
    addTest(tr("Surface Scan"));
    m_smartField = addTest(tr("SMART"));
    explainWhenNotApplicable(m_partitionMapField, [] { return partitionMapIsTestable(); },
                             tr("Cannot test partition map"),
                             tr("The partition map test is available on Mac OS X 10.7 and later."));
    explainWhenNotApplicable(m_raidField, [] { return HXMachineProbes::current().raidExists(); }, tr("No RAID Array"),
                             tr("Your computer is not equiped with a RAID Array."));
    explainWhenNotApplicable(m_smartField, [] { return HXMachineProbes::current().smartExists(); },
                             tr("SMART Not Supported"),
                             tr("Your computer does not have any SMART enabled drives connected."));
}

bool HXDrivesView::partitionMapIsTestable()
{
    return HXMachineProbes::current().partitionMapIsTestable();
}

void HXDrivesView::setStatusForVolumeStructures(qint32 volumeStructures, qint32 partitionMap, qint32 raid,
                                                qint32 surfaceScan, qint32 smart)
{
    const HXMachineProbes &machine = HXMachineProbes::current();
    setTestCode(0, volumeStructures);
    setTestCode(1, partitionMapIsTestable() ? partitionMap : HXGroupStatusNotApplicable);
    setTestCode(2, machine.raidExists() ? raid : HXGroupStatusNotApplicable);
    setTestCode(3, surfaceScan);
    setTestCode(4, machine.smartExists() ? smart : HXGroupStatusNotApplicable);
    showCombined();
}

HXFilesView::HXFilesView(QWidget *parent)
    : HXAnimView(tr("Files"), QStringLiteral("filesGroup"), parent)
{
    addTest(tr("File Structures"));
}

void HXFilesView::setStatusForFileStructures(qint32 fileStructures)
{
    setTestCode(0, fileStructures);
    showCombined();
}
