// Repair advice: the texts, the repair-tool rules, the tags made links, and
// the links opened.
#include "HXRepairAdvice.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QTextBlock>
#include <QTextDocument>
#include <QTranslator>

namespace {
// The runs of a document: text with its link, or "*" for a bold underlined title.
QStringList runs(const QTextDocument &document)
{
    QStringList out;
    for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
        for (auto it = block.begin(); !it.atEnd(); ++it) {
            const QTextFragment fragment = it.fragment();
            const QTextCharFormat f = fragment.charFormat();
            if (f.isAnchor())
                out.append(fragment.text() + QStringLiteral(" -> ") + f.anchorHref());
            else if (f.fontUnderline() && f.fontWeight() == QFont::Bold)
                out.append(QStringLiteral("*") + fragment.text());
        }
    }
    return out;
}

// A translation that knows one key of one context.
class OneKeyTranslator : public QTranslator
{
public:
    OneKeyTranslator(const char *context, const char *key, const QString &text)
        : m_context(context)
        , m_key(key)
        , m_text(text)
    {
    }
    bool isEmpty() const override { return false; }
    QString translate(const char *context, const char *source, const char *, int) const override
    {
        return qstrcmp(context, m_context) == 0 && qstrcmp(source, m_key) == 0 ? m_text : QString();
    }

private:
    const char *m_context;
    const char *m_key;
    QString m_text;
};
} // namespace

class TestRepairAdvice : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_apps;
    QTemporaryDir m_root;

    void install(const QString &id, const QByteArray &body)
    {
        QFile entry(m_apps.filePath(id + QStringLiteral(".desktop")));
        QVERIFY(entry.open(QIODevice::WriteOnly | QIODevice::Truncate));
        entry.write(body);
    }
    void uninstallAll()
    {
        const QStringList entries = QDir(m_apps.path()).entryList(QDir::Files);
        for (const QString &entry : entries)
            QFile::remove(m_apps.filePath(entry));
    }

