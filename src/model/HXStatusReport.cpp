#include "HXStatusReport.h"

#include "BinaryPlistReader.h"
#include "HXConstants.h"
#include "HXDebugLog.h"
#include "HXReportArchive.h"
#include "HXReportLog.h"

#include <QFuture>
#include <QRegularExpression>
#include <QtConcurrent/QtConcurrentRun>

#include <algorithm>

namespace {
const QString kWarnings = QStringLiteral("warnings");
const QString kErrors = QStringLiteral("errors");
const QString kPassed = QStringLiteral("passed");
const QString kTestResults = QStringLiteral("testResults");
const QString kLog = QStringLiteral("log");

// "MATCHES": the whole string matches the pattern, read as a regular
// expression. A pattern that does not compile matches nothing.
class WholeMatch
{
public:
    explicit WholeMatch(const QString &pattern)
        : m_literal(QRegularExpression::escape(pattern) == pattern)
        , m_pattern(pattern)
    {
        if (!m_literal)
            m_re.setPattern(QRegularExpression::anchoredPattern(pattern));
    }
    bool operator()(const QString &s) const
    {
        // Test names and disk identifiers hold no pattern characters, so
        // nearly every match is a plain comparison.
        if (m_literal)
            return s == m_pattern;
        return m_re.isValid() && m_re.match(s).hasMatch();
    }

private:
    bool m_literal;
    QString m_pattern;
    QRegularExpression m_re;
};

// The value at "disk.uuid" in a result's details, if there is one.
QVariant diskUuid(const QVariantMap &info)
{
    const QVariant disk = info.value(HXDiskKey);
    if (disk.metaType().id() != QMetaType::QVariantMap)
        return {};
    const QVariant uuid = disk.toMap().value(QStringLiteral("uuid"));
    return isPlistNull(uuid) ? QVariant() : uuid;
}

template<class T>
void insertAtIndexes(QList<T> &list, const QList<T> &items, const QList<qsizetype> &indexes)
{
    QList<qsizetype> sorted = indexes;
    std::sort(sorted.begin(), sorted.end());
    for (qsizetype i = 0; i < sorted.size() && i < items.size(); ++i) {
        if (sorted[i] >= 0 && sorted[i] <= list.size())
            list.insert(sorted[i], items[i]);
    }
}

template<class T>
void removeAtIndexes(QList<T> &list, const QList<qsizetype> &indexes)
{
    QList<qsizetype> sorted = indexes;
    std::sort(sorted.begin(), sorted.end(), std::greater<>());
    sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
    for (qsizetype i : sorted) {
        if (i >= 0 && i < list.size())
            list.removeAt(i);
    }
}

template<class T>
void replaceAtIndexes(QList<T> &list, const QList<qsizetype> &indexes, const QList<T> &items)
{
    for (qsizetype i = 0; i < indexes.size() && i < items.size(); ++i) {
        if (indexes[i] >= 0 && indexes[i] < list.size() && items[i])
            list[indexes[i]] = items[i];
    }
}

} // namespace

HXStatusReport::HXStatusReport()
    : m_testResults(std::make_shared<HXTestResultList>())
    , m_log(std::make_shared<HXLogEntryList>())
{
}

HXStatusReportRef HXStatusReport::report()
{
    return std::make_shared<HXStatusReport>();
}

void HXStatusReport::announceWillChangeResults()
{
    willChangeValueForKey(kWarnings);
    willChangeValueForKey(kErrors);
    willChangeValueForKey(kPassed);
    willChangeValueForKey(kTestResults);
}

void HXStatusReport::announceDidChangeResults()
{
    didChangeValueForKey(kTestResults);
    didChangeValueForKey(kWarnings);
    didChangeValueForKey(kErrors);
    didChangeValueForKey(kPassed);
}

void HXStatusReport::recordTestResult(const HXTestResultRef &result)
{
    QMutexLocker lock(&m_lock);
    removeSimilarTestResult(result);
    addTestResult(result);
}

