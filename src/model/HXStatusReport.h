#pragma once

#include "HXKeyValueObserving.h"
#include "HXLogEntry.h"
#include "HXTestResult.h"
#include "KeyedArchiver.h"
#include "KeyedUnarchiver.h"

#include <QRecursiveMutex>

#include <memory>

class HXStatusReport;
using HXStatusReportRef = std::shared_ptr<HXStatusReport>;
using HXTestResultList = QList<HXTestResultRef>;

// The worker's findings: the test results, oldest first and never more than
// kMaxTestResults, and the log. Recording a result first removes the
// "similar" ones (same test, same disk), so a test keeps one result per disk.
//
// The report is its own lock (recursive): recordTestResult(), addTestResult()
// and removeTestResult() hold it, and so does every accessor here. A copy
// shares the two lists with its source: changes through either show in both.
class HXStatusReport final : public HXKeyValueObservable, public KeyedArchivable
{
public:
    static constexpr qsizetype kMaxTestResults = 10000;

    HXStatusReport();
    static HXStatusReportRef report();

    void recordTestResult(const HXTestResultRef &result);
    void addTestResult(const HXTestResultRef &result);
    void removeTestResult(const HXTestResultRef &result); // every entry that is this object
    void removeSimilarTestResult(const HXTestResultRef &result);
    // Writes the result's log text with the severity of its type.
    void logTestResult(const HXTestResultRef &result) const;

    HXTestResultList testResults() const;
    void setTestResults(const HXTestResultList &results);
    HXLogEntryList log() const;
    void setLog(const HXLogEntryList &log);
    // Filtered anew on every call, order kept.
    HXTestResultList warnings() const;
    HXTestResultList errors() const;
    HXTestResultList passed() const;

    // Indexed access to the results; out-of-range indexes are ignored.
    qsizetype countOfTestResults() const;
    HXTestResultRef objectInTestResultsAtIndex(qsizetype index) const;
    HXTestResultList getTestResults(qsizetype from, qsizetype length) const;
    void insertObjectInTestResultsAtIndex(const HXTestResultRef &result, qsizetype index);
    void removeObjectFromTestResultsAtIndex(qsizetype index);
    void replaceObjectInTestResultsAtIndex(qsizetype index, const HXTestResultRef &result);
    void insertTestResultsAtIndexes(const HXTestResultList &results, const QList<qsizetype> &indexes);
    void removeTestResultsAtIndexes(const QList<qsizetype> &indexes);
    void replaceTestResultsAtIndexes(const QList<qsizetype> &indexes, const HXTestResultList &results);

    // The same for the log, plus append and remove by identity.
    qsizetype countOfLog() const;
    HXLogEntryRef objectInLogAtIndex(qsizetype index) const;
    HXLogEntryList getLog(qsizetype from, qsizetype length) const;
    void insertObjectInLogAtIndex(const HXLogEntryRef &entry, qsizetype index);
    void removeObjectFromLogAtIndex(qsizetype index);
    void replaceObjectInLogAtIndex(qsizetype index, const HXLogEntryRef &entry);
    void insertLogAtIndexes(const HXLogEntryList &entries, const QList<qsizetype> &indexes);
    void removeLogAtIndexes(const QList<qsizetype> &indexes);
    void replaceLogAtIndexes(const QList<qsizetype> &indexes, const HXLogEntryList &entries);
    void addToLog(const HXLogEntryRef &entry);
    void removeFromLog(const HXLogEntryRef &entry);

    HXStatusReportRef copy() const;
    QRecursiveMutex &lock() const { return m_lock; }

    // HXKeyValueObservable
    QString className() const override { return QStringLiteral("HXStatusReport"); }
    QStringList keyPaths() const override;
    QVariant valueForKey(const QString &key) const override;

    // KeyedArchivable
    QString archiveClassName() const override { return className(); }
    void encodeWithArchiver(KeyedArchiver &archiver) const override;
    static QVariant decodeWithCoder(KeyedUnarchiver::Coder &coder);

protected:
    bool describesOneKeyPerLine() const override { return false; }

private:
    HXTestResultList filtered(const QString &type) const;
    void announceWillChangeResults();
    void announceDidChangeResults();

    mutable QRecursiveMutex m_lock;
    std::shared_ptr<HXTestResultList> m_testResults;
    std::shared_ptr<HXLogEntryList> m_log;
};
// A shared_ptr moves as plain bytes; saying so lets QVariant hold it inline.
Q_DECLARE_TYPEINFO(HXStatusReportRef, Q_RELOCATABLE_TYPE);
Q_DECLARE_METATYPE(HXStatusReportRef)
