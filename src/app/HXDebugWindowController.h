#pragma once

#include "HXConstants.h"

#include <QWidget>

class HXDebugController;
class QLabel;

// The debug window: buttons for the debug controller's actions and its two
// labels, which follow the controller.
class HXDebugWindowController : public QWidget
{
    Q_OBJECT

public:
    explicit HXDebugWindowController(QWidget *parent = nullptr);
    ~HXDebugWindowController() override;

    HXDebugController *debugController() const { return m_debugController; }

public Q_SLOTS:
    // Asks the status view to show all of its result boxes at once.
    void showAllUI();

private:
    HXDebugController *m_debugController;
    QLabel *m_workerLabel;
    QLabel *m_failuresLabel;
};
