#pragma once

#include "HXStatusBoard.h"

#include <QFont>
#include <QString>
#include <QStringList>
#include <QUrl>

class QTextDocument;

// The advice around an open result box: titles and help texts of the tests,
// the sentence naming the repair tool to use, and the tags in them turned
// into links and titles. No pixels: the status view shows what this makes.
class HXRepairAdvice
{
public:
    // Installed-tool codes: 0 the unnumbered edition ... 8 edition 8, 9 none.
    static constexpr int kNoRepairTool = 9;

    // A text of the "RepairAdvice" table by key: its translation, or English.
    static QString localizedString(const char *key);

    static QString title(HXTest test);
    static QString advice(HXTest test);
    // The four repair-tool sentences, slots 0 to 3.
    static QStringList repairToolSentences();

    // Which edition of Ombrel Pro is installed, asked afresh each time: the
    // desktop entries com.talvorn.ombrelpro8 ... com.talvorn.ombrelpro, their
    // version read from the key X-Bundle-Short-Version.
    static int ombrelProExists();
    // The slot of the repair-tool sentence for tool `code` on 10.`minor`.
    static int ombrelVersionWorksWithOSVersion(int code, int minor);
    static int ombrelVersionWorksWithOSVersion();

    // The advice of a group, as its box shows it.
    static QString hardwareAdvice(bool batteryExists);
    static QString systemAdvice(const QString &repairSentence);
    static QString drivesAdvice(const QString &repairSentence, bool raidExists, bool smartExists);
    static QString filesAdvice();
    static QString singleTestAdvice(HXTest test, const QString &repairSentence);

    // Turns the tags of the document's text into links and titles, pass by
    // pass; `code` is the installed tool, which decides the "<Ombrel>" pass.
    static void linkifyTaggedString(QTextDocument *document, const QFont &font, int code);
    // One pass; an empty link makes a bold underlined title.
    static void linkifyStartTag(QTextDocument *document, const QString &startTag, const QString &endTag,
                                const QString &link, const QFont &font);
    static QString ombrelLink(int code); // empty when no link is made for the code
    // The repair tool's product page, as the endpoints say (HXEndpoints).
    static QString productPageLink();

    // A click on a link (the href as written: "x-application://Disk%20Utility.app"
    // is no valid URL, its host holding a blank): an "x-application" link
    // launches the application and is handled; any other is left to the browser.
    static bool clickedOnLink(const QString &link);
    static void openOmbrel(int code);
    static void openDiskUtil();

    // Where applications' desktop entries are looked up (tests point it at
    // a folder of their own); empty restores the XDG application folders.
    static void setApplicationFolders(const QStringList &folders);
    // The desktop entry of an application id, or empty.
    static QString desktopEntry(const QString &applicationId);
    // Launches a desktop entry; false when it is not installed or did not start.
    static bool launchDesktopEntry(const QString &applicationId);
};