private Q_SLOTS:
    void initTestCase()
    {
        HXRepairAdvice::setApplicationFolders({m_apps.path()});
        // The links read the endpoints: none installed or set here.
        QVERIFY(m_root.isValid());
        qputenv("ORVEX_ROOT", m_root.path().toUtf8());
        qputenv("XDG_CONFIG_HOME", m_root.filePath(QStringLiteral("config")).toUtf8());
        qunsetenv("ORVEX_REPAIR_TOOL_PAGE");
    }
    void init() { uninstallAll(); }

    void texts_data()
    {
        QTest::addColumn<int>("test");
        QTest::addColumn<QString>("opening");
        QTest::addColumn<int>("paragraphs");
        QTest::newRow("memory") << int(HXTest::Memory)
                                << "The Memory test checks available free memory (RAM - Random Access Memory) for errors." << 3;
        QTest::newRow("smart") << int(HXTest::SMART) << "SMART stands for Self-Monitoring Analysis and Reporting Technology." << 2;
        QTest::newRow("volumes")
            << int(HXTest::VolumeStructures)
            << "There are a number of invisible files, settings, and parameters that the file "
               "system "
               "uses to locate files, free disk space, and for other maintenance and management "
               "routines on drives, or volumes."
            << 2;
        QTest::newRow("surface") << int(HXTest::SurfaceScan) << "Surface Scan checks a hard drive for bad blocks or sectors." << 2;
        QTest::newRow("files") << int(HXTest::FileStructures)
                               << "The File Structures test checks a variety of file types for corruption." << 2;
        QTest::newRow("raid") << int(HXTest::RAID)
                              << "RAID stands for Redundant Array of Independent Disks, and can take a variety of forms." << 2;
        QTest::newRow("battery")
            << int(HXTest::Battery)
            << "Laptop computers use lithium-ion batteries to operate when not plugged in." << 2;
        QTest::newRow("io") << int(HXTest::IO) << "I/O Check monitors your system for input and output (i/o) errors." << 2;
        QTest::newRow("post") << int(HXTest::POST)
                              << "The Power On Self-Test is a set of tests embedded in the "
                                 "firmware of the computer and "
                                 "only runs during system power up."
                              << 5;
        QTest::newRow("partition map") << int(HXTest::PartitionMap)
                                       << "The partition map is the portion of the disk that defines how the drive is divided up." << 2;
    }

    void texts()
    {
        QFETCH(int, test);
        QFETCH(QString, opening);
        QFETCH(int, paragraphs);
        const QString text = HXRepairAdvice::advice(HXTest(test));
        QVERIFY2(text.startsWith(opening), qPrintable(text.left(120)));
        QCOMPARE(text.split(QStringLiteral("\n\n")).size(), paragraphs);
        QVERIFY(HXRepairAdvice::title(HXTest(test)).startsWith(QLatin1String("<u>")));
    }

    void textDetails()
    {
        const QString post = HXRepairAdvice::advice(HXTest::POST);
        QVERIFY(post.split(QStringLiteral("\n\n"))[1].startsWith(
            QLatin1String("Orvex checks the last result of the Power On Self-Test with either a pass or failure result.")));
        for (const char *beep : {"1 beep  = No RAM installed.", "2 beeps = Incompatible RAM types installed.",
                                 "3 beeps = No good banks.",
                                 "4 beeps = No good boot images in the boot ROM or bad system configuration block.",
                                 "5 beeps = Processor is not usable."})
            QVERIFY(post.contains(QLatin1String(beep)));
        QCOMPARE(HXRepairAdvice::advice(HXTest::PartitionMap).split(QStringLiteral("\n\n"))[1],
                 QStringLiteral("If Orvex finds a problem with the partition map, it can be repaired using <Disk Utility>Disk "
                                "Utility</Disk Utility>. Select the hardware identifier for the drive, and from the First Aid "
                                "tab, click Repair Disk. "));
        QCOMPARE(HXRepairAdvice::title(HXTest::RAID), QStringLiteral("<u>RAID</u>"));
        QVERIFY(HXRepairAdvice::repairToolSentences()[1].contains(QLatin1String("out of date.  You can upgrade")));
        // A desktop without a battery: the memory paragraphs alone.
        QCOMPARE(HXRepairAdvice::hardwareAdvice(false),
                 HXRepairAdvice::title(HXTest::Memory) + QLatin1Char('\n') + HXRepairAdvice::advice(HXTest::Memory));
    }

    // The words of another platform's machines and tools, read by nobody here.
    void theTextsSpeakOfThisSystem()
    {
        const QRegularExpression foreign(
            QStringLiteral("Macintosh|MacBook|Mac OS|\\bMac\\b|Energy Saver|Finder|"
                           "ROM of the"));
        QStringList texts = HXRepairAdvice::repairToolSentences();
        for (int t = 0; t < HXTestCount; ++t)
            texts << HXRepairAdvice::title(HXTest(t)) << HXRepairAdvice::advice(HXTest(t));
        texts << HXRepairAdvice::hardwareAdvice(true) << HXRepairAdvice::systemAdvice(QString())
              << HXRepairAdvice::drivesAdvice(QString(), true, true)
              << HXRepairAdvice::filesAdvice();
        for (const QString &text : std::as_const(texts)) {
            const QRegularExpressionMatch found = foreign.match(text);
            QVERIFY2(!found.hasMatch(),
                     qPrintable(found.captured() + QStringLiteral(" in: ") + text.left(100)));
        }
    }

    // Only the English changed: a translation still finds its text by the old key.
    void aTranslationFindsItsTextByTheKey()
    {
        OneKeyTranslator german("RepairAdvice", "BatteryCheckRepairAdvice",
                                QStringLiteral("Akku-Ratschlag"));
        QVERIFY(QCoreApplication::installTranslator(&german));
        const QString translated = HXRepairAdvice::advice(HXTest::Battery);
        QCoreApplication::removeTranslator(&german);
        QCOMPARE(translated, QStringLiteral("Akku-Ratschlag"));
        QVERIFY(
            HXRepairAdvice::advice(HXTest::Battery).startsWith(QLatin1String("Laptop computers")));
    }

    void slotRule_data()
    {
        QTest::addColumn<int>("tool");
        QTest::addColumn<int>("minor");
        QTest::addColumn<int>("slot");
        QTest::newRow("none") << 9 << 15 << 0;
        QTest::newRow("8 on 10.8") << 8 << 8 << 3;
        QTest::newRow("8 on 10.7: out of date") << 8 << 7 << 1;
        QTest::newRow("7 on 10.7") << 7 << 7 << 3;
        QTest::newRow("5 on 10.9: out of date") << 5 << 9 << 1;
        QTest::newRow("5.7 on 10.6") << 5 << 6 << 2;
        QTest::newRow("5.6 on 10.6") << 4 << 6 << 1;
        QTest::newRow("6 on 10.6") << 6 << 6 << 3;
        QTest::newRow("6 on 10.5") << 6 << 5 << 1;
        QTest::newRow("unnumbered on 10.15") << 0 << 15 << 1;
    }

    void slotRule()
    {
        QFETCH(int, tool);
        QFETCH(int, minor);
        QFETCH(int, slot);
        QCOMPARE(HXRepairAdvice::ombrelVersionWorksWithOSVersion(tool, minor), slot);
    }

    void installedTool()
    {
        QCOMPARE(HXRepairAdvice::ombrelProExists(), 9);
        install(QStringLiteral("com.talvorn.ombrelpro"), "[Desktop Entry]\nName=Ombrel Pro\nExec=true\n");
        QCOMPARE(HXRepairAdvice::ombrelProExists(), 0);
        install(QStringLiteral("com.talvorn.ombrelpro5"), "[Desktop Entry]\nName=Ombrel Pro 5\nX-Bundle-Short-Version=5.6.9\n");
        QCOMPARE(HXRepairAdvice::ombrelProExists(), 4);
        install(QStringLiteral("com.talvorn.ombrelpro5"), "[Desktop Entry]\nName=Ombrel Pro 5\nX-Bundle-Short-Version=5.7\n");
        QCOMPARE(HXRepairAdvice::ombrelProExists(), 5);
        // An entry that is no desktop entry is passed over.
        install(QStringLiteral("com.talvorn.ombrelpro8"), "garbage\n");
        QCOMPARE(HXRepairAdvice::ombrelProExists(), 5);
        install(QStringLiteral("com.talvorn.ombrelpro6"), "[Desktop Entry]\nName=Ombrel Pro 6\n");
        QCOMPARE(HXRepairAdvice::ombrelProExists(), 6);
    }

    void tagsBecomeLinksAndTitles()
    {
        QFont font;
        font.setPointSize(20);
        QTextDocument drives;
        drives.setPlainText(HXRepairAdvice::drivesAdvice(HXRepairAdvice::repairToolSentences()[0], false, true));
        HXRepairAdvice::linkifyTaggedString(&drives, font, 9);
        const QString text = drives.toPlainText();
        QVERIFY(!text.contains(QLatin1Char('<')));
        QVERIFY(text.contains(QLatin1String("You can use Disk Utility to repair this issue, or you can purchase Ombrel Pro.")));
        const QStringList found = runs(drives);
        QVERIFY(found.contains(QStringLiteral("Disk Utility -> x-application://Disk%20Utility.app")));
        QVERIFY(found.contains(QStringLiteral("Ombrel Pro -> http://www.talvorn.example/ombrelpro/")));
        QVERIFY(found.contains(QStringLiteral("*SMART")));
        QVERIFY(!found.contains(QStringLiteral("*RAID"))); // no array: no RAID paragraphs

        // Edition 5.7 on 10.6: no link is made, and its tags stay as typed.
        QTextDocument older;
        older.setPlainText(HXRepairAdvice::repairToolSentences()[HXRepairAdvice::ombrelVersionWorksWithOSVersion(5, 6)]);
        HXRepairAdvice::linkifyTaggedString(&older, font, 5);
        QVERIFY(older.toPlainText().contains(QLatin1String("<Ombrel>Ombrel Pro</Ombrel>")));
        QVERIFY(runs(older).contains(QStringLiteral("Ombrel Pro -> http://www.talvorn.example/ombrelpro/"))); // the upgrade link
        QTextDocument six;
        six.setPlainText(HXRepairAdvice::repairToolSentences()[3]);
        HXRepairAdvice::linkifyTaggedString(&six, font, 6);
        QVERIFY(runs(six).contains(QStringLiteral("Ombrel Pro -> x-application://Ombrel%20Pro%206.app")));
    }

    void theRepairToolLinksFollowTheEndpoints()
    {
        qputenv("ORVEX_REPAIR_TOOL_PAGE", "http://127.0.0.1:8080/tool/");
        const auto restore = qScopeGuard([] { qunsetenv("ORVEX_REPAIR_TOOL_PAGE"); });
        QTextDocument upgrade;
        upgrade.setPlainText(HXRepairAdvice::repairToolSentences()[HXRepairAdvice::ombrelVersionWorksWithOSVersion(5, 6)]);
        HXRepairAdvice::linkifyTaggedString(&upgrade, QFont(), 5);
        QVERIFY(runs(upgrade).contains(QStringLiteral("Ombrel Pro -> http://127.0.0.1:8080/tool/")));
        QTextDocument purchase;
        purchase.setPlainText(HXRepairAdvice::repairToolSentences()[0]);
        HXRepairAdvice::linkifyTaggedString(&purchase, QFont(), HXRepairAdvice::kNoRepairTool);
        QVERIFY(runs(purchase).contains(QStringLiteral("Ombrel Pro -> http://127.0.0.1:8080/tool/")));
    }

    void searchResumesWhereTheTagEndedBefore()
    {
        QFont font;
        QTextDocument close;
        // Fewer characters between the spans than the two tags' length (7).
        close.setPlainText(QStringLiteral("<u>A</u> x <u>B</u> and far, far away <u>C</u>"));
        HXRepairAdvice::linkifyStartTag(&close, QStringLiteral("<u>"), QStringLiteral("</u>"), QString(), font);
        QCOMPARE(close.toPlainText(), QStringLiteral("A x <u>B</u> and far, far away C"));
        QCOMPARE(runs(close), QStringList({QStringLiteral("*A"), QStringLiteral("*C")}));
        // A span at the very end: the resumption index lies past the text.
        QTextDocument last;
        last.setPlainText(QStringLiteral("ab<u>SMART</u>"));
        HXRepairAdvice::linkifyStartTag(&last, QStringLiteral("<u>"), QStringLiteral("</u>"), QString(), font);
        QCOMPARE(last.toPlainText(), QStringLiteral("abSMART"));
        // An opening tag without its end is left alone.
        QTextDocument open;
        open.setPlainText(QStringLiteral("<u>never closed"));
        HXRepairAdvice::linkifyStartTag(&open, QStringLiteral("<u>"), QStringLiteral("</u>"), QString(), font);
        QCOMPARE(open.toPlainText(), QStringLiteral("<u>never closed"));
    }

    void linksOpenTheirApplication()
    {
        QTemporaryDir marks;
        auto entry = [&](const char *name) {
            return QByteArray("[Desktop Entry]\nType=Application\nName=X\nExec=touch ") +
                   marks.filePath(QString::fromLatin1(name)).toUtf8() + " %U\n";
        };
        install(QStringLiteral("org.gnome.DiskUtility"), entry("disks"));
        install(QStringLiteral("com.talvorn.ombrelpro6"), entry("ombrel6"));
        QVERIFY(HXRepairAdvice::clickedOnLink(QStringLiteral("x-application://Disk%20Utility.app")));
        QTRY_VERIFY(QFile::exists(marks.filePath(QStringLiteral("disks"))));
        QVERIFY(HXRepairAdvice::clickedOnLink(QStringLiteral("x-application://Ombrel%20Pro%206.app")));
        QTRY_VERIFY(QFile::exists(marks.filePath(QStringLiteral("ombrel6"))));
        QVERIFY(!HXRepairAdvice::clickedOnLink(HXRepairAdvice::productPageLink()));

        // Disks missing: the KDE partition manager stands in; neither: nothing, silently.
        QFile::remove(m_apps.filePath(QStringLiteral("org.gnome.DiskUtility.desktop")));
        install(QStringLiteral("org.kde.partitionmanager"), entry("partitionmanager"));
        HXRepairAdvice::openDiskUtil();
        QTRY_VERIFY(QFile::exists(marks.filePath(QStringLiteral("partitionmanager"))));
        QFile::remove(marks.filePath(QStringLiteral("ombrel6")));
        HXRepairAdvice::openOmbrel(6);
        QTRY_VERIFY(QFile::exists(marks.filePath(QStringLiteral("ombrel6"))));
        uninstallAll();
        HXRepairAdvice::openDiskUtil();
        HXRepairAdvice::openOmbrel(42);
    }
};

QTEST_MAIN(TestRepairAdvice)
#include "tst_repairadvice.moc"
