// Any bytes through the binary property-list reader: it must answer a value
// or a sentence, never crash, over-read, hang or blow up in memory.
#include "BinaryPlistReader.h"
#include "BinaryPlistWriter.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes =
        QByteArray::fromRawData(reinterpret_cast<const char *>(data), qsizetype(size));
    QString error;
    const QVariant v = BinaryPlistReader::read(bytes, &error);
    if (v.isValid() == !error.isEmpty())
        std::abort(); // a value and an error, or neither
    if (v.isValid()) {
        // Whatever was read writes and reads back.
        QString again;
        const QByteArray written = BinaryPlistWriter::write(v, &again);
        if (written.isEmpty() || !BinaryPlistReader::read(written, &again).isValid())
            std::abort();
    }
    return 0;
}
