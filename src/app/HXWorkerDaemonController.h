#pragma once

#include <QWidget>

#include <memory>

class HXWorkerDaemonProxy;
class QButtonGroup;
class QLineEdit;

// A small panel that tests the connection to the worker daemon: send it a
// message, test the connection, make it active or inactive. A worker that
// cannot be reached is reported with an alert.
class HXWorkerDaemonController : public QWidget
{
    Q_OBJECT

public:
    // Tags of the status control's two cells.
    static constexpr int kActiveTag = 1;
    static constexpr int kInactiveTag = 0;

    explicit HXWorkerDaemonController(QWidget *parent = nullptr);

    // Looked up afresh on every call: no cache, no protocol check.
    static std::shared_ptr<HXWorkerDaemonProxy> daemonProxy();

    QLineEdit *messageTextField() const { return m_messageTextField; }
    QButtonGroup *statusControl() const { return m_statusControl; }
    bool daemonIsEnabled() const { return m_daemonIsEnabled; }

public Q_SLOTS:
    void sendMessage();
    void sendMessageToDaemon(const QString &message);
    void testConnection();
    // Makes the worker's state the selected cell's, calling it only when the
    // two differ.
    void updateDaemonStatus();

private:
    void showConnectionError();

    QLineEdit *m_messageTextField;
    QButtonGroup *m_statusControl;
    bool m_daemonIsEnabled = false;
};
