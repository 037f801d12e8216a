#include "HXEdacCounters.h"

#include <QDir>
#include <QFile>
#include <algorithm>

namespace {

QString readText(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromUtf8(file.read(4096)).trimmed();
}

// Folders named prefix + number, in the number's order (mc2 before mc10).
QStringList numbered(const QDir &dir, const QString &prefix)
{
    QStringList names;
    for (const QString &name :
         dir.entryList({prefix + QLatin1Char('*')}, QDir::Dirs | QDir::NoDotAndDotDot)) {
        bool ok = false;
        name.mid(prefix.size()).toInt(&ok);
        if (ok)
            names.append(name);
    }
    std::sort(names.begin(), names.end(), [&](const QString &a, const QString &b) {
        return a.mid(prefix.size()).toInt() < b.mid(prefix.size()).toInt();
    });
    return names;
}

class Reader
{
public:
    explicit Reader(HXEdacCounters &counters)
        : m_counters(counters)
    {
    }

    // A counter file's number; 0 when the driver does not give that file.
    qint64 count(const QString &path)
    {
        if (!QFile::exists(path))
            return 0;
        bool ok = false;
        const qint64 n = readText(path).toLongLong(&ok);
        if (!ok || n < 0) {
            m_counters.unreadable.append(path);
            return 0;
        }
        return n;
    }

    void place(const QString &name, qint64 corrected, qint64 uncorrected)
    {
        if (corrected > 0 || uncorrected > 0)
            m_counters.places.append({name, corrected, uncorrected});
    }

private:
    HXEdacCounters &m_counters;
};

QString placeName(const QString &label, const QString &mc, const QString &where)
{
    // Drivers without a board's label database name modules "mc#0csrow#0channel#0"
    // or leave the label empty: the location says it better then.
    if (label.isEmpty() || label.contains(QLatin1Char('#')))
        return QStringLiteral("%1 %2").arg(mc, where);
    return QStringLiteral("%1 (%2 %3)").arg(label, mc, where);
}

} // namespace

HXEdacCounters HXEdacCounters::read(const QString &mcFolder)
{
    HXEdacCounters counters;
    Reader reader(counters);
    const QDir root(mcFolder);
    for (const QString &mc : numbered(root, QStringLiteral("mc"))) {
        const QDir dir(root.filePath(mc));
        ++counters.controllers;
        counters.corrected += reader.count(dir.filePath(QStringLiteral("ce_count")));
        counters.uncorrected += reader.count(dir.filePath(QStringLiteral("ue_count")));
        counters.correctedUnplaced += reader.count(dir.filePath(QStringLiteral("ce_noinfo_count")));
        counters.uncorrectedUnplaced +=
            reader.count(dir.filePath(QStringLiteral("ue_noinfo_count")));

        // Drivers of the current interface have a folder per module (or per
        // rank); older ones only the chip-select rows and their channels.
        QStringList modules = numbered(dir, QStringLiteral("dimm"));
        modules += numbered(dir, QStringLiteral("rank"));
        for (const QString &module : modules) {
            const QDir m(dir.filePath(module));
            QString where = readText(m.filePath(QStringLiteral("dimm_location")));
            reader.place(placeName(readText(m.filePath(QStringLiteral("dimm_label"))), mc,
                                   where.isEmpty() ? module : where),
                         reader.count(m.filePath(QStringLiteral("dimm_ce_count"))),
                         reader.count(m.filePath(QStringLiteral("dimm_ue_count"))));
        }
        if (!modules.isEmpty())
            continue;
        for (const QString &row : numbered(dir, QStringLiteral("csrow"))) {
            const QDir r(dir.filePath(row));
            const qint64 rowCorrected = reader.count(r.filePath(QStringLiteral("ce_count")));
            const qint64 rowUncorrected = reader.count(r.filePath(QStringLiteral("ue_count")));
            if (rowCorrected == 0 && rowUncorrected == 0)
                continue;
            QStringList labels;
            qint64 placed = 0;
            for (int ch = 0; QFile::exists(r.filePath(QStringLiteral("ch%1_ce_count").arg(ch)));
                 ++ch) {
                const QString label =
                    readText(r.filePath(QStringLiteral("ch%1_dimm_label").arg(ch)));
                const qint64 n = reader.count(r.filePath(QStringLiteral("ch%1_ce_count").arg(ch)));
                if (!label.isEmpty() && !label.contains(QLatin1Char('#')))
                    labels.append(label);
                reader.place(placeName(label, mc, QStringLiteral("%1 channel %2").arg(row).arg(ch)),
                             n, 0);
                placed += n;
            }
            // The row's own counts beyond what its channels account for.
            reader.place(placeName(labels.join(QLatin1String(", ")), mc, row),
                         std::max<qint64>(rowCorrected - placed, 0), rowUncorrected);
        }
    }
    return counters;
}
