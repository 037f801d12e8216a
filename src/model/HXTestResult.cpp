#include "HXTestResult.h"

#include "BinaryPlistReader.h"
#include "HXReportArchive.h"

namespace {
const QString kType = QStringLiteral("type");
const QString kName = QStringLiteral("name");
const QString kLog = QStringLiteral("log");
const QString kTestInfo = QStringLiteral("testInfo");
const QString kIsIgnored = QStringLiteral("isIgnored");
} // namespace

HXTestResult::HXTestResult(const QString &type, const QString &name, const QString &log,
                           const QVariant &testInfo)
    : m_type(type)
    , m_name(name)
    , m_log(log)
    , m_testInfo(testInfo)
{
}

HXTestResultRef HXTestResult::testResult()
{
    return std::make_shared<HXTestResult>();
}

HXTestResultRef HXTestResult::resultWithType(const QString &type, const QString &name,
                                             const QString &log, const QVariant &testInfo)
{
    return std::make_shared<HXTestResult>(type, name, log, testInfo);
}

HXTestResultRef HXTestResult::copy() const
{
    KeyedArchiver archiver;
    return HXReportArchive::decodeTestResult(archiver.archiveRootObject(*this));
}

QString HXTestResult::type() const
{
    return guardedGet(m_mutex, m_type);
}

void HXTestResult::setType(const QString &type)
{
    guardedSet(m_mutex, m_type, type, kType);
}

QString HXTestResult::name() const
{
    return guardedGet(m_mutex, m_name);
}

void HXTestResult::setName(const QString &name)
{
    guardedSet(m_mutex, m_name, name, kName);
}

QString HXTestResult::log() const
{
    return guardedGet(m_mutex, m_log);
}

void HXTestResult::setLog(const QString &log)
{
    guardedSet(m_mutex, m_log, log, kLog);
}

QVariant HXTestResult::testInfo() const
{
    return guardedGet(m_mutex, m_testInfo);
}

void HXTestResult::setTestInfo(const QVariant &testInfo)
{
    guardedSet(m_mutex, m_testInfo, testInfo, kTestInfo);
}

QVariantMap HXTestResult::testInfoMap() const
{
    QMutexLocker lock(&m_mutex);
    return m_testInfo.metaType().id() == QMetaType::QVariantMap ? m_testInfo.toMap()
                                                                : QVariantMap();
}

bool HXTestResult::isIgnored() const
{
    return guardedGet(m_mutex, m_isIgnored);
}

void HXTestResult::setIgnored(bool ignored)
{
    guardedSet(m_mutex, m_isIgnored, ignored, kIsIgnored);
}

QStringList HXTestResult::keyPaths() const
{
    return {kType, kName, kLog, kTestInfo, kIsIgnored};
}

QVariant HXTestResult::valueForKey(const QString &key) const
{
    QMutexLocker lock(&m_mutex);
    if (key == kType)
        return m_type;
    if (key == kName)
        return m_name;
    if (key == kLog)
        return m_log;
    if (key == kTestInfo)
        return m_testInfo;
    if (key == kIsIgnored)
        return m_isIgnored;
    return {};
}

bool HXTestResult::describesKey(const QString &key) const
{
    return key != kTestInfo;
}

void HXTestResult::encodeWithArchiver(KeyedArchiver &archiver) const
{
    QMutexLocker lock(&m_mutex);
    archiver.encodeValue(kType, m_type);
    archiver.encodeValue(kName, m_name);
    archiver.encodeValue(kLog, m_log);
    archiver.encodeValue(kTestInfo, m_testInfo);
}

QVariant HXTestResult::decodeWithCoder(KeyedUnarchiver::Coder &coder)
{
    auto result = std::make_shared<HXTestResult>();
    if (!coder.decodeString(QLatin1StringView("type"), &result->m_type) ||
        !coder.decodeString(QLatin1StringView("name"), &result->m_name) ||
        !coder.decodeString(QLatin1StringView("log"), &result->m_log))
        return {};
    // Absent, the null object, or a dictionary of property-list values.
    const QVariant info = coder.decodeObject(QLatin1StringView("testInfo"));
    if (coder.unarchiver().failed())
        return {};
    if (info.isValid() && !isPlistNull(info) && info.metaType().id() != QMetaType::QVariantMap) {
        coder.unarchiver().fail(QStringLiteral("a test result holds something other than a "
                                               "dictionary as its details"));
        return {};
    }
    // Details are property-list values only; the decoder may hand back a
    // model object found inside them, which has no place there.
    if (info.metaType().id() == QMetaType::QVariantMap && !isPropertyListValue(info)) {
        coder.unarchiver().fail(QStringLiteral("a test result's details hold something other "
                                               "than property-list values"));
        return {};
    }
    result->m_testInfo = info;
    return QVariant::fromValue(result);
}
