#include "AgentService.h"

#include "HXAgentInteraction.h"
#include "HXDBusNotificationCenter.h"
#include "HXSystemLog.h"

#include <QSettings>

namespace {
QSettings agentSettings()
{
    return QSettings(QStringLiteral("talvorn"), QStringLiteral("OrvexAgent"));
}
} // namespace

AgentService::AgentService(HXDBusNotificationCenter *center, const QString &identity,
                           QObject *parent)
    : QObject(parent)
{
    center->addObserver(HXOrvexAgentShowsStatusMenuDidChangeNotification, identity,
                        [this](const HXDistributedNotification &n) {
                            setShowsStatusMenu(
                                n.userInfo.value(HXOrvexAgentShowsStatusMenuKey).toBool());
                        });
    center->addObserver(
        HXOrvexAgentSuppressUserInteractionDidChangeNotification, identity,
        [](const HXDistributedNotification &n) {
            const bool suppress = n.userInfo.value(HXIOrvexSuppressUserInteractionKey).toBool();
            agentSettings().setValue(HXIOrvexSuppressUserInteractionKey, suppress);
            HXSystemLog::write(suppress ? QStringLiteral("Agent: alert dialogs suppressed")
                                        : QStringLiteral("Agent: alert dialogs shown"));
        });
}

void AgentService::alertUserToFinderNeedsRelaunch()
{
    HXSystemLog::write(
        QStringLiteral("Agent: the file manager needs a restart to show the new badges"));
}

bool AgentService::showsStatusMenu()
{
    return agentSettings().value(HXOrvexAgentShowsStatusMenuKey, false).toBool();
}

void AgentService::setShowsStatusMenu(bool shows)
{
    agentSettings().setValue(HXOrvexAgentShowsStatusMenuKey, shows);
    HXSystemLog::write(shows ? QStringLiteral("Agent: status menu shown")
                             : QStringLiteral("Agent: status menu hidden"));
}
