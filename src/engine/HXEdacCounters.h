#pragma once

#include <QList>
#include <QString>
#include <QStringList>

// The memory error counts the kernel's EDAC drivers keep for each memory
// controller (mc*/ce_count, ue_count), and where the driver tells, per memory
// module (dimm* or rank*, else the older csrow*/ch*).
class HXEdacCounters
{
public:
    struct Place
    {
        QString name; // "DIMM_A1 (mc0, memory controller 0 slot 1)", "mc0 csrow2 channel 0"
        qint64 corrected = 0;
        qint64 uncorrected = 0;
    };

    int controllers = 0; // memory controllers found
    qint64 corrected = 0;
    qint64 uncorrected = 0;
    // Errors the controllers could not place on a module.
    qint64 correctedUnplaced = 0;
    qint64 uncorrectedUnplaced = 0;
    QList<Place> places;    // only those with errors
    QStringList unreadable; // counter files that did not hold a number

    // Reads the counters under `mcFolder` (/sys/devices/system/edac/mc as
    // HXSystemRoot maps it); controllers = 0 when there is no EDAC driver.
    static HXEdacCounters read(const QString &mcFolder);
};
