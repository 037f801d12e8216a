#include "HXMemoryTest.h"

#include "HXConstants.h"
#include "HXEdacCounters.h"
#include "HXSystemRoot.h"

namespace {

QString hex(quint64 value)
{
    return QStringLiteral("0x%1").arg(value, 16, 16, QLatin1Char('0'));
}

QString errorsText(qint64 n, const char *kind)
{
    return QStringLiteral("%1 %2 memory error%3")
        .arg(n)
        .arg(QLatin1String(kind), n == 1 ? QString() : QStringLiteral("s"));
}

QString patternNames()
{
    QStringList names;
    for (HXMemoryPattern p : HXMemoryPatterns::all)
        names.append(HXMemoryPatterns::name(p));
    return names.mid(0, names.size() - 1).join(QLatin1String(", ")) + QLatin1String(" and ") +
           names.last();
}

QString faultText(const HXMemoryPatternCheck::Fault &fault, qint64 tested)
{
    const QString physical = fault.physicalAddress
                                 ? QStringLiteral("physical %1, ").arg(hex(*fault.physicalAddress))
                                 : QString();
    return QStringLiteral("Memory test found a fault at address %1 (%2byte %3 of the %4 "
                          "tested): the %5 pattern wrote %6 and read back %7")
        .arg(hex(fault.address), physical)
        .arg(fault.offset)
        .arg(HXSizeText(tested), HXMemoryPatterns::name(fault.pattern), hex(fault.expected),
             hex(fault.found));
}

} // namespace

QList<HXTestFinding> HXMemoryTest::run(const HXEngineContext &context)
{
    const HXEdacCounters edac =
        HXEdacCounters::read(HXSystemRoot::map(QStringLiteral("/sys/devices/system/edac/mc")));
    for (const QString &path : edac.unreadable)
        context.say(QStringLiteral("Memory test could not read the EDAC counter %1").arg(path));
    if (edac.controllers == 0)
        context.say(QStringLiteral("Memory test: no EDAC driver reports this machine's memory "
                                   "controllers, so only the pattern test looks at the memory"));

    HXMemoryPatternCheck::Outcome pattern;
    if (context.memoryTestBytes > 0) {
        pattern = m_check.run(context.memoryTestBytes, context);
        if (!pattern.failure.isEmpty())
            context.say(QStringLiteral("Memory test could not run the pattern test: %1")
                            .arg(pattern.failure));
    }
    const bool patternTested = pattern.completed;
    const bool edacProblem = edac.corrected > 0 || edac.uncorrected > 0;
    if (context.memoryTestBytes > 0 && pattern.failure.isEmpty() && !pattern.completed) {
        context.say(QStringLiteral("Memory test was interrupted before the pattern test ended"));
        if (!edacProblem)
            return {};
    }
    if (!patternTested && edac.controllers == 0)
        return {}; // nothing here looked at the memory

    HXTestFinding finding;
    QStringList lines;
    if (pattern.fault)
        lines.append(faultText(*pattern.fault, pattern.bytesTested));
    if (edac.uncorrected > 0)
        lines.append(QStringLiteral("Memory test found %1 counted by the memory controllers (EDAC)")
                         .arg(errorsText(edac.uncorrected, "uncorrected")));
    if (edac.corrected > 0)
        lines.append(QStringLiteral("Memory test found %1 counted by the memory controllers (EDAC)")
                         .arg(errorsText(edac.corrected, "corrected")));
    for (const HXEdacCounters::Place &place : edac.places) {
        QStringList counts;
        if (place.uncorrected > 0)
            counts.append(QStringLiteral("%1 uncorrected").arg(place.uncorrected));
        if (place.corrected > 0)
            counts.append(QStringLiteral("%1 corrected").arg(place.corrected));
        lines.append(QStringLiteral("%1: %2").arg(place.name, counts.join(QLatin1String(", "))));
    }
    if (edac.uncorrectedUnplaced > 0 || edac.correctedUnplaced > 0)
        lines.append(QStringLiteral(
                         "Not placed on a module by the controllers: %1 uncorrected, %2 corrected")
                         .arg(edac.uncorrectedUnplaced)
                         .arg(edac.correctedUnplaced));

    const QString tested = QStringLiteral("%1 of free memory%2")
                               .arg(HXSizeText(pattern.bytesTested),
                                    pattern.locked ? QStringLiteral(" (locked)") : QString());
    if (pattern.fault || edac.uncorrected > 0)
        finding.type = HXDTestResultErrorType;
    else if (edac.corrected > 0)
        finding.type = HXDTestResultWarningType;
    else
        finding.type = HXDTestResultSuccessType;

    if (lines.isEmpty()) {
        QString counters = edac.controllers == 0
                               ? QStringLiteral("no EDAC driver reports error counts here")
                           : edac.unreadable.isEmpty()
                               ? QStringLiteral("the memory controllers count no errors")
                               : QStringLiteral("the memory controllers' counters that could be "
                                                "read count no errors (%1 could not be read)")
                                     .arg(edac.unreadable.size());
        lines.append(patternTested
                         ? QStringLiteral("Memory test passed: %1 held %2 without a fault; %3")
                               .arg(tested, patternNames(), counters)
                         : QStringLiteral("Memory test passed: %1").arg(counters));
    } else if (patternTested && !pattern.fault) {
        lines.append(QStringLiteral("The pattern test found no fault in %1").arg(tested));
    }
    // One line: further lines of a log entry are shown as files.
    finding.log = lines.join(QLatin1String("; "));
    return {finding};
}
