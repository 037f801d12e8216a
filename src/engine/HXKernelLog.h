#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <atomic>

// One message the kernel logged in this boot.
struct HXKernelRecord
{
    QString cursor;           // the journal's cursor, or kmsg's sequence number as text
    qint64 sequence = -1;     // kmsg's sequence number; -1 when read from the journal
    qint64 monotonicUsec = 0; // microseconds since the machine started
    int priority = 6;         // syslog level: 0 (emergency) to 7 (debug)
    QString text;
};

// Where a reading of the kernel log ended, kept between passes so that the
// next reading starts after it. It belongs to one boot: a position of another
// boot is ignored, since both the journal's cursors and kmsg's sequence
// numbers start again when the machine does.
struct HXKernelLogPosition
{
    QString bootId;            // /proc/sys/kernel/random/boot_id of the boot read
    QString journalCursor;     // the last record's cursor, when it came from the journal
    qint64 kmsgSequence = -1;  // the last record's sequence number, when it came from kmsg
    qint64 monotonicUsec = -1; // the last record's time: used when the source changed

    bool isValid() const { return !bootId.isEmpty(); }
    // An invalid position (read everything) when the file is missing or not ours.
    static HXKernelLogPosition load(const QString &path);
    bool save(const QString &path, QString *why) const;
};

struct HXKernelLogReading
{
    enum class Source { None, Journal, Kmsg };
    Source source = Source::None;
    QList<HXKernelRecord> records; // oldest first
    QString problem;               // with Source::None: why no kernel log could be read
    bool fromBootStart = true;     // false when the records start after a previous position
    HXKernelLogPosition end;       // where the next reading should start
    int malformed = 0;             // records that could not be read and were left out

    bool available() const { return source != Source::None; }
    QString sourceName() const; // "the journal", "/dev/kmsg"
};

// The kernel's messages of the running boot: from the journal
// (`journalctl -k -b -o json`, found through PATH) where it holds them, else
// from /dev/kmsg (HXSystemRoot::kmsg(), a plain file of records under a
// fixture root). Blocks the calling thread while journalctl runs.
class HXKernelLog
{
public:
    // The running boot's identity; empty when it cannot be read.
    static QString currentBootId();

    // The records after `since` when it belongs to this boot, else all of
    // this boot's. Never fails: an unreadable log is a reading with no source
    // and the sentence why.
    static HXKernelLogReading read(const HXKernelLogPosition &since = {},
                                   const std::atomic_bool *cancelled = nullptr);

    // journalctl's "-o json" output: one object a line. Lines that are not
    // an object with a message are counted in `malformed`.
    static QList<HXKernelRecord> parseJournalJson(const QByteArray &output,
                                                  int *malformed = nullptr);
    // /dev/kmsg's records: "priority,sequence,microseconds,flags;message",
    // then continuation lines that start with a space (the record's
    // dictionary). Only the kernel's own records are kept: text that programs
    // wrote into /dev/kmsg has another facility.
    static QList<HXKernelRecord> parseKmsg(const QByteArray &data, int *malformed = nullptr);
};
