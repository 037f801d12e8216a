#include "HXHardwareErrors.h"

#include <QRegularExpression>

namespace {

using Kind = HXHardwareErrors::Kind;

// How a message stands to the others: an error of its own; an error that a
// following line may complete; or the completing line.
enum class Role { Error, Opens, Completes };

// How the message says whether the hardware corrected the error.
enum class Severity {
    Corrected,
    Uncorrected,
    McaStatus,   // the bank's MCi_STATUS in hex: bit 61 (UC) set when uncorrected
    AmdFlags,    // the decoded status flags "[Over|UE|MiscV|...]": "UE" when uncorrected
    AerSeverity, // "Corrected"/"Correctable", or "Uncorrected"/"Uncorrectable (...)"
    CperSeverity // APEI's "corrected", "recoverable", "fatal" or "info"
};

struct Pattern
{
    Kind kind;
    Role role;
    Severity severity;
    QRegularExpression expression; // the first capture, if any, is what the severity reads
};

// The kernel's wording: arch/x86/kernel/cpu/mce (print_mce, mce_panic),
// drivers/edac/mce_amd.c, drivers/pci/pcie/aer.c, drivers/acpi/apei (cper),
// ACPICA's "ACPI Error"/"ACPI BIOS Error (bug)" and the FW_BUG prefix.
//
// Firmware errors count as corrected-class, a Warning: they are faults in the
// firmware's tables or set-up that the kernel found while it brought the
// machine up, the nearest Linux has to a power-on self-test complaining.
// The kernel works around them and nothing was lost, so never an Error; but
// a device or power management may not work as designed and a firmware
// update is the cure, so they are not ignored either. Only those logged at
// error level count: the kernel logs quirks it fully handles (a virtual
// machine's "TSC doesn't count with P0 frequency!") as warnings or below.
const QList<Pattern> &patterns()
{
    static const auto rx = [](const char *pattern) {
        return QRegularExpression(QString::fromLatin1(pattern));
    };
    static const QList<Pattern> table{
        {Kind::MachineCheck, Role::Opens, Severity::McaStatus,
         rx(R"(\bMachine Check(?: Exception)?: [0-9a-fA-F]+ Bank \d+: ([0-9a-fA-F]+))")},
        {Kind::MachineCheck, Role::Opens, Severity::AmdFlags, rx(R"(\bMC\d+_STATUS\[([^\]]*)\])")},
        {Kind::MachineCheck, Role::Completes, Severity::Corrected,
         rx(R"(\bMachine check events logged)")},
        {Kind::MachineCheck, Role::Completes, Severity::Uncorrected,
         rx(R"(\bMachine check: |\bFatal machine check)")},
        {Kind::MachineCheck, Role::Error, Severity::Uncorrected,
         rx(R"(\bUncorrected hardware memory error)")},
        {Kind::PCIe, Role::Opens, Severity::AerSeverity,
         rx(R"re(\bAER: (?:Multiple )?((?:Correct|Uncorrect)(?:ed|able)(?: \((?:Non-)?Fatal\))?) error (?:message )?received)re")},
        {Kind::PCIe, Role::Completes, Severity::AerSeverity,
         rx(R"(\bPCIe Bus Error: severity=([A-Za-z]+))")},
        {Kind::Platform, Role::Opens, Severity::Corrected,
         rx(R"(\[Hardware Error\]: Hardware error from APEI Generic Hardware Error Source)")},
        {Kind::Platform, Role::Completes, Severity::CperSeverity,
         rx(R"(\[Hardware Error\]:\s+event severity: (\w+))")},
        {Kind::Firmware, Role::Error, Severity::Corrected,
         rx(R"(\bACPI (?:BIOS )?Error\b|\bACPI Exception\b|\[Firmware Bug\])")},
    };
    return table;
}

bool isUncorrected(Severity severity, const QString &said)
{
    switch (severity) {
    case Severity::Corrected:
        return false;
    case Severity::Uncorrected:
        return true;
    case Severity::McaStatus: {
        bool ok = false;
        const quint64 status = said.toULongLong(&ok, 16);
        return ok && (status & (quint64(1) << 61));
    }
    case Severity::AmdFlags:
        return said.split(QLatin1Char('|')).contains(QLatin1String("UE"));
    case Severity::AerSeverity:
        return !said.startsWith(QLatin1String("Correct"));
    case Severity::CperSeverity:
        return said == QLatin1String("fatal") || said == QLatin1String("recoverable");
    }
    return false;
}

// A completing line further than this from the error it would complete is
// an error of its own: the kernel prints the lines of one report together.
constexpr qint64 kCompletesWithinUsec = 2000000;
// Error level and above, in syslog's numbering.
constexpr int kErrorPriority = 3;

QString plural(int count, const char *one, const char *many)
{
    return QStringLiteral("%1 %2").arg(count).arg(QLatin1String(count == 1 ? one : many));
}

} // namespace

