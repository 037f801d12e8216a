#pragma once

#include <QString>

// Where the product keeps its files. With ORVEX_ROOT set, every absolute path
// is taken under that folder, so that tests and the demo run unprivileged in
// a temporary root.
class HXProductPaths
{
public:
    static QString root();
    // `absolutePath` under the root (unchanged when ORVEX_ROOT is not set).
    static QString map(const QString &absolutePath);

    static QString libraryFolder(); // report, marker files, the worker's store
    static QString reportFile();
    static QString testReportFile();
    static QString logsFolder();
    static QString workerStoreFile();        // the worker daemon's persistent store
    static QString idleDaemonSettingsFile(); // schedule, exclusions and the other testing settings

    // Marker files shared with the daemons, in the library folder.
    static QString isIdleMarker();
    static QString isIdlePrimaryMarker();
    static QString isIdleSecondaryMarker();
    static QString forceFailuresMarker();
};
