#pragma once

#include "HXAnimView.h"

// The four groups. Each takes its tests' codes from the status rebuild, puts
// "not applicable" in for tests this machine cannot run, colours the bullets
// and shows the combined status.

class HXHardwareView : public HXAnimView
{
    Q_OBJECT

public:
    explicit HXHardwareView(QWidget *parent = nullptr);
    void setStatusForMemory(qint32 memory, qint32 battery);
    qint32 memoryStatus() const { return testCode(0); }
    qint32 batteryStatus() const { return testCode(1); }
    QLabel *batteryField() const { return m_batteryField; }

private:
    QLabel *m_batteryField;
};

class HXSystemView : public HXAnimView
{
    Q_OBJECT

public:
    explicit HXSystemView(QWidget *parent = nullptr);
    void setStatusForIO(qint32 io, qint32 post);
    qint32 ioStatus() const { return testCode(0); }
    qint32 postStatus() const { return testCode(1); }
};

class HXDrivesView : public HXAnimView
{
    Q_OBJECT

public:
    explicit HXDrivesView(QWidget *parent = nullptr);
    static bool partitionMapIsTestable();
    void setStatusForVolumeStructures(qint32 volumeStructures, qint32 partitionMap, qint32 raid, qint32 surfaceScan,
                                      qint32 smart);
    qint32 volumeStructuresStatus() const { return testCode(0); }
    qint32 partitionMapStatus() const { return testCode(1); }
    qint32 raidStatus() const { return testCode(2); }
    qint32 surfaceScanStatus() const { return testCode(3); }
    qint32 smartStatus() const { return testCode(4); }
    QLabel *partitionMapField() const { return m_partitionMapField; }
    QLabel *raidField() const { return m_raidField; }
    QLabel *smartField() const { return m_smartField; }

private:
    QLabel *m_partitionMapField;
    QLabel *m_raidField;
    QLabel *m_smartField;
};

class HXFilesView : public HXAnimView
{
    Q_OBJECT

public:
    explicit HXFilesView(QWidget *parent = nullptr);
    void setStatusForFileStructures(qint32 fileStructures);
    qint32 fileStructuresStatus() const { return testCode(0); }
};
