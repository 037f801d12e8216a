#include "HXAccessibleWords.h"

#include <QCoreApplication>

namespace {

QString word(const char *text)
{
    return QCoreApplication::translate("HXAccessibleWords", text);
}

} // namespace

namespace HXAccessibleWords {

QString groupStatus(qint32 code)
{
    switch (code) {
    case 1:
        return word("Passed");
    case 2:
        return word("Warning");
    case 3:
        return word("Failed");
    default:
        // The panel shows "PENDING..." for everything else too.
        return word("Pending");
    }
}

QString testStatus(qint32 code)
{
    switch (code) {
    case 0:
        return word("no result");
    case 1:
        return word("passed");
    case 2:
        return word("warning");
    case 3:
        return word("failed");
    case 4:
        return word("not applicable");
    default:
        return word("unknown");
    }
}

QString liveStatus(qint32 code)
{
    switch (code) {
    case 0:
        return word("pending");
    case 1:
        return word("not applicable");
    case 2:
        return word("running");
    case 3:
        return word("failed");
    case 4:
        return word("passed");
    default:
        return word("unknown");
    }
}

QString groupName(const QString &title, qint32 code)
{
    return word("%1: %2").arg(title, groupStatus(code));
}

QString testLineName(const QString &test, qint32 code)
{
    return word("%1: %2").arg(test, testStatus(code));
}

QString liveIconName(const QString &caption, qint32 code)
{
    return word("%1: %2").arg(caption, liveStatus(code));
}

QString showInLogName(const QString &test)
{
    return word("Show %1 in the log").arg(test);
}

} // namespace HXAccessibleWords
