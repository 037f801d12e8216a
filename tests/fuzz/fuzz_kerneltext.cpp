// Any bytes through the readers of what the kernel and smartctl write: the
// kernel log (as /dev/kmsg and as journalctl's JSON) and each record through
// the I/O-error, hardware-error and file-system-error readers, /proc/mdstat,
// and smartctl's JSON. Damaged text gives fewer records or "not tested",
// never a crash, an over-read or a hang.
#include "HXBlockIOErrors.h"
#include "HXFileSystemErrors.h"
#include "HXHardwareErrors.h"
#include "HXKernelLog.h"
#include "HXMdstat.h"
#include "HXSMARTClassifier.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes =
        QByteArray::fromRawData(reinterpret_cast<const char *>(data), qsizetype(size));
    QList<HXKernelRecord> records = HXKernelLog::parseKmsg(bytes);
    records += HXKernelLog::parseJournalJson(bytes);
    HXHardwareErrors hardware;
    for (const HXKernelRecord &record : std::as_const(records)) {
        HXBlockIOErrors::parse(record.text);
        HXFileSystemErrors::parseLogLine(record.text);
        hardware.add(record);
    }
    hardware.details();
    const QString text = QString::fromUtf8(bytes);
    HXMdstat::parse(text);
    HXSMARTClassifier::classify(bytes, size > 0 ? data[0] : 0);
    return 0;
}
