#include "HXKernelLog.h"

#include "AtomicFileWriter.h"
#include "HXProgramRunner.h"
#include "HXSystemRoot.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace {

const QString kJournalctl = QStringLiteral("journalctl");
constexpr int kJournalTimeoutMs = 60000;
// A read of /dev/kmsg returns one whole record and fails with EINVAL when the
// buffer is smaller than the record; records stay well below this.
constexpr qsizetype kKmsgReadBytes = 16384;
// A plain file standing for /dev/kmsg is read no further than this.
constexpr qsizetype kKmsgMaxBytes = qsizetype(64) << 20;

QString jsonText(const QJsonValue &value)
{
    if (value.isString())
        return value.toString();
    // journald gives a field that is not valid UTF-8 as an array of bytes.
    if (value.isArray()) {
        QByteArray bytes;
        for (const QJsonValue &byte : value.toArray())
            bytes.append(char(byte.toInt()));
        return QString::fromUtf8(bytes);
    }
    return {};
}

qint64 jsonNumber(const QJsonValue &value, qint64 fallback)
{
    bool ok = false;
    const qint64 number = value.toString().toLongLong(&ok);
    return ok ? number : fallback;
}

// kmsg writes every byte below a space, above '~' and the backslash itself as "\xNN".
QString kmsgText(const QByteArray &escaped)
{
    QByteArray bytes;
    bytes.reserve(escaped.size());
    for (qsizetype i = 0; i < escaped.size(); ++i) {
        if (escaped[i] == '\\' && i + 3 < escaped.size() && escaped[i + 1] == 'x') {
            bool ok = false;
            const int byte = escaped.mid(i + 2, 2).toInt(&ok, 16);
            if (ok) {
                bytes.append(char(byte));
                i += 3;
                continue;
            }
        }
        bytes.append(escaped[i]);
    }
    return QString::fromUtf8(bytes);
}

QList<HXKernelRecord> recordsAfter(const QList<HXKernelRecord> &records,
                                   const HXKernelLogPosition &since, bool bySequence)
{
    if (bySequence ? since.kmsgSequence < 0 : since.monotonicUsec < 0)
        return records;
    QList<HXKernelRecord> after;
    for (const HXKernelRecord &record : records) {
        if (bySequence ? record.sequence > since.kmsgSequence
                       : record.monotonicUsec > since.monotonicUsec)
            after.append(record);
    }
    return after;
}

// `since` is of this boot, or invalid.
bool readJournal(const HXKernelLogPosition &since, const std::atomic_bool *cancelled,
                 HXKernelLogReading *reading, QString *problem)
{
    QStringList arguments{QStringLiteral("-k"), QStringLiteral("-b"), QStringLiteral("-o"),
                          QStringLiteral("json"), QStringLiteral("--no-pager")};
    bool byCursor = !since.journalCursor.isEmpty();
    HXProgramRun run;
    if (byCursor) {
        run = HXProgramRunner::run(
            kJournalctl,
            arguments + QStringList{QStringLiteral("--after-cursor=") + since.journalCursor},
            kJournalTimeoutMs, cancelled);
        // A cursor the journal no longer knows (rotated away, or the journal
        // was cleared): the whole boot is read and the time decides instead.
        byCursor = run.finished() && run.exitCode == 0;
    }
    if (!byCursor)
        run = HXProgramRunner::run(kJournalctl, arguments, kJournalTimeoutMs, cancelled);
    if (!run.finished()) {
        *problem = run.problem(kJournalctl);
        return false;
    }
    if (run.exitCode != 0) {
        const QString said = QString::fromUtf8(run.err).trimmed().section(QLatin1Char('\n'), 0, 0);
        *problem = said.isEmpty()
                       ? QStringLiteral("journalctl failed with exit status %1").arg(run.exitCode)
                       : QStringLiteral("journalctl failed: %1").arg(said);
        return false;
    }
    if (run.err.contains("No journal files were found")) {
        *problem = QStringLiteral("the journal has no files");
        return false;
    }
    QList<HXKernelRecord> records = HXKernelLog::parseJournalJson(run.out, &reading->malformed);
    // A running machine always has kernel messages of its boot: none means
    // this journal does not collect them (journald not running, or kernel
    // messages not forwarded), not that the kernel said nothing.
    if (!byCursor && records.isEmpty()) {
        *problem = QStringLiteral("the journal holds no kernel messages of this boot");
        return false;
    }
    if (!byCursor && since.isValid())
        records = recordsAfter(records, since, false);
    reading->source = HXKernelLogReading::Source::Journal;
    reading->records = records;
    return true;
}

