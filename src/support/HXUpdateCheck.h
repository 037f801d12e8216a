#pragma once

#include "HXUpdateExchange.h"
#include "HXUpdateRecords.h"

#include <QString>
#include <functional>

// Asks the maker's update-information server whether a newer release
// exists, and tells the user. Class operations only; the exchange runs on a
// thread of its own and every alert comes on the main thread, so the window
// keeps answering while a server hangs.
class HXUpdateCheck
{
public:
    enum Outcome {
        UpdateAvailable, // the update alert was shown (or would have been)
        NoUpdate,        // the running release is the newest
        Failed           // lookup, connect, write or read failed
    };

    // An interactive check tells the user every outcome; a background one
    // only an available update. While a check runs (up to the answer to its
    // alert) another is not started: false, and nothing happens.
    static bool checkForUpdate(bool interactive);
    static bool isCheckRunning();

    static void alertUserToAvailableUpdate(const HXUpdateRecords::Reply &reply);
    static void alertUserOfNoUpdate(const HXUpdateRecords::Reply &reply);
    static void alertUserOfFailure();

    static quint32 valueFromHexidecimalString(const QString &text)
    {
        return HXUpdateRecords::valueFromHexidecimalString(text);
    }
    static QString versionStringFromVersionValue(quint32 value)
    {
        return HXUpdateRecords::versionStringFromVersionValue(value);
    }
    // A hair under one day, in seconds; for a periodic check nobody starts.
    static double defaultUpdateCheckInterval();

    // The request this process sends: its version, "????", the user's full
    // name from the password database, the locale, the system version.
    static HXUpdateRecords::Request currentRequest();
    // The running release: the application's version and its build number.
    static QString runningShortVersion();
    static qint64 runningBuild();
    // The server's port the next check connects to.
    static quint16 serverPort();

    // Tests: another port and shorter limits, another running release, and
    // a call on the main thread once a check has ended (after its alert).
    static void setPortForTesting(quint16 port);
    static void setLimitsForTesting(HXUpdateExchange::Limits limits);
    static void setRunningReleaseForTesting(const QString &shortVersion, qint64 build);
    static void setFinishedHandlerForTesting(std::function<void(Outcome)> handler);
    static void resetForTesting();

private:
    static void finish(bool interactive, const std::optional<HXUpdateRecords::Reply> &reply,
                       quint32 running, qint64 build);
};
