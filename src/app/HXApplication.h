#pragma once

#include <QApplication>

// The application object. An exception that escapes an event handler (a
// daemon that died during a call, say) is written to the system log and that
// one event is dropped; the application goes on.
class HXApplication : public QApplication
{
    Q_OBJECT

public:
    HXApplication(int &argc, char **argv);
    bool notify(QObject *receiver, QEvent *event) override;
};
