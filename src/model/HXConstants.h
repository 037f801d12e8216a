#pragma once

#include <QString>

// Names shared by the worker daemon, the reporter and the status presentation.
// They travel in report files and notifications, so they never change.

// Result types (the values of HXTestResult::type()).
inline const QString HXDTestResultSuccessType = QStringLiteral("Passed");
inline const QString HXDTestResultWarningType = QStringLiteral("Warning");
inline const QString HXDTestResultErrorType = QStringLiteral("Error");
inline const QString HXDTestResultInformationType = QStringLiteral("Info");
inline const QString HXDTestResultDebugType = QStringLiteral("Debug");

// The same words for the application's own store and interface.
inline const QString HXTestResultSuccessType = QStringLiteral("Passed");
inline const QString HXTestResultWarningType = QStringLiteral("Warning");
inline const QString HXTestResultErrorType = QStringLiteral("Error");
inline const QString HXTestResultInformationType = QStringLiteral("Info");
inline const QString HXTestResultDebugType = QStringLiteral("Debug");
inline const QString HXTestResultTypeKey = QStringLiteral("testResultType");

// Test names (the values of HXTestResult::name()).
inline const QString HXDFilesystemCheckTestName = QStringLiteral("Volume Structures test");
inline const QString HXDPartitionMapCheckTestName = QStringLiteral("Partition Map test");
inline const QString HXDRAIDCheckTestName = QStringLiteral("RAID test");
inline const QString HXDSurfaceScanTestName = QStringLiteral("Surface Scan test");
inline const QString HXDFileStructureTestName = QStringLiteral("File Structures test");
inline const QString HXDSMARTCheckTestName = QStringLiteral("SMART test");
inline const QString HXDMemoryTestName = QStringLiteral("Memory test");
inline const QString HXDBatteryTestName = QStringLiteral("Battery test");
inline const QString HXDIOErrorTestName = QStringLiteral("Disk I/O Error test");
inline const QString HXDPOSTCheckTestName = QStringLiteral("POST test");

// Keys of a result's testInfo.
inline const QString HXDTestResultPassedTestKey = QStringLiteral("passedTest");
inline const QString HXDTestResultBadBlockIndexKey = QStringLiteral("badBlockIndex");
inline const QString HXDTestResultTestNameKey = QStringLiteral("name");
inline const QString HXDTestResultBSDNameKey = QStringLiteral("bsdName");
inline const QString HXDTestResultDiskIdentifierKey = QStringLiteral("diskID");
inline const QString HXDTestResultDrivesArrayKey = QStringLiteral("drives");
inline const QString HXDTestResultPartitionMapIsValidKey = QStringLiteral("partitionMapIsValid");
inline const QString HXDTestResultVolumesArrayKey = QStringLiteral("volumes");
inline const QString HXDTestResultVolumeNameKey = QStringLiteral("volumeName");
inline const QString HXDTestResultVolumeIsValidKey = QStringLiteral("volumeIsValid");
inline const QString HXDTestResultProblemFiles = QStringLiteral("problemFiles");
inline const QString HXDTestResultTypeKey = QStringLiteral("type");
inline const QString HXDiskKey = QStringLiteral("disk");
inline const QString HXDTestResultIsCompletedKey = QStringLiteral("isCompleted");
inline const QString HXBSDNameKey = QStringLiteral("bsdName");
inline const QString HXVolumeNameKey = QStringLiteral("volumeName");
inline const QString HXDeviceNameAndSizeKey = QStringLiteral("deviceNameAndSize");
inline const QString HXMediaContentKey = QStringLiteral("mediaContent");

// The log-line break delimiter: readers show the text before it.
inline const QString HXLogEntryBreakDelimiter = QStringLiteral("::");
// The date format of log lines on standard output.
inline const QString HXDTestResultDateFormat = QStringLiteral("yyyy'-'MM'-'dd' 'HH':'mm':'ss'");

// The reporter's notifications and keys.
inline const QString HXStatusReportDidChangeNotification = QStringLiteral("HXStatusDidChangeNotification");
inline const QString HXStatusReportLoadDidFailNotification = QStringLiteral("HXStatusReportLoadDidFailNotification");
inline const QString HXStatusReportLoadErrorKey = QStringLiteral("HXStatusReportLoadErrorKey");
inline const QString HXStatusReportChangedObservingContext = QStringLiteral("HXPropertiesChangedObservingContext");
inline const QString HXStatusReportChangedObservingKeyPath = QStringLiteral("report");
inline const QString HXStatusReportUserInfoKey = QStringLiteral("HXStatusReportUserInfoKey");
inline const QString HXDTestFoundErrorNotification = QStringLiteral("HXDTestFoundErrorNotification");
inline const QString HXDistributedNotificationUserInfoArchivedDataKey =
    QStringLiteral("HXDistributedNotificationUserInfoArchivedDataKey");
inline const QString HXDTestFoundErrorInfoTestNameKey = QStringLiteral("name");
inline const QString HXDTestFoundErrorInfoDiskNameKey = QStringLiteral("diskName");
inline const QString HXDTestFoundErrorInfoBSDNameKey = QStringLiteral("bsdName");
inline const QString HXDTestFoundErrorInfoDescriptionKey = QStringLiteral("description");
inline const QString HXDTestFoundErrorInfoUUIDKey = QStringLiteral("UUID");

// Local notifications between the views and the window, and their keys.
inline const QString HXShowLogViewNotification = QStringLiteral("ShowLogViewNotification");
inline const QString HXUpdateTestStatusNotification = QStringLiteral("UpdateTestStatusNotification");
inline const QString HXTestingFinishedStatusNotification = QStringLiteral("TestingFinishedStatusNotification");
inline const QString HXDebugShowAllNotification = QStringLiteral("DEBUG_SHOW_ALL_NOTIFICATION");
inline const QString HXDidClearReportNotification = QStringLiteral("HXDidClearReport");
inline const QString HXScrollLogViewToTopNotification =
    QStringLiteral("ScrollLogViewToTopNotification");
inline const QString HXShowResultNotification = QStringLiteral("ShowResultNotification");
// Present (any value): the log view scrolls to its top.
inline const QString HXScrollToTopKey = QStringLiteral("ScrollToTop");
// A result's index in the report's test results.
inline const QString HXResultIndexKey = QStringLiteral("ResultIndex");
// The debug switch's value; without it the switch toggles.
inline const QString HXShowAllKey = QStringLiteral("ShowAll");

// The main window's tabs, and the agent's request for one of them. The tab
// identifier key is also the defaults key of the tab to open at the next
// launch.
inline const QString HXTabViewStatusTabIdentifier = QStringLiteral("HXStatusView");
inline const QString HXTabViewLogTabIdentifier = QStringLiteral("HXLogView");
inline const QString HXTabViewAboutTabIdentifier = QStringLiteral("HXAboutView");
inline const QString HXAgentRequestTabViewChangeNotification =
    QStringLiteral("HXAgentRequestTabViewChangeNotification");
inline const QString HXOrvexAppMainWindowTabIDKey = QStringLiteral("HXMainWindowTabIdentifier");

// The worker's broadcast that a live test status changed (no user info).
inline const QString OrvexWorkerDaemonTestStatusChangedNotification =
    QStringLiteral("OrvexWorkerDaemonTestStatusChangedNotification");
