#pragma once

#include "HXKeyValueObserving.h"
#include "KeyedArchiver.h"
#include "KeyedUnarchiver.h"

#include <QDateTime>
#include <QList>
#include <QMutex>
#include <QString>

#include <memory>
#include <optional>

class HXLogEntry;
using HXLogEntryRef = std::shared_ptr<HXLogEntry>;
using HXLogEntryList = QList<HXLogEntryRef>;

// One log message of a report with its severity and time; the further lines
// of a multi-line message (paths of damaged files) are its children, marked
// as files. `count` and `leaf` follow the children list through every
// operation that changes its length.
class HXLogEntry final : public HXKeyValueObservable, public KeyedArchivable
{
public:
    HXLogEntry() = default;

    // Children: std::nullopt keeps the list absent (a leaf with no list).
    static HXLogEntryRef entryWithTimestamp(const QDateTime &timestamp, const QString &type,
                                            const QString &string,
                                            const std::optional<HXLogEntryList> &children);
    // The first line becomes the entry, every further line a file child; all
    // stamped now.
    static HXLogEntryRef entryWithTypeCompoundString(const QString &type, const QString &text);

    // A deep copy through the archive.
    HXLogEntryRef copy() const;

    QDateTime timestamp() const;
    void setTimestamp(const QDateTime &timestamp);
    QString type() const;
    void setType(const QString &type);
    QString string() const;
    void setString(const QString &string);
    // Absent (nullopt) or a list, as stored.
    std::optional<HXLogEntryList> children() const;
    void setChildren(const std::optional<HXLogEntryList> &children);
    qint64 count() const;
    void setCount(qint64 count);
    bool leaf() const;
    void setLeaf(bool leaf);
    bool isFile() const;
    void setIsFile(bool isFile);

    // Changing the number of children refreshes count and leaf.
    void addToChildren(const HXLogEntryRef &entry);
    void removeFromChildren(const HXLogEntryRef &entry); // by identity
    void insertObjectInChildrenAtIndex(const HXLogEntryRef &entry, qsizetype index);
    void insertChildrenAtIndexes(const HXLogEntryList &entries, const QList<qsizetype> &indexes);
    void removeEntryFromChildrenAtIndex(qsizetype index);
    void removeChildrenAtIndexes(const QList<qsizetype> &indexes);
    // These keep the number of children, so count and leaf stay.
    void replaceEntryInChildrenAtIndex(qsizetype index, const HXLogEntryRef &entry);
    void replaceChildrenAtIndexes(const QList<qsizetype> &indexes, const HXLogEntryList &entries);
    qsizetype countOfChildren() const;
    HXLogEntryRef entryInChildrenAtIndex(qsizetype index) const; // null when out of range
    HXLogEntryList getChildren(qsizetype from, qsizetype length) const;

    // HXKeyValueObservable
    QString className() const override { return QStringLiteral("HXLogEntry"); }
    QStringList keyPaths() const override;
    QVariant valueForKey(const QString &key) const override;

    // KeyedArchivable
    QString archiveClassName() const override { return className(); }
    void encodeWithArchiver(KeyedArchiver &archiver) const override;
    static QVariant decodeWithCoder(KeyedUnarchiver::Coder &coder);

protected:
    bool describesOneKeyPerLine() const override { return true; }

private:
    void refreshCount(); // under no lock; announces count and leaf

    mutable QMutex m_mutex;
    QDateTime m_timestamp;
    QString m_type;
    QString m_string;
    std::optional<HXLogEntryList> m_children;
    qint64 m_count = 0;
    bool m_leaf = true;
    bool m_isFile = false;
};
// A shared_ptr moves as plain bytes; saying so lets QVariant hold it inline.
Q_DECLARE_TYPEINFO(HXLogEntryRef, Q_RELOCATABLE_TYPE);
Q_DECLARE_METATYPE(HXLogEntryRef)
