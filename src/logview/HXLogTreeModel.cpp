#include "HXLogTreeModel.h"

#include "HXLogEntryText.h"
#include "HXLogIcons.h"
#include "HXStatusReporter.h"

#include <QFileInfo>
#include <algorithm>
#include <limits>

namespace {
// A child row carries its parent's top-level row, plus one (0 is the root).
constexpr quintptr kTopLevel = 0;
} // namespace

HXLogTreeModel::HXLogTreeModel(HXStatusReporter *reporter, QObject *parent)
    : QAbstractItemModel(parent)
    , m_reporter(reporter)
{
    if (!m_reporter)
        return;
    connect(m_reporter, &HXStatusReporter::reportChanged, this,
            [this] { setReport(m_reporter->report()); });
    connect(m_reporter, &HXStatusReporter::reportEdited, this, &HXLogTreeModel::reload);
    m_report = m_reporter->report();
    arrange();
}

void HXLogTreeModel::setReport(const HXStatusReportRef &report)
{
    m_report = report;
    reload();
}

void HXLogTreeModel::reload()
{
    beginResetModel();
    arrange();
    endResetModel();
}

void HXLogTreeModel::arrange()
{
    m_log = m_report ? m_report->log() : HXLogEntryList();
    m_order.clear();
    m_order.shrink_to_fit();
    m_reversed = false;
    if (m_arrangement == Arrangement::ByMessage) {
        arrangeByMessage();
        return;
    }
    const int n = int(m_log.size());
    const auto key = [this](int i) {
        const QDateTime t = m_log.at(i) ? m_log.at(i)->timestamp() : QDateTime();
        return t.isValid() ? t.toMSecsSinceEpoch() : std::numeric_limits<qint64>::min();
    };
    // The usual case: the log is written oldest first. Newest first is then
    // the list read backwards, which needs no table of its own. Equal stamps
    // keep the later entry above, as a stable descending sort of the
    // reversed list would.
    bool ascending = true;
    qint64 last = std::numeric_limits<qint64>::min();
    for (int i = 0; i < n && ascending; ++i) {
        const qint64 k = key(i);
        ascending = k >= last;
        last = k;
    }
    if (ascending) {
        m_reversed = true;
        return;
    }
    std::vector<std::pair<qint64, int>> keyed;
    keyed.reserve(size_t(n));
    for (int i = 0; i < n; ++i)
        keyed.emplace_back(key(i), i);
    std::stable_sort(keyed.begin(), keyed.end(),
                     [](const auto &a, const auto &b) { return a.first > b.first; });
    m_order.resize(size_t(n));
    for (int i = 0; i < n; ++i)
        m_order[size_t(i)] = keyed[size_t(i)].second;
}

void HXLogTreeModel::arrangeByMessage()
{
    const int n = int(m_log.size());
    std::vector<std::pair<QString, int>> keyed;
    keyed.reserve(size_t(n));
    for (int i = 0; i < n; ++i) {
        const QString string = m_log.at(i) ? m_log.at(i)->string() : QString();
        keyed.emplace_back(HXLogEntryText::message(HXLogEntryText::withoutTrailingComma(string)),
                           i);
    }
    std::stable_sort(keyed.begin(), keyed.end(), [](const auto &a, const auto &b) {
        return a.first.localeAwareCompare(b.first) < 0;
    });
    m_order.resize(size_t(n));
    for (int i = 0; i < n; ++i)
        m_order[size_t(i)] = keyed[size_t(i)].second;
}

HXLogEntryRef HXLogTreeModel::arrangedEntry(qsizetype position) const
{
    if (position < 0 || position >= entryCount())
        return nullptr;
    return m_log.at(m_reversed ? m_log.size() - 1 - position : m_order[size_t(position)]);
}

qsizetype HXLogTreeModel::positionForRow(int row) const
{
    const qsizetype position = row - kSpacerRows;
    return position >= 0 && position < entryCount() ? position : -1;
}

QModelIndex HXLogTreeModel::index(int row, int column, const QModelIndex &parent) const
{
    if (column < 0 || column >= ColumnCount || row < 0)
        return {};
    if (!parent.isValid())
        return row < rowCount() ? createIndex(row, column, kTopLevel) : QModelIndex();
    if (parent.internalId() != kTopLevel)
        return {};
    const HXLogEntryRef entry = arrangedEntry(positionForRow(parent.row()));
    if (!entry || row >= entry->countOfChildren())
        return {};
    return createIndex(row, column, quintptr(parent.row()) + 1);
}

QModelIndex HXLogTreeModel::parent(const QModelIndex &child) const
{
    if (!child.isValid() || child.internalId() == kTopLevel)
        return {};
    return createIndex(int(child.internalId() - 1), 0, kTopLevel);
}

int HXLogTreeModel::rowCount(const QModelIndex &parent) const
{
    if (!parent.isValid())
        return entryCount() == 0 ? 0 : int(entryCount()) + 2 * kSpacerRows;
    if (parent.column() != 0 || parent.internalId() != kTopLevel)
        return 0;
    const HXLogEntryRef entry = arrangedEntry(positionForRow(parent.row()));
    return entry ? int(entry->countOfChildren()) : 0;
}

