#pragma once

#include <QWidget>

class HXSchedulingController;
class QCheckBox;
class QComboBox;
class QLabel;
class QPushButton;

// The Scheduling tab: the testing switches, the daily schedule, the menu-bar
// icon and the sleep warning, each control bound to the controller. Only a
// person's click or choice is sent on; the controller's updates only move
// the controls.
class HXSchedulingPane : public QWidget
{
    Q_OBJECT

public:
    explicit HXSchedulingPane(HXSchedulingController *controller, QWidget *parent = nullptr);

    QCheckBox *testingCheckBox() const { return m_testing; }
    QCheckBox *automaticCheckBox() const { return m_automatic; }
    QComboBox *hourPopup() const { return m_hour; }
    QComboBox *durationPopup() const { return m_duration; }
    QCheckBox *batteryCheckBox() const { return m_battery; }
    QCheckBox *alertsCheckBox() const { return m_alerts; }
    QCheckBox *menubarCheckBox() const { return m_menubar; }
    QLabel *sleepWarning() const { return m_sleepWarning; }
    QPushButton *resetButton() const { return m_reset; }

Q_SIGNALS:
    void resetRequested();
    void sleepWarningLinkActivated();

private:
    void showValues();
    void showSchedule();

    HXSchedulingController *m_controller;
    QCheckBox *m_testing;
    QCheckBox *m_automatic;
    QComboBox *m_hour;
    QComboBox *m_duration;
    QCheckBox *m_battery;
    QCheckBox *m_alerts;
    QCheckBox *m_menubar;
    QLabel *m_sleepWarning;
    QPushButton *m_reset;
};
