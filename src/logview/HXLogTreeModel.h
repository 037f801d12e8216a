#pragma once

#include "HXLogEntry.h"
#include "HXStatusReport.h"

#include <QAbstractItemModel>
#include <QDate>
#include <QIcon>
#include <vector>

class HXStatusReporter;

// The report's log as a two-level tree: a row per log message, newest first,
// with the files it names as children; two blank spacer rows above and two
// below when there is any entry. It reads the entries where the report holds
// them (the list is shared, not copied) and keeps only their arranged order,
// and not even that for a log in the order it is written.
//
// Columns: the type icon (the tree's own column), "Date", "Log Message".
// Every replacement or change of the reporter's report resets the model.
class HXLogTreeModel : public QAbstractItemModel
{
    Q_OBJECT

public:
    enum Column { TypeColumn = 0, DateColumn = 1, MessageColumn = 2, ColumnCount = 3 };
    enum RowKind { SpacerRow, MessageRow, FileRow };
    enum Role {
        RowKindRole = Qt::UserRole + 1, // RowKind
        EntryRole,                      // HXLogEntryRef; none for spacers
        HintRole,                       // bool: the row shows the double-click hint
        TimestampRole,                  // QDateTime
        PathRole,                       // a file row's path, less one trailing ","
    };
    static constexpr int kSpacerRows = 2;
    // Newest first on screen; the print copy sorts by the message.
    enum class Arrangement { NewestFirst, ByMessage };

    // Follows `reporter` (may be null: then only setReport()).
    explicit HXLogTreeModel(HXStatusReporter *reporter, QObject *parent = nullptr);

    // Shows `report` (a reporter's own report is taken on every change).
    void setReport(const HXStatusReportRef &report);
    // Takes the report's log again and arranges it, newest first.
    void reload();
    void setArrangement(Arrangement arrangement) { m_arrangement = arrangement; }

    // The arranged top-level entries, spacers not counted.
    qsizetype entryCount() const { return m_reversed ? m_log.size() : qsizetype(m_order.size()); }
    HXLogEntryRef arrangedEntry(qsizetype position) const;
    // The top-level row of an arranged position, and back (-1 for spacers).
    int rowForPosition(qsizetype position) const { return int(position) + kSpacerRows; }
    qsizetype positionForRow(int row) const;
    // The entry behind any index; null for spacers.
    HXLogEntryRef entryForIndex(const QModelIndex &index) const;
    RowKind rowKind(const QModelIndex &index) const;

    // What a screen reader says for a row: date, type and message.
    QString accessibleText(const QModelIndex &index) const;
    // Set by tests and the benchmark; the current date otherwise.
    void setToday(const QDate &today) { m_today = today; }

    // QAbstractItemModel
    QModelIndex index(int row, int column, const QModelIndex &parent = {}) const override;
    QModelIndex parent(const QModelIndex &child) const override;
    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    bool hasChildren(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

private:
    void arrange();
    void arrangeByMessage();
    QDate today() const;
    QVariant display(const QModelIndex &index, RowKind kind, const HXLogEntry &entry) const;
    QVariant decoration(const QModelIndex &index, RowKind kind, const HXLogEntry &entry) const;

    HXStatusReporter *m_reporter = nullptr;
    HXStatusReportRef m_report;
    // The report's own list, shared: it keeps the entries alive while shown.
    HXLogEntryList m_log;
    // Positions in m_log in arranged order, unless the arrangement is the
    // list read backwards (a log written oldest first, shown newest first).
    std::vector<int> m_order;
    bool m_reversed = false;
    QDate m_today;
    Arrangement m_arrangement = Arrangement::NewestFirst;
};
