#pragma once

#include "HXKeyValueObserving.h"
#include "KeyedArchiver.h"
#include "KeyedUnarchiver.h"

#include <QMutex>
#include <QString>
#include <QVariant>

#include <memory>

class HXTestResult;
using HXTestResultRef = std::shared_ptr<HXTestResult>;

// One finished test run as the worker recorded it. Shared by reference: the
// report removes results by identity, so two results with equal contents are
// still two results. Every property is read and written under the object's
// own lock.
class HXTestResult final : public HXKeyValueObservable, public KeyedArchivable
{
public:
    HXTestResult() = default;
    HXTestResult(const QString &type, const QString &name, const QString &log,
                 const QVariant &testInfo);

    static HXTestResultRef testResult();
    // testInfo: a QVariantMap, the null object, or an invalid QVariant (absent).
    static HXTestResultRef resultWithType(const QString &type, const QString &name,
                                          const QString &log, const QVariant &testInfo);

    // A deep copy made through the archive, so the copy is never ignored.
    HXTestResultRef copy() const;

    QString type() const;
    void setType(const QString &type);
    QString name() const;
    void setName(const QString &name);
    QString log() const;
    void setLog(const QString &log);
    // As stored: a map, the null object, or invalid when absent.
    QVariant testInfo() const;
    void setTestInfo(const QVariant &testInfo);
    // The details as a map; empty when absent or the null object.
    QVariantMap testInfoMap() const;
    bool isIgnored() const;
    void setIgnored(bool ignored);

    // HXKeyValueObservable
    QString className() const override { return QStringLiteral("HXTestResult"); }
    QStringList keyPaths() const override;
    QVariant valueForKey(const QString &key) const override;

    // KeyedArchivable; isIgnored is deliberately not archived.
    QString archiveClassName() const override { return className(); }
    void encodeWithArchiver(KeyedArchiver &archiver) const override;
    static QVariant decodeWithCoder(KeyedUnarchiver::Coder &coder);

protected:
    bool describesOneKeyPerLine() const override { return true; }
    bool describesKey(const QString &key) const override;

private:
    mutable QMutex m_mutex;
    QString m_type;
    QString m_name;
    QString m_log;
    QVariant m_testInfo;
    bool m_isIgnored = false;
};
// A shared_ptr moves as plain bytes; saying so lets QVariant hold it inline.
Q_DECLARE_TYPEINFO(HXTestResultRef, Q_RELOCATABLE_TYPE);
Q_DECLARE_METATYPE(HXTestResultRef)
