#include "HXStatusViewRemoteControlManager.h"

#include "HXConstants.h"
#include "HXNotificationCenter.h"

HXStatusViewRemoteControlManager::HXStatusViewRemoteControlManager(quint16 port,
                                                                   HXNotificationCenter *center)
    : m_port(port)
    , m_center(center ? center : &HXNotificationCenter::defaultCenter())
{
}

std::shared_ptr<RemoteQueryAndController>
HXStatusViewRemoteControlManager::makeController(std::shared_ptr<GCDAsyncSocket> socket)
{
    return std::make_shared<HXStatusViewRemoteController>(std::move(socket), m_center);
}

HXStatusViewRemoteController::HXStatusViewRemoteController(std::shared_ptr<GCDAsyncSocket> socket,
                                                           HXNotificationCenter *center)
    : RemoteQueryAndController(std::move(socket))
    , m_center(center)
{
}

void HXStatusViewRemoteController::processParams(const QVariant &params)
{
    static const std::pair<QString, QString> commands[] = {
        {QStringLiteral("updateTestStatus"), HXUpdateTestStatusNotification},
        {QStringLiteral("testingFinished"), HXTestingFinishedStatusNotification},
        {QStringLiteral("testingStartupVolume"), QStringLiteral("TestingStartupVolumeNotification")},
        {QStringLiteral("finishedTestingStartupVolume"),
         QStringLiteral("FinishedTestingStartupVolumeNotification")},
    };
    const QString command = params.toMap().value(QStringLiteral("command")).toString();
    for (const auto &[word, notification] : commands) {
        if (command == word) {
            m_center->post(notification, nullptr);
            return;
        }
    }
}
