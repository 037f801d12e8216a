#include "ReportJson.h"

#include "BinaryPlistReader.h"
#include "PlistUid.h"

#include <QDateTime>
#include <QJsonArray>

namespace ReportJson {

QString isoTimestamp(const QDateTime &date)
{
    const QDateTime utc = date.toUTC();
    return utc.toString(utc.time().msec() ? Qt::ISODateWithMs : Qt::ISODate);
}

QJsonValue fromPlistValue(const QVariant &value)
{
    if (!value.isValid() || isPlistNull(value))
        return QJsonValue::Null;
    switch (value.metaType().id()) {
    case QMetaType::Bool:
        return value.toBool();
    case QMetaType::Int:
    case QMetaType::LongLong:
        return QJsonValue(value.toLongLong());
    case QMetaType::UInt:
    case QMetaType::ULongLong:
        return value.toULongLong() > quint64(std::numeric_limits<qint64>::max())
                   ? QJsonValue(double(value.toULongLong()))
                   : QJsonValue(value.toLongLong());
    case QMetaType::Double:
        return value.toDouble();
    case QMetaType::QString:
        return value.toString();
    case QMetaType::QDateTime:
        return isoTimestamp(value.toDateTime());
    case QMetaType::QByteArray:
        return QString::fromLatin1(value.toByteArray().toBase64());
    case QMetaType::QVariantList: {
        QJsonArray a;
        for (const QVariant &e : value.toList())
            a.append(fromPlistValue(e));
        return a;
    }
    case QMetaType::QVariantMap: {
        QJsonObject o;
        const QVariantMap m = value.toMap();
        for (auto it = m.cbegin(); it != m.cend(); ++it)
            o.insert(it.key(), fromPlistValue(it.value()));
        return o;
    }
    default:
        if (value.metaType() == QMetaType::fromType<PlistUid>())
            return QJsonValue(qint64(value.value<PlistUid>().value));
        return QJsonValue::Null;
    }
}

namespace {

QJsonObject logEntry(const HXLogEntry &e)
{
    QJsonArray children;
    if (const auto list = e.children()) {
        for (const HXLogEntryRef &c : *list)
            children.append(logEntry(*c));
    }
    return {{QStringLiteral("timestamp"),
             e.timestamp().isValid() ? QJsonValue(isoTimestamp(e.timestamp())) : QJsonValue::Null},
            {QStringLiteral("type"), e.type()},
            {QStringLiteral("string"), e.string()},
            {QStringLiteral("isFile"), e.isFile()},
            {QStringLiteral("children"), children}};
}

} // namespace

QJsonObject report(const HXStatusReport &report)
{
    QJsonArray results;
    for (const HXTestResultRef &r : report.testResults()) {
        const QVariant info = r->testInfo();
        results.append(QJsonObject{{QStringLiteral("type"), r->type()},
                                   {QStringLiteral("name"), r->name()},
                                   {QStringLiteral("log"), r->log()},
                                   {QStringLiteral("testInfo"), fromPlistValue(info)}});
    }
    QJsonArray log;
    for (const HXLogEntryRef &e : report.log())
        log.append(logEntry(*e));
    return {{QStringLiteral("testResults"), results}, {QStringLiteral("log"), log}};
}

QJsonObject status(const HXStatusBoard &board)
{
    QJsonObject tests;
    for (const HXTestDescriptor &d : HXTestTable()) {
        const qint64 index = board.resultIndex(d.test);
        tests.insert(d.testName, QJsonObject{{QStringLiteral("status"), board.testStatus(d.test)},
                                             {QStringLiteral("index"),
                                              index == HXResultIndexNotFound ? QJsonValue::Null
                                                                             : QJsonValue(index)}});
    }
    QJsonObject groups;
    for (int g = 0; g < HXTestGroupCount; ++g)
        groups.insert(HXTestGroupKey(HXTestGroup(g)), board.groupStatus(HXTestGroup(g)));
    return {{QStringLiteral("tests"), tests}, {QStringLiteral("groups"), groups}};
}

} // namespace ReportJson
