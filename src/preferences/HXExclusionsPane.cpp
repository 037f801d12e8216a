#include "HXExclusionsPane.h"

#include "HXExclusionsDropScrollView.h"
#include "HXPreferencesText.h"
#include "HXTestExclusionsController.h"

#include <QFileDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

// An open panel that takes folders as well as files: Open accepts whatever
// is selected (a double click still goes into a folder).
class ExclusionsOpenPanel : public QFileDialog
{
public:
    explicit ExclusionsOpenPanel(QWidget *parent)
        : QFileDialog(parent)
    {
        setOption(QFileDialog::DontUseNativeDialog);
        setFileMode(QFileDialog::ExistingFiles);
        setWindowTitle(HXPreferencesText("Exclude from testing", "Exclude from Testing"));
    }
    void accept() override
    {
        const QStringList chosen = selectedFiles();
        for (const QString &path : chosen) {
            if (!QFileInfo::exists(path))
                return;
        }
        if (!chosen.isEmpty())
            QDialog::accept();
    }
};

} // namespace

QStringList HXExclusionsPane::chooseFiles(QWidget *parent)
{
    ExclusionsOpenPanel panel(parent);
    if (panel.exec() != QDialog::Accepted)
        return {};
    return panel.selectedFiles();
}

HXExclusionsPane::HXExclusionsPane(HXTestExclusionsController *controller, QWidget *parent)
    : QWidget(parent)
    , m_controller(controller)
{
    setObjectName(QStringLiteral("ExclusionsPane"));
    auto *intro = new QLabel(
        HXPreferencesText("ExclusionsIntro",
                          "Files, folders and volumes in this list are left out of the "
                          "tests ticked beside them. Drop items from the file manager here."),
        this);
    intro->setWordWrap(true);
    m_list = new HXExclusionsDropScrollView(this);
    m_list->setModel(controller);
    m_list->setDragDelegate(controller);
    m_list->setAccessibleName(HXPreferencesText("Test exclusions", "Test exclusions"));
    m_list->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_list->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_list->setTabKeyNavigation(false);
    m_list->verticalHeader()->hide();
    m_list->horizontalHeader()->setSectionResizeMode(HXTestExclusionsController::NameColumn,
                                                     QHeaderView::Stretch);
    for (int c = HXTestExclusionsController::FileTestColumn;
         c < HXTestExclusionsController::ColumnCount; ++c)
        m_list->horizontalHeader()->setSectionResizeMode(c, QHeaderView::ResizeToContents);
    m_list->setIconSize(QSize(16, 16));
    m_list->setWordWrap(false);
    // Paths differ at their end: the start gives way first.
    m_list->setTextElideMode(Qt::ElideLeft);

    m_add = new QPushButton(HXPreferencesText("Add…", "&Add…"), this);
    m_add->setAccessibleName(HXPreferencesText("Add an exclusion…", "Add an exclusion…"));
    m_remove = new QPushButton(HXPreferencesText("Remove", "Re&move"), this);
    m_remove->setAccessibleName(
        HXPreferencesText("Remove the selected exclusions", "Remove the selected exclusions"));
    m_reset = new QPushButton(HXPreferencesText("Reset Exclusions", "&Reset Exclusions"), this);
    m_reset->setAccessibleName(HXPreferencesText("Reset the exclusions", "Reset the exclusions"));

    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_add);
    buttons->addWidget(m_remove);
    buttons->addStretch();
    buttons->addWidget(m_reset);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(intro);
    layout->addWidget(m_list, 1);
    layout->addLayout(buttons);

    controller->setChooser([this] { return chooseFiles(window()); });
    connect(m_add, &QPushButton::clicked, controller, &HXTestExclusionsController::addExclusion);
    connect(m_remove, &QPushButton::clicked, controller, [this] {
        QList<int> rows;
        const QModelIndexList selected = m_list->selectionModel()->selectedRows();
        for (const QModelIndex &index : selected)
            rows.append(index.row());
        m_controller->removeExclusions(rows);
    });
    connect(m_reset, &QPushButton::clicked, this, &HXExclusionsPane::resetRequested);
    connect(m_list->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &HXExclusionsPane::updateRemoveButton);
    connect(controller, &QAbstractItemModel::modelReset, this,
            &HXExclusionsPane::updateRemoveButton);
    connect(controller, &QAbstractItemModel::rowsRemoved, this,
            &HXExclusionsPane::updateRemoveButton);
    updateRemoveButton();
}

void HXExclusionsPane::updateRemoveButton()
{
    m_remove->setEnabled(m_list->selectionModel()->hasSelection());
}