bool readKmsgFile(const QString &path, const std::atomic_bool *cancelled, QByteArray *data,
                  QString *problem)
{
    // Non-blocking, since the real /dev/kmsg never ends: a read past the last
    // record fails with EAGAIN instead of waiting for the next one.
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        *problem = QStringLiteral("%1 cannot be read: %2").arg(path, qt_error_string(errno));
        return false;
    }
    QByteArray buffer(kKmsgReadBytes, Qt::Uninitialized);
    bool ok = true;
    while (data->size() < kKmsgMaxBytes) {
        if (cancelled && cancelled->load(std::memory_order_relaxed)) {
            *problem = QStringLiteral("the reading of %1 was stopped with the pass").arg(path);
            ok = false;
            break;
        }
        const ssize_t n = ::read(fd, buffer.data(), size_t(buffer.size()));
        if (n > 0) {
            data->append(buffer.constData(), n);
            continue;
        }
        if (n == 0 || errno == EAGAIN)
            break;
        // EPIPE: records were overwritten before this reader reached them; the
        // next read goes on with the oldest record still kept.
        if (errno == EINTR || errno == EPIPE)
            continue;
        *problem = QStringLiteral("%1 cannot be read: %2").arg(path, qt_error_string(errno));
        ok = false;
        break;
    }
    ::close(fd);
    return ok;
}

bool readKmsg(const HXKernelLogPosition &since, const std::atomic_bool *cancelled,
              HXKernelLogReading *reading, QString *problem)
{
    QByteArray data;
    if (!readKmsgFile(HXSystemRoot::kmsg(), cancelled, &data, problem))
        return false;
    const QList<HXKernelRecord> records = HXKernelLog::parseKmsg(data, &reading->malformed);
    reading->source = HXKernelLogReading::Source::Kmsg;
    // Sequence numbers when the previous reading was of kmsg too, else the time.
    reading->records =
        since.isValid() ? recordsAfter(records, since, since.kmsgSequence >= 0) : records;
    return true;
}

} // namespace

HXKernelLogPosition HXKernelLogPosition::load(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QJsonObject object = QJsonDocument::fromJson(file.read(65536)).object();
    HXKernelLogPosition position;
    position.bootId = object.value(QLatin1String("bootId")).toString();
    position.journalCursor = object.value(QLatin1String("journalCursor")).toString();
    position.kmsgSequence = qint64(object.value(QLatin1String("kmsgSequence")).toDouble(-1));
    position.monotonicUsec = qint64(object.value(QLatin1String("monotonicUsec")).toDouble(-1));
    return position;
}

bool HXKernelLogPosition::save(const QString &path, QString *why) const
{
    const QJsonObject object{{QLatin1String("bootId"), bootId},
                             {QLatin1String("journalCursor"), journalCursor},
                             {QLatin1String("kmsgSequence"), double(kmsgSequence)},
                             {QLatin1String("monotonicUsec"), double(monotonicUsec)}};
    QDir().mkpath(QFileInfo(path).absolutePath());
    const AtomicFileWriter::Result result = AtomicFileWriter::write(
        path, QJsonDocument(object).toJson(QJsonDocument::Compact), 0644, {});
    if (!result.written && why)
        *why = result.writeError;
    return result.written;
}

QString HXKernelLogReading::sourceName() const
{
    switch (source) {
    case Source::Journal:
        return QStringLiteral("the journal");
    case Source::Kmsg:
        return QStringLiteral("/dev/kmsg");
    case Source::None:
        break;
    }
    return QStringLiteral("no kernel log");
}

QString HXKernelLog::currentBootId()
{
    QFile file(HXSystemRoot::map(QStringLiteral("/proc/sys/kernel/random/boot_id")));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromLatin1(file.read(128)).trimmed();
}

