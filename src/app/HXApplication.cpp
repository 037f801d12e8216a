#include "HXApplication.h"

#include "HXDaemonInteractionException.h"
#include "HXSystemLog.h"

HXApplication::HXApplication(int &argc, char **argv)
    : QApplication(argc, argv)
{
}

bool HXApplication::notify(QObject *receiver, QEvent *event)
{
    try {
        return QApplication::notify(receiver, event);
    } catch (const HXDaemonInteractionException &e) {
        HXSystemLog::write(QStringLiteral("*** Uncaught exception %1: %2").arg(e.name(), e.reason()));
    } catch (const std::exception &e) {
        HXSystemLog::write(QStringLiteral("*** Uncaught exception: %1").arg(QString::fromLocal8Bit(e.what())));
    }
    return false;
}
