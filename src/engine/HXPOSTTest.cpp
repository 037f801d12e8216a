#include "HXPOSTTest.h"

#include "HXConstants.h"
#include "HXHardwareErrors.h"
#include "HXKernelLog.h"

QList<HXTestFinding> HXPOSTTest::run(const HXEngineContext &context)
{
    const HXKernelLogReading reading = HXKernelLog::read({}, context.cancelled);
    if (!reading.available()) {
        context.say(QStringLiteral("POST test not run: %1").arg(reading.problem));
        return {};
    }
    if (context.isCancelled())
        return {};

    HXHardwareErrors errors;
    for (const HXKernelRecord &record : reading.records)
        errors.add(record);
    if (errors.firmwareNotes() > 0)
        context.say(
            QStringLiteral("POST test: the kernel noted %1 firmware problem%2 it works around, "
                           "not counted as errors; the first: \"%3\"")
                .arg(errors.firmwareNotes())
                .arg(errors.firmwareNotes() == 1 ? QString() : QStringLiteral("s"))
                .arg(errors.firstFirmwareNote()));

    HXTestFinding finding;
    const int count = errors.errors();
    const int uncorrected = errors.uncorrected();
    if (count == 0) {
        finding.type = HXDTestResultSuccessType;
        finding.log = QStringLiteral(
            "POST test passed: the kernel logged no machine check, PCIe, platform or "
            "firmware error since the machine started.");
    } else {
        finding.type = uncorrected > 0 ? HXDTestResultErrorType : HXDTestResultWarningType;
        QString lead = QStringLiteral("POST test found %1 hardware or firmware error%2 the kernel "
                                      "logged since the machine "
                                      "started")
                           .arg(count)
                           .arg(count == 1 ? QString() : QStringLiteral("s"));
        if (count > 1)
            lead += uncorrected == 0 ? QStringLiteral(", none of them uncorrected")
                                     : QStringLiteral(", %1 of them uncorrected").arg(uncorrected);
        finding.log = QStringLiteral("%1: %2.").arg(lead, errors.details());
    }
    return {finding};
}
