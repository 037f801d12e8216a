#pragma once

#include "HXDBusNotificationCenter.h"
#include "HXStatusReporter.h"
#include "HXStatusViewController.h"

#include <QDBusConnection>
#include <QTcpServer>
#include <QTest>
#include <memory>

// The status tab as a daemon's testing pass reaches it: its own reporter on
// the report file, the distributed notifications of the session bus, and its
// command listener on a free port the daemon is told about. Counts the
// "testingFinished" the daemon sends.
class LiveStatusView
{
public:
    LiveStatusView(const QString &reportPath, HXNotificationCenter *local)
        : m_reporter(HXStatusReporter::Options{reportPath, local, nullptr, true})
        , m_distributed(QDBusConnection::sessionBus(), {QDBusConnection::sessionBus()})
    {
        {
            QTcpServer probe;
            if (probe.listen(QHostAddress::LocalHost))
                m_port = probe.serverPort();
        }
        HXStatusViewController::Options options;
        options.reporter = &m_reporter;
        options.localCenter = local;
        options.distributedCenter = &m_distributed;
        options.listenerPort = m_port;
        m_controller = std::make_unique<HXStatusViewController>(options);
        m_controller->setTestingFinishedHandler([this] { ++m_finished; });
    }

    // On screen and drawn, as the user sees it before a pass starts; false
    // when no port was free or the window never showed.
    bool show()
    {
        m_controller->view()->resize(884, 500);
        m_controller->view()->show();
        return m_port != 0 && QTest::qWaitForWindowExposed(m_controller->view());
    }

    HXStatusViewController &controller() { return *m_controller; }
    quint16 port() const { return m_port; }
    int passesFinished() const { return m_finished; }

private:
    HXStatusReporter m_reporter;
    HXDBusNotificationCenter m_distributed;
    quint16 m_port = 0;
    std::unique_ptr<HXStatusViewController> m_controller;
    int m_finished = 0;
};
