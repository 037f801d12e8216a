#pragma once

#include <QAbstractTableModel>
#include <QVariantList>
#include <functional>
#include <optional>

// The test exclusions: the idle daemon's list, loaded from it and sent back
// whole after every change (an added or dropped path, a removal, a ticked
// box). Rows are the entries in the order they were added; the columns are
// the entry's name and its three exclusion flags as check boxes.
//
// Until the list has come from the daemon the controller has no content and
// nothing can change it: the list sent back is never one the daemon did not
// give.
class HXTestExclusionsController : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { NameColumn, FileTestColumn, VolTestColumn, SurfaceScanTestColumn, ColumnCount };
    static const QString &keyOfColumn(int column);

    // The open panel: paths the user chose, none when cancelled.
    using Chooser = std::function<QStringList()>;

    explicit HXTestExclusionsController(QObject *parent = nullptr);

    void setChooser(Chooser chooser) { m_chooser = std::move(chooser); }

    bool hasContent() const { return m_content.has_value(); }
    QVariantList content() const { return m_content.value_or(QVariantList()); }
    // The list as loaded; no content at all with nullopt.
    void setContent(std::optional<QVariantList> content);

    // Asks the daemon for its list; the content when it answers.
    void loadExclusions();
    // The open panel; each chosen path not yet in the list is excluded.
    void addExclusion();
    // Adds an entry for an existing path and sends the list. Dropped paths
    // come here directly, so a drop may add a path twice.
    void excludePath(const QString &path);
    void removeExclusions(QList<int> rows);
    void changeTest();
    void synchronizeExclusions();

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    bool setData(const QModelIndex &index, const QVariant &value, int role) override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

Q_SIGNALS:
    void contentChanged(bool hasContent);

private:
    std::optional<QVariantList> m_content;
    Chooser m_chooser;
};
