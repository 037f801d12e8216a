// Any bytes through the report decoder (secure: the model classes and
// property-list values only), and through the permissive inspector.
#include "HXReportArchive.h"
#include "KeyedUnarchiver.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes =
        QByteArray::fromRawData(reinterpret_cast<const char *>(data), qsizetype(size));
    QString error;
    const HXStatusReportRef report = HXReportArchive::decodeReport(bytes, &error);
    if (!report == error.isEmpty())
        std::abort();
    if (report) {
        // A decoded report archives again and decodes to the same size.
        const HXStatusReportRef back =
            HXReportArchive::decodeReport(HXReportArchive::encodeReport(*report), &error);
        if (!back || back->countOfTestResults() != report->countOfTestResults() ||
            back->countOfLog() != report->countOfLog())
            std::abort();
        (void)report->warnings();
        (void)report->description();
    }
    KeyedUnarchiver inspector(KeyedUnarchiver::Mode::Permissive);
    if (inspector.open(bytes))
        (void)inspector.decodeTop();
    return 0;
}
