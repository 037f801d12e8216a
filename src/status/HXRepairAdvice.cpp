#include "HXRepairAdvice.h"

#include "HXEndpoints.h"
#include "HXMachineProbes.h"

#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTextCursor>
#include <QTextDocument>

namespace {

QStringList g_applicationFolders;

QString text(const char *key)
{
    return HXRepairAdvice::localizedString(key);
}

// The [Desktop Entry] keys of a desktop file; empty when it is not one.
QHash<QString, QString> readDesktopEntry(const QString &path)
{
    QHash<QString, QString> keys;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return keys;
    bool inEntry = false;
    bool sawEntry = false;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.startsWith(QLatin1Char('['))) {
            inEntry = line == QLatin1String("[Desktop Entry]");
            sawEntry = sawEntry || inEntry;
            continue;
        }
        const qsizetype equals = line.indexOf(QLatin1Char('='));
        if (inEntry && equals > 0 && !line.startsWith(QLatin1Char('#')))
            keys.insert(line.left(equals).trimmed(), line.mid(equals + 1).trimmed());
    }
    if (!sawEntry)
        keys.clear();
    return keys;
}

// Up to three integers, "." skipped: "5.7.2" gives 5, 7, 2.
QList<int> versionNumbers(const QString &version)
{
    QList<int> numbers;
    static const QRegularExpression digits(QStringLiteral("\\d+"));
    auto it = digits.globalMatch(version);
    while (it.hasNext() && numbers.size() < 3)
        numbers.append(it.next().captured().toInt());
    return numbers;
}

// The desktop entries of the application names links use.
QString applicationIdForName(const QString &name)
{
    if (name == QLatin1String("Disk Utility"))
        return {};
    static const QRegularExpression edition(QStringLiteral("^Ombrel Pro(?: (\\d+))?$"));
    const QRegularExpressionMatch match = edition.match(name);
    if (match.hasMatch())
        return QStringLiteral("com.talvorn.ombrelpro") + match.captured(1);
    return {};
}

} // namespace

QString HXRepairAdvice::title(HXTest test)
{
    switch (test) {
    case HXTest::Memory:
        return text("MemoryCheckRepairTitle");
    case HXTest::SMART:
        return text("SMARTCheckRepairTitle");
    case HXTest::VolumeStructures:
        return text("VolumeStructuresRepairTitle");
    case HXTest::SurfaceScan:
        return text("SurfaceScanRepairTitle");
    case HXTest::FileStructures:
        return text("FileStructuresRepairTitle");
    case HXTest::RAID:
        return text("RAID Check Repair Title");
    case HXTest::Battery:
        return text("BatteryCheckRepairTitle");
    case HXTest::IO:
        return text("IOCheckRepairTitle");
    case HXTest::POST:
        return text("POSTRepairTitle");
    case HXTest::PartitionMap:
        return text("PartitionMapRepairTitle");
    }
    return {};
}

QString HXRepairAdvice::advice(HXTest test)
{
    switch (test) {
    case HXTest::Memory:
        return text("MemoryCheckRepairAdvice");
    case HXTest::SMART:
        return text("SMARTCheckRepairAdvice");
    case HXTest::VolumeStructures:
        return text("VolumeStructuresRepairAdvice");
    case HXTest::SurfaceScan:
        return text("SurfaceScanRepairAdvice");
    case HXTest::FileStructures:
        return text("FileStructuresRepairAdvice");
    case HXTest::RAID:
        return text("RAIDCheckRepairAdvice");
    case HXTest::Battery:
        return text("BatteryCheckRepairAdvice");
    case HXTest::IO:
        return text("IOCheckRepairAdvice");
    case HXTest::POST:
        return text("POSTRepairAdvice");
    case HXTest::PartitionMap:
        return text("PartitionMapRepairAdvice");
    }
    return {};
}

QStringList HXRepairAdvice::repairToolSentences()
{
    return {text("DiskUtilityExtraAdvice"), text("OmbrelProOutOfDateExtraAdvice"), text("OmbrelPro5ExtraAdvice"),
            text("OmbrelPro6ExtraAdvice")};
}

void HXRepairAdvice::setApplicationFolders(const QStringList &folders)
{
    g_applicationFolders = folders;
}

QString HXRepairAdvice::desktopEntry(const QString &applicationId)
{
    const QString file = applicationId + QStringLiteral(".desktop");
    if (g_applicationFolders.isEmpty())
        return QStandardPaths::locate(QStandardPaths::ApplicationsLocation, file);
    for (const QString &folder : std::as_const(g_applicationFolders)) {
        const QString path = QDir(folder).filePath(file);
        if (QFile::exists(path))
            return path;
    }
    return {};
}