void HXStatusReport::addTestResult(const HXTestResultRef &result)
{
    if (!result)
        return;
    QMutexLocker lock(&m_lock);
    announceWillChangeResults();
    m_testResults->append(result);
    // One entry leaves per addition, so an over-long list shrinks by one.
    if (m_testResults->size() > kMaxTestResults)
        m_testResults->removeFirst();
    announceDidChangeResults();
}

void HXStatusReport::removeTestResult(const HXTestResultRef &result)
{
    QMutexLocker lock(&m_lock);
    announceWillChangeResults();
    m_testResults->removeAll(result);
    announceDidChangeResults();
}

void HXStatusReport::removeSimilarTestResult(const HXTestResultRef &newResult)
{
    if (!newResult)
        return;
    QMutexLocker lock(&m_lock);
    const QVariantMap info = newResult->testInfoMap();
    const QString name = newResult->name();

    // A passing surface scan that stopped early replaces nothing: the earlier
    // result, possibly a failure, stays beside it.
    if (name == HXDSurfaceScanTestName &&
        !info.value(HXDTestResultIsCompletedKey).toBool() &&
        newResult->type() == HXDTestResultSuccessType)
        return;
    if (m_testResults->isEmpty())
        return;

    const WholeMatch sameName(name);
    HXTestResultList similar;
    for (const HXTestResultRef &r : std::as_const(*m_testResults)) {
        if (sameName(r->name()))
            similar.append(r);
    }
    if (similar.isEmpty())
        return;

    // Without a disk every result of the name is similar, whatever its disk.
    const QVariant uuid = diskUuid(info);
    if (uuid.isValid()) {
        const WholeMatch sameDisk(uuid.toString());
        HXTestResultList narrowed;
        for (const HXTestResultRef &r : std::as_const(similar)) {
            const QVariant theirs = diskUuid(r->testInfoMap());
            if (theirs.metaType().id() == QMetaType::QString && sameDisk(theirs.toString()))
                narrowed.append(r);
        }
        similar = narrowed;
    }

    for (const HXTestResultRef &old : std::as_const(similar)) {
        if (HXDebugLogIsEnabled()) {
            HXDebugLog(QStringLiteral("Removing similar result: %1").arg(old->description()));
            HXDebugLog(QStringLiteral("Replacing with result: %1").arg(newResult->description()));
        }
        // The user's decision to ignore carries over to the newer result.
        newResult->setIgnored(old->isIgnored());
        removeTestResult(old);
    }
}

void HXStatusReport::logTestResult(const HXTestResultRef &result) const
{
    if (!result)
        return;
    const QString type = result->type();
    const QString text = result->log();
    if (type == HXDTestResultErrorType)
        HXReportLogError(text);
    else if (type == HXDTestResultWarningType)
        HXReportLogWarning(text);
    else if (type == HXDTestResultSuccessType)
        HXReportLogSuccess(text);
    else if (type == HXDTestResultInformationType)
        HXReportLogInfo(text);
    else if (type == HXDTestResultDebugType)
        HXReportLogDebug(text);
}

HXTestResultList HXStatusReport::testResults() const
{
    QMutexLocker lock(&m_lock);
    return *m_testResults;
}

void HXStatusReport::setTestResults(const HXTestResultList &results)
{
    QMutexLocker lock(&m_lock);
    announceWillChangeResults();
    m_testResults = std::make_shared<HXTestResultList>(results);
    announceDidChangeResults();
}

HXLogEntryList HXStatusReport::log() const
{
    QMutexLocker lock(&m_lock);
    return *m_log;
}

void HXStatusReport::setLog(const HXLogEntryList &log)
{
    QMutexLocker lock(&m_lock);
    willChangeValueForKey(kLog);
    m_log = std::make_shared<HXLogEntryList>(log);
    didChangeValueForKey(kLog);
}

// "type MATCHES <word>" with a fixed word that holds no pattern character is
// exactly string equality.
HXTestResultList HXStatusReport::filtered(const QString &type) const
{
    QMutexLocker lock(&m_lock);
    HXTestResultList out;
    for (const HXTestResultRef &r : std::as_const(*m_testResults)) {
        if (r->type() == type)
            out.append(r);
    }
    return out;
}

