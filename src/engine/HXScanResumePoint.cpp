#include "HXScanResumePoint.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

namespace {

const QString idKey = QStringLiteral("disk");
const QString sizeKey = QStringLiteral("sizeBytes");
const QString blockKey = QStringLiteral("blockSize");
const QString offsetKey = QStringLiteral("offset");
const QString badKey = QStringLiteral("badBlocks");

} // namespace

QString HXScanResumePoint::filePath(const QString &folder, const QString &diskId)
{
    // Identities hold characters no file name should ("/", spaces): a digest
    // of it names the file and the identity itself is kept inside.
    const QByteArray digest =
        QCryptographicHash::hash(diskId.toUtf8(), QCryptographicHash::Sha1).toHex().left(16);
    return QDir(folder).filePath(QStringLiteral("surface-scan-%1.json").arg(QLatin1String(digest)));
}

std::optional<HXScanResumePoint> HXScanResumePoint::load(const QString &folder,
                                                         const QString &diskId, QString *why)
{
    QFile file(filePath(folder, diskId));
    if (!file.exists())
        return std::nullopt;
    const auto bad = [&](const QString &reason) -> std::optional<HXScanResumePoint> {
        if (why)
            *why = QStringLiteral("the resume point in %1 %2").arg(file.fileName(), reason);
        return std::nullopt;
    };
    if (!file.open(QIODevice::ReadOnly))
        return bad(QStringLiteral("could not be read: %1").arg(file.errorString()));
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(file.read(4 << 20), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return bad(QStringLiteral("is malformed"));
    const QJsonObject o = document.object();
    if (o.value(idKey).toString() != diskId)
        return bad(QStringLiteral("is not this disk's"));
    HXScanResumePoint point;
    point.sizeBytes = o.value(sizeKey).toInteger(-1);
    point.blockSize = o.value(blockKey).toInt(0);
    point.offset = o.value(offsetKey).toInteger(-1);
    if (point.sizeBytes <= 0 || point.blockSize <= 0 || point.offset < 0 ||
        point.offset > point.sizeBytes)
        return bad(QStringLiteral("is malformed"));
    for (const QJsonValue &v : o.value(badKey).toArray()) {
        const QJsonArray pair = v.toArray();
        const qint64 first = pair.at(0).toInteger(-1);
        const qint64 count = pair.at(1).toInteger(-1);
        if (pair.size() != 2 || first < 0 || count <= 0)
            return bad(QStringLiteral("is malformed"));
        point.badBlocks.add(first, count);
    }
    return point;
}

bool HXScanResumePoint::save(const QString &folder, const QString &diskId, QString *why) const
{
    // A dying disk can have more bad ranges than are worth carrying over:
    // the first ones are kept, so that the point always reads back whole and
    // the scan never starts over for want of room.
    constexpr qsizetype kMaxSavedRanges = 10000;
    QJsonArray bad;
    for (const HXBadBlockRange &r : badBlocks.ranges()) {
        if (bad.size() >= kMaxSavedRanges)
            break;
        bad.append(QJsonArray{r.first, r.count});
    }
    const QJsonObject o{{idKey, diskId},
                        {sizeKey, sizeBytes},
                        {blockKey, blockSize},
                        {offsetKey, offset},
                        {badKey, bad}};
    QDir().mkpath(folder);
    QSaveFile file(filePath(folder, diskId));
    if (!file.open(QIODevice::WriteOnly) ||
        file.write(QJsonDocument(o).toJson(QJsonDocument::Compact)) < 0 || !file.commit()) {
        if (why)
            *why = QStringLiteral("the resume point could not be written to %1: %2")
                       .arg(file.fileName(), file.errorString());
        return false;
    }
    return true;
}

void HXScanResumePoint::remove(const QString &folder, const QString &diskId)
{
    QFile::remove(filePath(folder, diskId));
}