int HXLogTreeModel::columnCount(const QModelIndex &parent) const
{
    Q_UNUSED(parent);
    return ColumnCount;
}

bool HXLogTreeModel::hasChildren(const QModelIndex &parent) const
{
    return rowCount(parent) > 0;
}

HXLogEntryRef HXLogTreeModel::entryForIndex(const QModelIndex &index) const
{
    if (!index.isValid() || index.model() != this)
        return nullptr;
    if (index.internalId() == kTopLevel)
        return arrangedEntry(positionForRow(index.row()));
    const HXLogEntryRef parent = arrangedEntry(positionForRow(int(index.internalId() - 1)));
    return parent ? parent->entryInChildrenAtIndex(index.row()) : nullptr;
}

HXLogTreeModel::RowKind HXLogTreeModel::rowKind(const QModelIndex &index) const
{
    if (index.isValid() && index.internalId() != kTopLevel)
        return FileRow;
    return positionForRow(index.row()) < 0 ? SpacerRow : MessageRow;
}

QDate HXLogTreeModel::today() const
{
    return m_today.isValid() ? m_today : QDate::currentDate();
}

QVariant HXLogTreeModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid())
        return {};
    const RowKind kind = rowKind(index);
    if (role == RowKindRole)
        return kind;
    if (role == Qt::AccessibleTextRole)
        return accessibleText(index);
    const HXLogEntryRef entry = kind == SpacerRow ? nullptr : entryForIndex(index);
    if (!entry)
        return {};
    switch (role) {
    case Qt::DisplayRole:
        return display(index, kind, *entry);
    case Qt::DecorationRole:
        return decoration(index, kind, *entry);
    case Qt::ToolTipRole:
        if (index.column() == DateColumn && kind == MessageRow)
            return HXLogEntryText::longDateText(entry->timestamp());
        if (index.column() == MessageColumn && kind == FileRow)
            return HXLogEntryText::withoutTrailingComma(entry->string());
        return {};
    case Qt::AccessibleTextRole:
        return accessibleText(index);
    case EntryRole:
        return QVariant::fromValue(entry);
    case HintRole:
        return kind == MessageRow && !entry->leaf();
    case TimestampRole:
        return entry->timestamp();
    case PathRole:
        return kind == FileRow ? HXLogEntryText::withoutTrailingComma(entry->string()) : QString();
    default:
        return {};
    }
}

QVariant HXLogTreeModel::display(const QModelIndex &index, RowKind kind,
                                 const HXLogEntry &entry) const
{
    switch (index.column()) {
    case DateColumn:
        return kind == MessageRow ? HXLogEntryText::dateText(entry.timestamp(), today())
                                  : QString();
    case MessageColumn: {
        const QString string = HXLogEntryText::withoutTrailingComma(entry.string());
        if (kind == FileRow)
            return HXLogEntryText::fileName(string);
        return HXLogEntryText::message(string);
    }
    default:
        return {};
    }
}

QVariant HXLogTreeModel::decoration(const QModelIndex &index, RowKind kind,
                                    const HXLogEntry &entry) const
{
    if (index.column() == TypeColumn && kind == MessageRow)
        return HXLogIcons::typeIcon(entry.type());
    if (index.column() == MessageColumn && kind == FileRow) {
        const QString path = HXLogEntryText::withoutTrailingComma(entry.string());
        return HXLogIcons::fileIcon(QFileInfo::exists(path));
    }
    return {};
}

QString HXLogTreeModel::accessibleText(const QModelIndex &index) const
{
    const RowKind kind = rowKind(index);
    const HXLogEntryRef entry = kind == SpacerRow ? nullptr : entryForIndex(index);
    if (!entry)
        return tr("Blank row");
    const QString date = HXLogEntryText::dateText(entry->timestamp(), today());
    const QString type = HXLogEntryText::typeName(*entry);
    const QString string = HXLogEntryText::withoutTrailingComma(entry->string());
    if (kind == FileRow) {
        const QString presence = QFileInfo::exists(string) ? tr("can be shown") : tr("not found");
        return tr("%1, %2, %3, %4").arg(date, type, string, presence);
    }
    QString text = tr("%1, %2, %3").arg(date, type, HXLogEntryText::message(string));
    if (!entry->leaf())
        text += QLatin1String(", ") +
                (entry->count() == 1 ? tr("1 file") : tr("%1 files").arg(entry->count()));
    return text;
}

QVariant HXLogTreeModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal)
        return {};
    // The icons' column has no title to see, but one to hear.
    if (role == Qt::AccessibleTextRole && section == TypeColumn)
        return tr("Type");
    if (role != Qt::DisplayRole && role != Qt::AccessibleTextRole)
        return {};
    switch (section) {
    case TypeColumn:
        return QString();
    case DateColumn:
        return tr("Date");
    case MessageColumn:
        return tr("Log Message");
    default:
        return {};
    }
}

Qt::ItemFlags HXLogTreeModel::flags(const QModelIndex &index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    switch (rowKind(index)) {
    case SpacerRow:
        return Qt::ItemNeverHasChildren;
    case FileRow:
        return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemNeverHasChildren;
    case MessageRow:
        break;
    }
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (index.column() != 0 || !hasChildren(index))
        flags |= Qt::ItemNeverHasChildren;
    return flags;
}
