#include "HXLogEntry.h"

#include "HXReportArchive.h"

#include <algorithm>

namespace {
const QString kTimestamp = QStringLiteral("timestamp");
const QString kType = QStringLiteral("type");
const QString kString = QStringLiteral("string");
const QString kChildren = QStringLiteral("children");
const QString kCount = QStringLiteral("count");
const QString kLeaf = QStringLiteral("leaf");
const QString kIsFile = QStringLiteral("isFile");

} // namespace

HXLogEntryRef HXLogEntry::entryWithTimestamp(const QDateTime &timestamp, const QString &type,
                                             const QString &string,
                                             const std::optional<HXLogEntryList> &children)
{
    auto e = std::make_shared<HXLogEntry>();
    e->m_timestamp = timestamp;
    e->m_type = type;
    e->m_string = string;
    e->m_children = children;
    e->m_count = children ? children->size() : 0;
    e->m_leaf = e->m_count == 0;
    e->m_isFile = false;
    return e;
}

HXLogEntryRef HXLogEntry::entryWithTypeCompoundString(const QString &type, const QString &text)
{
    // Any character of the newline set splits; empty pieces stay.
    static const auto isNewline = [](QChar c) {
        const char16_t u = c.unicode();
        return u == u'\n' || u == u'\r' || u == 0x0B || u == 0x0C || u == 0x85 || u == 0x2028 ||
               u == 0x2029;
    };
    QStringList pieces;
    qsizetype start = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (isNewline(text[i])) {
            pieces.append(text.mid(start, i - start));
            start = i + 1;
        }
    }
    pieces.append(text.mid(start));

    const QDateTime now = QDateTime::currentDateTimeUtc();
    std::optional<HXLogEntryList> children;
    if (pieces.size() >= 2) {
        children.emplace();
        children->reserve(pieces.size() - 1);
        for (qsizetype i = 1; i < pieces.size(); ++i) {
            auto child = entryWithTimestamp(now, type, pieces[i], std::nullopt);
            child->m_isFile = true;
            children->append(child);
        }
    }
    return entryWithTimestamp(now, type, pieces.first(), children);
}

HXLogEntryRef HXLogEntry::copy() const
{
    KeyedArchiver archiver;
    return HXReportArchive::decodeLogEntry(archiver.archiveRootObject(*this));
}

QDateTime HXLogEntry::timestamp() const
{
    return guardedGet(m_mutex, m_timestamp);
}

void HXLogEntry::setTimestamp(const QDateTime &timestamp)
{
    guardedSet(m_mutex, m_timestamp, timestamp, kTimestamp);
}

QString HXLogEntry::type() const
{
    return guardedGet(m_mutex, m_type);
}

void HXLogEntry::setType(const QString &type)
{
    guardedSet(m_mutex, m_type, type, kType);
}

QString HXLogEntry::string() const
{
    return guardedGet(m_mutex, m_string);
}

void HXLogEntry::setString(const QString &string)
{
    guardedSet(m_mutex, m_string, string, kString);
}

std::optional<HXLogEntryList> HXLogEntry::children() const
{
    return guardedGet(m_mutex, m_children);
}

void HXLogEntry::setChildren(const std::optional<HXLogEntryList> &children)
{
    guardedSet(m_mutex, m_children, children, kChildren);
}

qint64 HXLogEntry::count() const
{
    return guardedGet(m_mutex, m_count);
}

void HXLogEntry::setCount(qint64 count)
{
    guardedSet(m_mutex, m_count, count, kCount);
}

bool HXLogEntry::leaf() const
{
    return guardedGet(m_mutex, m_leaf);
}

void HXLogEntry::setLeaf(bool leaf)
{
    guardedSet(m_mutex, m_leaf, leaf, kLeaf);
}

bool HXLogEntry::isFile() const
{
    return guardedGet(m_mutex, m_isFile);
}

void HXLogEntry::setIsFile(bool isFile)
{
    guardedSet(m_mutex, m_isFile, isFile, kIsFile);
}

void HXLogEntry::refreshCount()
{
    qint64 n;
    {
        QMutexLocker lock(&m_mutex);
        n = m_children ? m_children->size() : 0;
    }
    setCount(n);
    setLeaf(n == 0);
}

void HXLogEntry::addToChildren(const HXLogEntryRef &entry)
{
    willChangeValueForKey(kChildren);
    {
        QMutexLocker lock(&m_mutex);
        if (!m_children)
            m_children.emplace();
        m_children->append(entry);
    }
    didChangeValueForKey(kChildren);
    refreshCount();
}

void HXLogEntry::removeFromChildren(const HXLogEntryRef &entry)
{
    willChangeValueForKey(kChildren);
    {
        QMutexLocker lock(&m_mutex);
        if (m_children)
            m_children->removeAll(entry);
    }
    didChangeValueForKey(kChildren);
    refreshCount();
}

void HXLogEntry::insertObjectInChildrenAtIndex(const HXLogEntryRef &entry, qsizetype index)
{
    {
        QMutexLocker lock(&m_mutex);
        const qsizetype n = m_children ? m_children->size() : 0;
        if (index < 0 || index > n)
            return;
    }
    if (entry) {
        willChangeValueForKey(kChildren);
        {
            QMutexLocker lock(&m_mutex);
            if (!m_children)
                m_children.emplace();
            m_children->insert(index, entry);
        }
        didChangeValueForKey(kChildren);
    }
    refreshCount();
}

