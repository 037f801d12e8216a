#include "HXTestExclusionsController.h"

#include "HXDaemonInteraction.h"
#include "HXExclusionEntries.h"
#include "HXKeyValueObserving.h"
#include "HXPreferencesText.h"
#include "HXSystemLog.h"
#include "HXVolumeCatalogue.h"

#include <QFileInfo>
#include <algorithm>

const QString &HXTestExclusionsController::keyOfColumn(int column)
{
    static const QString none;
    switch (column) {
    case FileTestColumn:
        return HXExclusionFileTestKey;
    case VolTestColumn:
        return HXExclusionVolTestKey;
    case SurfaceScanTestColumn:
        return HXExclusionSurfaceScanTestKey;
    default:
        return none;
    }
}

HXTestExclusionsController::HXTestExclusionsController(QObject *parent)
    : QAbstractTableModel(parent)
{
}

void HXTestExclusionsController::setContent(std::optional<QVariantList> content)
{
    beginResetModel();
    m_content = std::move(content);
    endResetModel();
    Q_EMIT contentChanged(hasContent());
}

void HXTestExclusionsController::loadExclusions()
{
    HXDaemonInteraction::askIdleDaemon(
        this,
        [](HXIdleDaemonProxy &idle) { return std::optional<QVariantList>(idle.exclusions()); },
        [this](std::optional<QVariantList> list) {
            if (!list) {
                HXSystemLog::write(QStringLiteral("Could not create a connetion to the daemon!"));
                return;
            }
            setContent(MakeMutableDeepCopy(*list));
        });
}

void HXTestExclusionsController::addExclusion()
{
    if (!m_content)
        return;
    HXSystemLog::write(QStringLiteral("content: %1").arg(HXDescribeValue(*m_content)));
    if (!m_chooser)
        return;
    const QStringList chosen = m_chooser();
    for (const QString &path : chosen) {
        if (m_content && !HXExclusionsContainPath(*m_content, path))
            excludePath(path);
    }
}

void HXTestExclusionsController::excludePath(const QString &path)
{
    if (!m_content)
        return;
    if (!QFileInfo::exists(path)) {
        HXSystemLog::write(QStringLiteral("File does not exist at path: %1").arg(path));
        return;
    }
    const int row = int(m_content->size());
    beginInsertRows(QModelIndex(), row, row);
    m_content->append(HXMakeExclusionEntry(path, HXVolumeCatalogue::current()));
    endInsertRows();
    synchronizeExclusions();
}

void HXTestExclusionsController::removeExclusions(QList<int> rows)
{
    if (!m_content)
        return;
    std::sort(rows.begin(), rows.end(), std::greater<int>());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
    for (int row : std::as_const(rows)) {
        if (row < 0 || row >= m_content->size())
            continue;
        beginRemoveRows(QModelIndex(), row, row);
        m_content->removeAt(row);
        endRemoveRows();
    }
    synchronizeExclusions();
}

void HXTestExclusionsController::changeTest()
{
    synchronizeExclusions();
}

void HXTestExclusionsController::synchronizeExclusions()
{
    if (!m_content)
        return;
    const QVariantList list = *m_content;
    HXDaemonInteraction::tellIdleDaemon(
        [list](HXIdleDaemonProxy &idle) { idle.setExclusions(list); });
}

int HXTestExclusionsController::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() || !m_content ? 0 : int(m_content->size());
}

int HXTestExclusionsController::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant HXTestExclusionsController::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || !m_content || index.row() >= m_content->size())
        return {};
    const QVariantMap entry = m_content->at(index.row()).toMap();
    const QVariant path = entry.value(HXExclusionPathKey);
    if (index.column() == NameColumn) {
        switch (role) {
        case Qt::DisplayRole:
        case Qt::AccessibleTextRole:
            return HXTestExclusionPathVolumeNameTransformer::transformedValue(path);
        case Qt::DecorationRole:
            return HXTestExclusionPathIconTransformer::transformedValue(path);
        case Qt::ToolTipRole:
            return path;
        default:
            return {};
        }
    }
    const bool checked = entry.value(keyOfColumn(index.column())).toBool();
    switch (role) {
    case Qt::CheckStateRole:
        return checked ? Qt::Checked : Qt::Unchecked;
    case Qt::AccessibleTextRole:
        // A screen reader hears which test and whether it is left out.
        return QStringLiteral("%1: %2").arg(
            headerData(index.column(), Qt::Horizontal, Qt::DisplayRole).toString(),
            checked ? HXPreferencesText("Excluded", "excluded")
                    : HXPreferencesText("Tested", "tested"));
    default:
        return {};
    }
}

bool HXTestExclusionsController::setData(const QModelIndex &index, const QVariant &value, int role)
{
    if (role != Qt::CheckStateRole || !index.isValid() || index.column() == NameColumn ||
        !m_content || index.row() >= m_content->size())
        return false;
    QVariantMap entry = m_content->at(index.row()).toMap();
    entry.insert(keyOfColumn(index.column()), value.value<Qt::CheckState>() == Qt::Checked);
    (*m_content)[index.row()] = entry;
    Q_EMIT dataChanged(index, index, {Qt::CheckStateRole, Qt::AccessibleTextRole});
    changeTest();
    return true;
}

Qt::ItemFlags HXTestExclusionsController::flags(const QModelIndex &index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    if (index.column() == NameColumn)
        return Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable;
}

QVariant HXTestExclusionsController::headerData(int section, Qt::Orientation orientation,
                                                int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    switch (section) {
    case NameColumn:
        return HXPreferencesText("Excluded Item", "Excluded item");
    case FileTestColumn:
        return HXPreferencesText("File Structures", "File structures");
    case VolTestColumn:
        return HXPreferencesText("Volume Structures", "Volume structures");
    case SurfaceScanTestColumn:
        return HXPreferencesText("Surface Scan", "Surface scan");
    default:
        return {};
    }
}