HXTestResultList HXStatusReport::warnings() const
{
    return filtered(HXDTestResultWarningType);
}

HXTestResultList HXStatusReport::errors() const
{
    return filtered(HXDTestResultErrorType);
}

HXTestResultList HXStatusReport::passed() const
{
    return filtered(HXDTestResultSuccessType);
}

qsizetype HXStatusReport::countOfTestResults() const
{
    QMutexLocker lock(&m_lock);
    return m_testResults->size();
}

HXTestResultRef HXStatusReport::objectInTestResultsAtIndex(qsizetype index) const
{
    QMutexLocker lock(&m_lock);
    return index >= 0 && index < m_testResults->size() ? m_testResults->at(index) : nullptr;
}

HXTestResultList HXStatusReport::getTestResults(qsizetype from, qsizetype length) const
{
    QMutexLocker lock(&m_lock);
    if (from < 0 || length < 0 || from > m_testResults->size())
        return {};
    return m_testResults->mid(from, length);
}

void HXStatusReport::insertObjectInTestResultsAtIndex(const HXTestResultRef &result,
                                                      qsizetype index)
{
    QMutexLocker lock(&m_lock);
    if (result && index >= 0 && index <= m_testResults->size())
        m_testResults->insert(index, result);
}

void HXStatusReport::removeObjectFromTestResultsAtIndex(qsizetype index)
{
    QMutexLocker lock(&m_lock);
    if (index >= 0 && index < m_testResults->size())
        m_testResults->removeAt(index);
}

void HXStatusReport::replaceObjectInTestResultsAtIndex(qsizetype index,
                                                       const HXTestResultRef &result)
{
    QMutexLocker lock(&m_lock);
    if (result && index >= 0 && index < m_testResults->size())
        (*m_testResults)[index] = result;
}

void HXStatusReport::insertTestResultsAtIndexes(const HXTestResultList &results,
                                                const QList<qsizetype> &indexes)
{
    QMutexLocker lock(&m_lock);
    insertAtIndexes(*m_testResults, results, indexes);
}

void HXStatusReport::removeTestResultsAtIndexes(const QList<qsizetype> &indexes)
{
    QMutexLocker lock(&m_lock);
    removeAtIndexes(*m_testResults, indexes);
}

void HXStatusReport::replaceTestResultsAtIndexes(const QList<qsizetype> &indexes,
                                                 const HXTestResultList &results)
{
    QMutexLocker lock(&m_lock);
    replaceAtIndexes(*m_testResults, indexes, results);
}

qsizetype HXStatusReport::countOfLog() const
{
    QMutexLocker lock(&m_lock);
    return m_log->size();
}

HXLogEntryRef HXStatusReport::objectInLogAtIndex(qsizetype index) const
{
    QMutexLocker lock(&m_lock);
    return index >= 0 && index < m_log->size() ? m_log->at(index) : nullptr;
}

HXLogEntryList HXStatusReport::getLog(qsizetype from, qsizetype length) const
{
    QMutexLocker lock(&m_lock);
    if (from < 0 || length < 0 || from > m_log->size())
        return {};
    return m_log->mid(from, length);
}

void HXStatusReport::insertObjectInLogAtIndex(const HXLogEntryRef &entry, qsizetype index)
{
    QMutexLocker lock(&m_lock);
    if (entry && index >= 0 && index <= m_log->size())
        m_log->insert(index, entry);
}

void HXStatusReport::removeObjectFromLogAtIndex(qsizetype index)
{
    QMutexLocker lock(&m_lock);
    if (index >= 0 && index < m_log->size())
        m_log->removeAt(index);
}

void HXStatusReport::replaceObjectInLogAtIndex(qsizetype index, const HXLogEntryRef &entry)
{
    QMutexLocker lock(&m_lock);
    if (entry && index >= 0 && index < m_log->size())
        (*m_log)[index] = entry;
}

void HXStatusReport::insertLogAtIndexes(const HXLogEntryList &entries,
                                        const QList<qsizetype> &indexes)
{
    QMutexLocker lock(&m_lock);
    insertAtIndexes(*m_log, entries, indexes);
}