void HXLogEntry::insertChildrenAtIndexes(const HXLogEntryList &entries,
                                         const QList<qsizetype> &indexes)
{
    willChangeValueForKey(kChildren);
    {
        QMutexLocker lock(&m_mutex);
        if (!m_children)
            m_children.emplace();
        QList<qsizetype> sorted = indexes;
        std::sort(sorted.begin(), sorted.end());
        for (qsizetype i = 0; i < sorted.size() && i < entries.size(); ++i) {
            if (sorted[i] >= 0 && sorted[i] <= m_children->size())
                m_children->insert(sorted[i], entries[i]);
        }
    }
    didChangeValueForKey(kChildren);
    refreshCount();
}

void HXLogEntry::removeEntryFromChildrenAtIndex(qsizetype index)
{
    {
        QMutexLocker lock(&m_mutex);
        if (!m_children || index < 0 || index >= m_children->size())
            return;
    }
    willChangeValueForKey(kChildren);
    {
        QMutexLocker lock(&m_mutex);
        m_children->removeAt(index);
    }
    didChangeValueForKey(kChildren);
    refreshCount();
}

void HXLogEntry::removeChildrenAtIndexes(const QList<qsizetype> &indexes)
{
    willChangeValueForKey(kChildren);
    {
        QMutexLocker lock(&m_mutex);
        if (m_children) {
            QList<qsizetype> sorted = indexes;
            std::sort(sorted.begin(), sorted.end(), std::greater<>());
            for (qsizetype i : sorted) {
                if (i >= 0 && i < m_children->size())
                    m_children->removeAt(i);
            }
        }
    }
    didChangeValueForKey(kChildren);
    refreshCount();
}

void HXLogEntry::replaceEntryInChildrenAtIndex(qsizetype index, const HXLogEntryRef &entry)
{
    {
        QMutexLocker lock(&m_mutex);
        if (!m_children || index < 0 || index >= m_children->size() || !entry)
            return;
    }
    willChangeValueForKey(kChildren);
    {
        QMutexLocker lock(&m_mutex);
        (*m_children)[index] = entry;
    }
    didChangeValueForKey(kChildren);
}

void HXLogEntry::replaceChildrenAtIndexes(const QList<qsizetype> &indexes,
                                          const HXLogEntryList &entries)
{
    willChangeValueForKey(kChildren);
    {
        QMutexLocker lock(&m_mutex);
        for (qsizetype i = 0; m_children && i < indexes.size() && i < entries.size(); ++i) {
            if (indexes[i] >= 0 && indexes[i] < m_children->size())
                (*m_children)[indexes[i]] = entries[i];
        }
    }
    didChangeValueForKey(kChildren);
}

qsizetype HXLogEntry::countOfChildren() const
{
    QMutexLocker lock(&m_mutex);
    return m_children ? m_children->size() : 0;
}

HXLogEntryRef HXLogEntry::entryInChildrenAtIndex(qsizetype index) const
{
    QMutexLocker lock(&m_mutex);
    if (!m_children || index < 0 || index >= m_children->size())
        return nullptr;
    return m_children->at(index);
}

HXLogEntryList HXLogEntry::getChildren(qsizetype from, qsizetype length) const
{
    QMutexLocker lock(&m_mutex);
    if (!m_children || from < 0 || length < 0 || from > m_children->size())
        return {};
    return m_children->mid(from, length);
}

QStringList HXLogEntry::keyPaths() const
{
    return {kTimestamp, kType, kString, kChildren, kCount, kLeaf, kIsFile};
}

QVariant HXLogEntry::valueForKey(const QString &key) const
{
    QMutexLocker lock(&m_mutex);
    if (key == kTimestamp)
        return m_timestamp.isValid() ? QVariant(m_timestamp) : QVariant();
    if (key == kType)
        return m_type;
    if (key == kString)
        return m_string;
    if (key == kChildren)
        return m_children ? QVariant::fromValue(HXAsObjectList(*m_children)) : QVariant();
    if (key == kCount)
        return QVariant::fromValue(m_count);
    if (key == kLeaf)
        return m_leaf;
    if (key == kIsFile)
        return m_isFile;
    return {};
}

void HXLogEntry::encodeWithArchiver(KeyedArchiver &archiver) const
{
    QMutexLocker lock(&m_mutex);
    archiver.encodeValue(kTimestamp, m_timestamp.isValid() ? QVariant(m_timestamp) : QVariant());
    archiver.encodeValue(kType, m_type);
    archiver.encodeValue(kString, m_string);
    if (m_children)
        archiver.encodeObjectList(kChildren, *m_children);
    else
        archiver.encodeValue(kChildren, QVariant());
    archiver.encodeInt64(kCount, m_count);
    archiver.encodeBool(kLeaf, m_leaf);
    archiver.encodeBool(kIsFile, m_isFile);
}

QVariant HXLogEntry::decodeWithCoder(KeyedUnarchiver::Coder &coder)
{
    auto e = std::make_shared<HXLogEntry>();
    if (!coder.decodeDate(QLatin1StringView("timestamp"), &e->m_timestamp) ||
        !coder.decodeString(QLatin1StringView("type"), &e->m_type) ||
        !coder.decodeString(QLatin1StringView("string"), &e->m_string))
        return {};
    if (coder.hasObject(QLatin1StringView("children"))) {
        auto list = HXReportArchive::logEntriesUnder(coder, QLatin1StringView("children"));
        if (!list)
            return {};
        e->m_children = std::move(*list);
    }
    // Always read, whatever the children hold: the archive is the record.
    e->m_count = coder.decodeInt64(QLatin1StringView("count"));
    e->m_leaf = coder.decodeBool(QLatin1StringView("leaf"));
    e->m_isFile = coder.decodeBool(QLatin1StringView("isFile"));
    return QVariant::fromValue(e);
}
