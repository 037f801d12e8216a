#pragma once

#include <QString>

// What a screen reader says for the status tab: each status in words, the
// colours and images of the tab being of no use to a listener. No pixels
// here, so that the words can be checked on their own.
namespace HXAccessibleWords {

// A group's status as its panel shows it (0 no result, 1 passed,
// 2 warning, 3 error): "Pending", "Passed", "Warning", "Failed".
QString groupStatus(qint32 code);
// One test of a group (the group codes, and 4 not applicable).
QString testStatus(qint32 code);
// A live test icon (0 pending, 1 not applicable, 2 running, 3 failed,
// 4 passed).
QString liveStatus(qint32 code);

// "Drives: Warning".
QString groupName(const QString &title, qint32 code);
// "Surface Scan: warning".
QString testLineName(const QString &test, qint32 code);
// "SMART: failed".
QString liveIconName(const QString &caption, qint32 code);
// "Show Surface Scan in the log".
QString showInLogName(const QString &test);

} // namespace HXAccessibleWords