int HXRepairAdvice::ombrelProExists()
{
    const std::pair<const char *, int> versioned[] = {
        {"com.talvorn.ombrelpro8", 8}, {"com.talvorn.ombrelpro7", 7}, {"com.talvorn.ombrelpro6", 6}, {"com.talvorn.ombrelpro5", 5}};
    for (const auto &[id, code] : versioned) {
        const QString path = desktopEntry(QString::fromLatin1(id));
        if (path.isEmpty())
            continue;
        const QHash<QString, QString> entry = readDesktopEntry(path);
        if (entry.isEmpty())
            continue; // not a desktop entry: as if absent
        if (code != 5)
            return code;
        const QList<int> version = versionNumbers(entry.value(QStringLiteral("X-Bundle-Short-Version")));
        return version.value(1) < 7 ? 4 : 5;
    }
    const std::pair<const char *, int> older[] = {
        {"com.talvorn.ombrelpro4", 3}, {"com.talvorn.ombrelpro3", 2}, {"com.talvorn.ombrelpro2", 1}, {"com.talvorn.ombrelpro", 0}};
    for (const auto &[id, code] : older) {
        if (!desktopEntry(QString::fromLatin1(id)).isEmpty())
            return code;
    }
    return kNoRepairTool;
}

int HXRepairAdvice::ombrelVersionWorksWithOSVersion(int t, int m)
{
    if (t == kNoRepairTool)
        return 0;
    if (m >= 8 && t == 8)
        return 3;
    if (m >= 7)
        return t == 6 || t == 7 ? 3 : 1;
    if (m == 6) {
        if (t == 6 || t == 7)
            return 3;
        return t == 5 ? 2 : 1;
    }
    return 1;
}

int HXRepairAdvice::ombrelVersionWorksWithOSVersion()
{
    return ombrelVersionWorksWithOSVersion(ombrelProExists(), HXSystemVersion::current().minor);
}

QString HXRepairAdvice::hardwareAdvice(bool batteryExists)
{
    if (batteryExists)
        return QStringLiteral("%1\n%2\n\n%3\n%4")
            .arg(title(HXTest::Memory), advice(HXTest::Memory), title(HXTest::Battery), advice(HXTest::Battery));
    return QStringLiteral("%1\n%2").arg(title(HXTest::Memory), advice(HXTest::Memory));
}

QString HXRepairAdvice::systemAdvice(const QString &repairSentence)
{
    return QStringLiteral("%1\n%2\n\n%3\n\n%4%5%6\n%7")
        .arg(title(HXTest::IO), advice(HXTest::IO), repairSentence, QString(), QString(), title(HXTest::POST),
             advice(HXTest::POST));
}

QString HXRepairAdvice::drivesAdvice(const QString &repairSentence, bool raidExists, bool smartExists)
{
    QString text;
    text += QStringLiteral("%1\n%2\n\n").arg(title(HXTest::VolumeStructures), advice(HXTest::VolumeStructures));
    text += QStringLiteral("%1\n\n").arg(repairSentence);
    text += QStringLiteral("%1\n%2\n\n").arg(title(HXTest::PartitionMap), advice(HXTest::PartitionMap));
    if (raidExists)
        text += QStringLiteral("%1\n%2\n\n").arg(title(HXTest::RAID), advice(HXTest::RAID));
    text += QStringLiteral("%1\n%2\n\n").arg(title(HXTest::SurfaceScan), advice(HXTest::SurfaceScan));
    if (smartExists)
        text += QStringLiteral("%1\n%2\n\n").arg(title(HXTest::SMART), advice(HXTest::SMART));
    return text;
}

QString HXRepairAdvice::filesAdvice()
{
    return QStringLiteral("%1\n%2").arg(title(HXTest::FileStructures), advice(HXTest::FileStructures));
}

QString HXRepairAdvice::singleTestAdvice(HXTest test, const QString &repairSentence)
{
    if (test == HXTest::VolumeStructures || test == HXTest::SurfaceScan || test == HXTest::IO)
        return QStringLiteral("%1\n\n%2").arg(advice(test), repairSentence);
    return advice(test);
}

QString HXRepairAdvice::ombrelLink(int code)
{
    switch (code) {
    case 4:
        return QStringLiteral("x-application://Ombrel%20Pro%205.app");
    case 6:
        return QStringLiteral("x-application://Ombrel%20Pro%206.app");
    case 7:
        return QStringLiteral("x-application://Ombrel%20Pro%207.app");
    case 8:
        return QStringLiteral("x-application://Ombrel%20Pro%208.app");
    default:
        return {};
    }
}

QString HXRepairAdvice::productPageLink()
{
    return HXEndpoints::current().repairToolPage();
}

