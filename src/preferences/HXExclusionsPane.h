#pragma once

#include <QWidget>

class HXExclusionsDropScrollView;
class HXTestExclusionsController;
class QPushButton;

// The Exclusions tab: the list (which takes drops), add, remove and reset.
class HXExclusionsPane : public QWidget
{
    Q_OBJECT

public:
    explicit HXExclusionsPane(HXTestExclusionsController *controller, QWidget *parent = nullptr);

    HXExclusionsDropScrollView *list() const { return m_list; }
    QPushButton *addButton() const { return m_add; }
    QPushButton *removeButton() const { return m_remove; }
    QPushButton *resetButton() const { return m_reset; }

    // The open panel: files, folders and volumes, several at once.
    static QStringList chooseFiles(QWidget *parent);

Q_SIGNALS:
    void resetRequested();

private:
    void updateRemoveButton();

    HXTestExclusionsController *m_controller;
    HXExclusionsDropScrollView *m_list;
    QPushButton *m_add;
    QPushButton *m_remove;
    QPushButton *m_reset;
};
