#pragma once

#include "RemoteQueryAndControlManager.h"

class HXNotificationCenter;

// The status view's listener: the worker tells the open window that test
// state changed, and each command becomes a local notification.
class HXStatusViewRemoteControlManager : public RemoteQueryAndControlManager
{
public:
    static constexpr quint16 kPort = 6333;

    // Tests give another port and centre; the product uses the defaults.
    explicit HXStatusViewRemoteControlManager(quint16 port = kPort,
                                              HXNotificationCenter *center = nullptr);

    quint16 port() const override { return m_port; }
    std::shared_ptr<RemoteQueryAndController> makeController(std::shared_ptr<GCDAsyncSocket> socket) override;

private:
    quint16 m_port;
    HXNotificationCenter *m_center;
};

// Turns "updateTestStatus", "testingFinished", "testingStartupVolume" and
// "finishedTestingStartupVolume" into the matching local notifications (no
// object, no user info). Any other command is ignored; nothing is answered.
class HXStatusViewRemoteController : public RemoteQueryAndController
{
public:
    HXStatusViewRemoteController(std::shared_ptr<GCDAsyncSocket> socket, HXNotificationCenter *center);
    void processParams(const QVariant &params) override;

private:
    HXNotificationCenter *m_center;
};