void HXRepairAdvice::linkifyTaggedString(QTextDocument *document, const QFont &font, int code)
{
    linkifyStartTag(document, QStringLiteral("<Disk Utility>"), QStringLiteral("</Disk Utility>"),
                    QStringLiteral("x-application://Disk%20Utility.app"), font);
    linkifyStartTag(document, QStringLiteral("<Purchase>"), QStringLiteral("</Purchase>"), productPageLink(), font);
    // Only the editions that can be opened by name get their link.
    if (const QString link = ombrelLink(code); !link.isEmpty())
        linkifyStartTag(document, QStringLiteral("<Ombrel>"), QStringLiteral("</Ombrel>"), link, font);
    linkifyStartTag(document, QStringLiteral("<Upgrade>"), QStringLiteral("</Upgrade>"), productPageLink(), font);
    linkifyStartTag(document, QStringLiteral("<u>"), QStringLiteral("</u>"), QString(), font);
}

void HXRepairAdvice::linkifyStartTag(QTextDocument *document, const QString &startTag, const QString &endTag,
                                     const QString &link, const QFont &font)
{
    QTextCharFormat format;
    format.setFont(font);
    if (link.isEmpty()) {
        format.setFontWeight(QFont::Bold);
        format.setFontUnderline(true);
    } else {
        format.setAnchor(true);
        format.setAnchorHref(link);
        format.setForeground(QColor(0xf0, 0x8a, 0x24));
    }
    auto characters = [document] {
        // The document's characters, with one paragraph separator between blocks.
        return document->toPlainText();
    };
    qsizetype start = characters().indexOf(startTag);
    while (start >= 0) {
        const QString all = characters();
        const qsizetype end = all.indexOf(endTag, start);
        if (end < 0)
            return; // an opening tag without its end: left as it is
        const qsizetype innerStart = start + startTag.size();
        const QString inner = all.mid(innerStart, end - innerStart);
        const qsizetype endedAt = end + endTag.size();
        QTextCursor span(document);
        span.setPosition(int(start));
        span.setPosition(int(endedAt), QTextCursor::KeepAnchor);
        span.removeSelectedText();
        span.insertText(inner);
        QTextCursor styled(document);
        styled.setPosition(int(start));
        styled.setPosition(int(start + inner.size()), QTextCursor::KeepAnchor);
        styled.setCharFormat(format);
        // The search goes on from where the end tag ended before the span
        // shrank, so a tag just after this one is passed over.
        const QString shortened = characters();
        if (endedAt > shortened.size())
            return;
        start = shortened.indexOf(startTag, endedAt);
    }
}

bool HXRepairAdvice::clickedOnLink(const QString &link)
{
    static const QString scheme = QStringLiteral("x-application://");
    if (!link.startsWith(scheme, Qt::CaseInsensitive))
        return false;
    QString name = QUrl::fromPercentEncoding(link.mid(scheme.size()).toUtf8());
    while (name.endsWith(QLatin1Char('/')))
        name.chop(1);
    if (name.endsWith(QLatin1String(".app")))
        name.chop(4);
    if (name == QLatin1String("Disk Utility"))
        openDiskUtil();
    else if (const QString id = applicationIdForName(name); !id.isEmpty())
        launchDesktopEntry(id);
    return true;
}

void HXRepairAdvice::openOmbrel(int code)
{
    static const char *const ids[] = {"com.talvorn.ombrelpro",  "com.talvorn.ombrelpro2", "com.talvorn.ombrelpro3",
                                      "com.talvorn.ombrelpro4", "com.talvorn.ombrelpro5", "com.talvorn.ombrelpro5",
                                      "com.talvorn.ombrelpro6", "com.talvorn.ombrelpro7", "com.talvorn.ombrelpro8"};
    if (code < 0 || code > 8)
        return;
    launchDesktopEntry(QString::fromLatin1(ids[code]));
}

void HXRepairAdvice::openDiskUtil()
{
    for (const char *id : {"org.gnome.DiskUtility", "org.kde.partitionmanager"}) {
        if (launchDesktopEntry(QString::fromLatin1(id)))
            return;
    }
}

bool HXRepairAdvice::launchDesktopEntry(const QString &applicationId)
{
    const QString path = desktopEntry(applicationId);
    if (path.isEmpty())
        return false;
    QString exec = readDesktopEntry(path).value(QStringLiteral("Exec"));
    // Field codes (%f, %U, ...) stand for files and URLs; none are passed.
    static const QRegularExpression fieldCode(QStringLiteral("\\s*%[fFuUdDnNickvm]"));
    exec.remove(fieldCode);
    exec.replace(QStringLiteral("%%"), QStringLiteral("%"));
    QStringList command = QProcess::splitCommand(exec);
    if (command.isEmpty())
        return false;
    const QString program = command.takeFirst();
    return QProcess::startDetached(program, command);
}