void HXHardwareErrors::add(const HXKernelRecord &record)
{
    for (const Pattern &pattern : patterns()) {
        const QRegularExpressionMatch match = pattern.expression.match(record.text);
        if (!match.hasMatch())
            continue;
        const int kind = int(pattern.kind);
        if (pattern.kind == Kind::Firmware && record.priority > kErrorPriority) {
            if (m_firmwareNotes++ == 0)
                m_firstFirmwareNote = record.text;
            return;
        }
        const bool uncorrected = isUncorrected(pattern.severity, match.captured(1));
        Tally &tally = m_tallies[kind];
        if (pattern.role == Role::Completes && m_openKind == kind &&
            record.monotonicUsec - m_openUsec <= kCompletesWithinUsec) {
            if (uncorrected && !m_openUncorrected) {
                ++tally.uncorrected;
                m_openUncorrected = true;
            }
            return;
        }
        ++tally.errors;
        if (uncorrected)
            ++tally.uncorrected;
        if (tally.firstMessage.isEmpty())
            tally.firstMessage = record.text.trimmed();
        m_openKind = pattern.role == Role::Opens ? kind : -1;
        m_openUncorrected = uncorrected;
        m_openUsec = record.monotonicUsec;
        return;
    }
}

int HXHardwareErrors::errors() const
{
    int sum = 0;
    for (const Tally &tally : m_tallies)
        sum += tally.errors;
    return sum;
}

int HXHardwareErrors::uncorrected() const
{
    int sum = 0;
    for (const Tally &tally : m_tallies)
        sum += tally.uncorrected;
    return sum;
}

QString HXHardwareErrors::details() const
{
    static const char *const names[KindCount][2] = {
        {"machine check", "machine checks"},
        {"PCIe error", "PCIe errors"},
        {"hardware error reported by the firmware", "hardware errors reported by the firmware"},
        {"firmware error", "firmware errors"},
    };
    QStringList parts;
    for (int kind = 0; kind < KindCount; ++kind) {
        const Tally &tally = m_tallies[kind];
        if (tally.errors == 0)
            continue;
        QString part = plural(tally.errors, names[kind][0], names[kind][1]);
        if (kind != int(Kind::Firmware)) {
            if (tally.uncorrected == 0)
                part += tally.errors == 1 ? QStringLiteral(" (corrected)")
                                          : QStringLiteral(" (all corrected)");
            else if (tally.uncorrected == tally.errors)
                part += tally.errors == 1 ? QStringLiteral(" (uncorrected)")
                                          : QStringLiteral(" (all uncorrected)");
            else
                part += QStringLiteral(" (%1 uncorrected)").arg(tally.uncorrected);
        }
        part +=
            (tally.errors == 1 ? QStringLiteral(": \"%1\"") : QStringLiteral(", the first: \"%1\""))
                .arg(tally.firstMessage);
        parts.append(part);
    }
    return parts.join(QLatin1String("; "));
}
