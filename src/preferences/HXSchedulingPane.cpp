#include "HXSchedulingPane.h"

#include "HXPreferencesText.h"
#include "HXScheduleMenus.h"
#include "HXSchedulingController.h"
#include "HXSystemSleepWarning.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

HXSchedulingPane::HXSchedulingPane(HXSchedulingController *controller, QWidget *parent)
    : QWidget(parent)
    , m_controller(controller)
{
    setObjectName(QStringLiteral("SchedulingPane"));
    m_testing =
        new QCheckBox(HXPreferencesText("Test in the background", "&Test in the background"), this);
    m_automatic = new QCheckBox(HXPreferencesText("Test every day", "Test &every day"), this);
    m_hour = new QComboBox(this);
    m_hour->addItems(HXScheduleMenus::localizedHourMenuContent());
    m_hour->setAccessibleName(HXPreferencesText("Starting at", "Starting at"));
    m_duration = new QComboBox(this);
    m_duration->addItems(HXScheduleMenus::localizedDurationMenuContent());
    m_duration->setAccessibleName(HXPreferencesText("For up to", "For up to"));
    m_battery = new QCheckBox(
        HXPreferencesText("Allow testing on battery power", "Allow testing on &battery power"),
        this);
    m_alerts = new QCheckBox(HXPreferencesText("Show alert dialogs", "Show &alert dialogs"), this);
    m_menubar = new QCheckBox(
        HXPreferencesText("Show Orvex in the menu bar", "Show Orvex in the &menu bar"), this);
    m_sleepWarning = new QLabel(HXSystemSleepWarning::text(), this);
    m_sleepWarning->setObjectName(QStringLiteral("SleepWarning"));
    m_sleepWarning->setWordWrap(true);
    m_sleepWarning->setTextFormat(Qt::RichText);
    m_sleepWarning->setTextInteractionFlags(Qt::LinksAccessibleByMouse |
                                            Qt::LinksAccessibleByKeyboard);
    m_sleepWarning->setFocusPolicy(Qt::TabFocus);
    m_sleepWarning->setAccessibleName(HXSystemSleepWarning::plainText());
    m_sleepWarning->setToolTip(HXSystemSleepWarning::linkToolTip());
    QFont small = m_sleepWarning->font();
    small.setPointSizeF(small.pointSizeF() * 0.85);
    m_sleepWarning->setFont(small);
    m_reset = new QPushButton(HXPreferencesText("Reset to Defaults", "&Reset to Defaults"), this);
    m_reset->setAccessibleName(
        HXPreferencesText("Reset preferences to defaults", "Reset preferences to defaults"));

    auto *schedule = new QFormLayout;
    schedule->setContentsMargins(24, 0, 0, 0);
    auto *hourLabel = new QLabel(HXPreferencesText("Starting at:", "&Starting at:"), this);
    hourLabel->setBuddy(m_hour);
    auto *durationLabel = new QLabel(HXPreferencesText("For up to:", "&For up to:"), this);
    durationLabel->setBuddy(m_duration);
    schedule->addRow(hourLabel, m_hour);
    schedule->addRow(durationLabel, m_duration);

    auto *resetRow = new QHBoxLayout;
    resetRow->addStretch();
    resetRow->addWidget(m_reset);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_testing);
    layout->addWidget(m_automatic);
    layout->addLayout(schedule);
    layout->addWidget(m_battery);
    layout->addWidget(m_alerts);
    layout->addWidget(m_menubar);
    layout->addWidget(m_sleepWarning);
    layout->addStretch();
    layout->addLayout(resetRow);

    // The battery rule is offered only where there is a battery.
    m_battery->setVisible(controller->hasBatteryAvailable());

    connect(m_testing, &QCheckBox::clicked, controller,
            &HXSchedulingController::setIsTestingEnabled);
    connect(m_battery, &QCheckBox::clicked, controller,
            &HXSchedulingController::setAllowsTestingOnBatteryPower);
    connect(m_alerts, &QCheckBox::clicked, controller,
            &HXSchedulingController::setShowAlertDialogs);
    connect(m_menubar, &QCheckBox::clicked, controller,
            &HXSchedulingController::setShowMenubarIcon);
    connect(m_automatic, &QCheckBox::clicked, controller, [controller](bool on) {
        controller->setIsAutomaticallyScheduled(on);
        controller->updateIdleSchedule();
    });
    connect(m_hour, &QComboBox::activated, controller, [controller](int row) {
        controller->setIdleScheduleValue(HXOrvexIdleScheduleHourKey, row);
        controller->updateIdleSchedule();
    });
    connect(m_duration, &QComboBox::activated, controller, [controller](int index) {
        controller->setIdleScheduleValue(HXOrvexIdleScheduleDurationKey, index);
        controller->updateIdleSchedule();
    });
    connect(m_reset, &QPushButton::clicked, this, &HXSchedulingPane::resetRequested);
    connect(m_sleepWarning, &QLabel::linkActivated, this,
            &HXSchedulingPane::sleepWarningLinkActivated);

    for (auto signal : {&HXSchedulingController::isTestingEnabledChanged,
                        &HXSchedulingController::showAlertDialogsChanged,
                        &HXSchedulingController::allowsTestingOnBatteryPowerChanged,
                        &HXSchedulingController::isAutomaticallyScheduledChanged,
                        &HXSchedulingController::showMenubarIconChanged,
                        &HXSchedulingController::showSystemSleepWarningChanged})
        connect(controller, signal, this, &HXSchedulingPane::showValues);
    connect(controller, &HXSchedulingController::idleScheduleChanged, this,
            &HXSchedulingPane::showSchedule);
    showValues();
    showSchedule();
}

void HXSchedulingPane::showValues()
{
    m_testing->setChecked(m_controller->isTestingEnabled());
    m_automatic->setChecked(m_controller->isAutomaticallyScheduled());
    m_battery->setChecked(m_controller->allowsTestingOnBatteryPower());
    m_alerts->setChecked(m_controller->showAlertDialogs());
    m_menubar->setChecked(m_controller->showMenubarIcon());
    m_sleepWarning->setVisible(m_controller->showSystemSleepWarning());
}

void HXSchedulingPane::showSchedule()
{
    const std::optional<QVariantMap> &schedule = m_controller->idleSchedule();
    if (!schedule)
        return;
    bool ok = false;
    const int hour = schedule->value(HXOrvexIdleScheduleHourKey).toInt(&ok);
    if (ok && hour >= 0 && hour < m_hour->count())
        m_hour->setCurrentIndex(hour);
    const int duration = schedule->value(HXOrvexIdleScheduleDurationKey).toInt(&ok);
    if (ok && duration >= 0 && duration < m_duration->count())
        m_duration->setCurrentIndex(duration);
}
