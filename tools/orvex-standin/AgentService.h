#pragma once

#include <QObject>

class HXDBusNotificationCenter;

// The user's agent: it keeps its two settings in its own preferences
// (QSettings "talvorn"/"OrvexAgent", where the application reads them) and
// follows the notifications the application sends it.
class AgentService : public QObject
{
    Q_OBJECT

public:
    AgentService(HXDBusNotificationCenter *center, const QString &identity, QObject *parent = nullptr);

public Q_SLOTS: // HXAUserInteractionProtocol
    void alertUserToFinderNeedsRelaunch();
    bool showsStatusMenu();
    void setShowsStatusMenu(bool shows);
};
