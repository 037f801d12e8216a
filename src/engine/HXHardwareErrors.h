#pragma once

#include "HXKernelLog.h"

#include <QString>
#include <array>

// Counts the hardware errors the kernel logged: machine checks, PCIe AER,
// errors firmware reported through APEI, and firmware errors. Records are
// given in the log's order, because some messages only complete the one
// before them (the "PCIe Bus Error: severity=..." line after "AER: ... error
// received", the "event severity:" line of an APEI record): such a line adds
// no error of its own, only its severity, unless no error of its kind came
// just before it.
class HXHardwareErrors
{
public:
    enum class Kind { MachineCheck, PCIe, Platform, Firmware };
    static constexpr int KindCount = 4;

    struct Tally
    {
        int errors = 0;
        int uncorrected = 0;
        QString firstMessage;
    };

    void add(const HXKernelRecord &record);

    const Tally &tally(Kind kind) const { return m_tallies[int(kind)]; }
    int errors() const;
    int uncorrected() const;
    // Firmware complaints the kernel logged below error level: it worked
    // around them, so they are not counted (see the .cpp).
    int firmwareNotes() const { return m_firmwareNotes; }
    const QString &firstFirmwareNote() const { return m_firstFirmwareNote; }

    // "2 machine checks (1 uncorrected), the first: "..."; 1 PCIe error
    // (corrected): "..."": one part per kind that had errors.
    QString details() const;

private:
    std::array<Tally, KindCount> m_tallies;
    // The error the next completing line belongs to, when it may.
    int m_openKind = -1;
    bool m_openUncorrected = false;
    qint64 m_openUsec = 0;
    int m_firmwareNotes = 0;
    QString m_firstFirmwareNote;
};