HXKernelLogReading HXKernelLog::read(const HXKernelLogPosition &since,
                                     const std::atomic_bool *cancelled)
{
    const QString bootId = currentBootId();
    const bool sameBoot =
        !bootId.isEmpty() && since.bootId == bootId &&
        (!since.journalCursor.isEmpty() || since.kmsgSequence >= 0 || since.monotonicUsec >= 0);
    const HXKernelLogPosition start = sameBoot ? since : HXKernelLogPosition{};

    HXKernelLogReading reading;
    QString journalProblem;
    QString kmsgProblem;
    const bool fromJournal = readJournal(start, cancelled, &reading, &journalProblem);
    if (!fromJournal && cancelled && cancelled->load(std::memory_order_relaxed)) {
        reading.problem =
            QStringLiteral("The reading of the kernel log was stopped with the pass.");
        return reading;
    }
    if (!fromJournal && !readKmsg(start, cancelled, &reading, &kmsgProblem)) {
        reading.problem =
            QStringLiteral("No kernel log can be read: %1; %2.").arg(journalProblem, kmsgProblem);
        return reading;
    }
    reading.fromBootStart = !sameBoot;
    if (reading.records.isEmpty()) {
        reading.end = start;
    } else {
        const HXKernelRecord &last = reading.records.constLast();
        const bool journal = reading.source == HXKernelLogReading::Source::Journal;
        reading.end.journalCursor = journal ? last.cursor : QString();
        reading.end.kmsgSequence = journal ? -1 : last.sequence;
        reading.end.monotonicUsec = last.monotonicUsec;
    }
    reading.end.bootId = bootId;
    return reading;
}

QList<HXKernelRecord> HXKernelLog::parseJournalJson(const QByteArray &output, int *malformed)
{
    QList<HXKernelRecord> records;
    int bad = 0;
    for (const QByteArray &line : output.split('\n')) {
        if (line.trimmed().isEmpty())
            continue;
        const QJsonObject object = QJsonDocument::fromJson(line).object();
        const QString text = jsonText(object.value(QLatin1String("MESSAGE")));
        if (object.isEmpty() || text.isNull()) {
            ++bad;
            continue;
        }
        HXKernelRecord record;
        record.text = text;
        record.cursor = object.value(QLatin1String("__CURSOR")).toString();
        // The kernel's own time stamp when journald kept it, else the time it
        // received the message.
        record.monotonicUsec =
            jsonNumber(object.value(QLatin1String("_SOURCE_MONOTONIC_TIMESTAMP")),
                       jsonNumber(object.value(QLatin1String("__MONOTONIC_TIMESTAMP")), 0));
        record.priority = int(jsonNumber(object.value(QLatin1String("PRIORITY")), 6));
        records.append(record);
    }
    if (malformed)
        *malformed += bad;
    return records;
}

QList<HXKernelRecord> HXKernelLog::parseKmsg(const QByteArray &data, int *malformed)
{
    QList<HXKernelRecord> records;
    int bad = 0;
    for (const QByteArray &line : data.split('\n')) {
        // Continuation lines carry the record's dictionary (SUBSYSTEM=, DEVICE=).
        if (line.isEmpty() || line.startsWith(' '))
            continue;
        const qsizetype semicolon = line.indexOf(';');
        const QList<QByteArray> fields = line.left(semicolon).split(',');
        bool priorityOk = false;
        bool sequenceOk = false;
        bool timeOk = false;
        // Later kernels may add fields after the flags, so three is the least.
        const int priority = fields.size() >= 3 ? fields[0].toInt(&priorityOk) : -1;
        const qint64 sequence = fields.size() >= 3 ? fields[1].toLongLong(&sequenceOk) : -1;
        const qint64 usec = fields.size() >= 3 ? fields[2].toLongLong(&timeOk) : -1;
        if (semicolon < 0 || !priorityOk || !sequenceOk || !timeOk || priority < 0 ||
            sequence < 0 || usec < 0) {
            ++bad;
            continue;
        }
        // The facility: 0 is the kernel's; the kernel gives text written into
        // /dev/kmsg by programs the user facility at least.
        if (priority >> 3 != 0)
            continue;
        HXKernelRecord record;
        record.sequence = sequence;
        record.cursor = QString::number(sequence);
        record.monotonicUsec = usec;
        record.priority = priority & 7;
        record.text = kmsgText(line.mid(semicolon + 1));
        records.append(record);
    }
    if (malformed)
        *malformed += bad;
    return records;
}