void HXStatusReport::removeLogAtIndexes(const QList<qsizetype> &indexes)
{
    QMutexLocker lock(&m_lock);
    removeAtIndexes(*m_log, indexes);
}

void HXStatusReport::replaceLogAtIndexes(const QList<qsizetype> &indexes,
                                         const HXLogEntryList &entries)
{
    QMutexLocker lock(&m_lock);
    replaceAtIndexes(*m_log, indexes, entries);
}

void HXStatusReport::addToLog(const HXLogEntryRef &entry)
{
    QMutexLocker lock(&m_lock);
    if (entry)
        m_log->append(entry);
}

void HXStatusReport::removeFromLog(const HXLogEntryRef &entry)
{
    QMutexLocker lock(&m_lock);
    m_log->removeAll(entry);
}

HXStatusReportRef HXStatusReport::copy() const
{
    QMutexLocker lock(&m_lock);
    auto c = std::make_shared<HXStatusReport>();
    c->m_testResults = m_testResults;
    c->m_log = m_log;
    return c;
}

QStringList HXStatusReport::keyPaths() const
{
    return {kWarnings, kErrors, kPassed, kTestResults, kLog};
}

QVariant HXStatusReport::valueForKey(const QString &key) const
{
    if (key == kWarnings)
        return QVariant::fromValue(HXAsObjectList(warnings()));
    if (key == kErrors)
        return QVariant::fromValue(HXAsObjectList(errors()));
    if (key == kPassed)
        return QVariant::fromValue(HXAsObjectList(passed()));
    if (key == kTestResults)
        return QVariant::fromValue(HXAsObjectList(testResults()));
    if (key == kLog)
        return QVariant::fromValue(HXAsObjectList(log()));
    return {};
}

void HXStatusReport::encodeWithArchiver(KeyedArchiver &archiver) const
{
    QMutexLocker lock(&m_lock);
    archiver.encodeObjectList(kTestResults, *m_testResults);
    archiver.encodeObjectList(kLog, *m_log);
}

QVariant HXStatusReport::decodeWithCoder(KeyedUnarchiver::Coder &coder)
{
    auto report = std::make_shared<HXStatusReport>();
    KeyedUnarchiver &u = coder.unarchiver();

    // The results and the log are separate parts of the archive (no object of
    // one is an object of the other), so a large report's log is decoded by a
    // second unarchiver over the same bytes on another core, while this
    // thread decodes the results. Each part keeps its own checks.
    constexpr qsizetype kParallelFrom = 256 * 1024;
    quint64 logUid = 0;
    const bool hasLog = coder.referencedUid(QLatin1StringView("log"), &logUid);
    if (u.failed())
        return {};
    QFuture<std::pair<std::optional<HXLogEntryList>, QString>> logJob;
    const bool parallel = hasLog && logUid != 0 && u.bytes().size() >= kParallelFrom;
    if (parallel) {
        logJob = QtConcurrent::run([bytes = u.bytes(), logUid, depth = coder.depth() + 1] {
            KeyedUnarchiver other(KeyedUnarchiver::Mode::Secure);
            HXReportArchive::registerModelClasses(other);
            std::optional<HXLogEntryList> log;
            if (other.open(bytes))
                log = HXReportArchive::logEntriesAt(other, logUid, depth);
            return std::make_pair(std::move(log), other.error());
        });
    }

    // A missing list is an empty one, never an absent one.
    auto results = HXReportArchive::testResultsUnder(coder, QLatin1StringView("testResults"));
    std::optional<HXLogEntryList> log;
    if (parallel) {
        auto [decoded, error] = logJob.result(); // waited for even when the results failed
        if (!decoded && !u.failed())
            u.fail(error);
        log = std::move(decoded);
    } else if (results) {
        log = HXReportArchive::logEntriesUnder(coder, QLatin1StringView("log"));
    }
    if (!results || !log)
        return {};
    *report->m_testResults = std::move(*results);
    *report->m_log = std::move(*log);
    return QVariant::fromValue(report);
}
