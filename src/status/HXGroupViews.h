#pragma once

#include "HXAnimView.h"

// The four groups. Each lists the tests of its group, takes their codes from
// the status rebuild, puts "not applicable" in for tests this machine cannot
// run, colours the bullets and shows the combined status. The setters with
// the tests' names take the codes in the order their names give.

class HXHardwareView : public HXAnimView
{
    Q_OBJECT

public:
    explicit HXHardwareView(QWidget *parent = nullptr);
    void setStatusForMemory(qint32 memory, qint32 battery);
    qint32 memoryStatus() const { return statusOf(HXTest::Memory); }
    qint32 batteryStatus() const { return statusOf(HXTest::Battery); }
    QLabel *batteryField() const { return nameField(HXTest::Battery); }

protected:
    bool testApplies(HXTest test) const override;
};

class HXSystemView : public HXAnimView
{
    Q_OBJECT

public:
    explicit HXSystemView(QWidget *parent = nullptr);
    void setStatusForIO(qint32 io, qint32 post);
    qint32 ioStatus() const { return statusOf(HXTest::IO); }
    qint32 postStatus() const { return statusOf(HXTest::POST); }
};

class HXDrivesView : public HXAnimView
{
    Q_OBJECT

public:
    explicit HXDrivesView(QWidget *parent = nullptr);
    static bool partitionMapIsTestable();
    void setStatusForVolumeStructures(qint32 volumeStructures, qint32 partitionMap, qint32 raid, qint32 surfaceScan,
                                      qint32 smart);
    qint32 volumeStructuresStatus() const { return statusOf(HXTest::VolumeStructures); }
    qint32 partitionMapStatus() const { return statusOf(HXTest::PartitionMap); }
    qint32 raidStatus() const { return statusOf(HXTest::RAID); }
    qint32 surfaceScanStatus() const { return statusOf(HXTest::SurfaceScan); }
    qint32 smartStatus() const { return statusOf(HXTest::SMART); }
    QLabel *partitionMapField() const { return nameField(HXTest::PartitionMap); }
    QLabel *raidField() const { return nameField(HXTest::RAID); }
    QLabel *smartField() const { return nameField(HXTest::SMART); }

protected:
    bool testApplies(HXTest test) const override;
};

class HXFilesView : public HXAnimView
{
    Q_OBJECT

public:
    explicit HXFilesView(QWidget *parent = nullptr);
    void setStatusForFileStructures(qint32 fileStructures);
    qint32 fileStructuresStatus() const { return statusOf(HXTest::FileStructures); }
};
