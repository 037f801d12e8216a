// The status tab for the keyboard and for a screen reader, in process: what
// the accessibility interfaces say of each status (the announcements of a
// change need a platform bridge: tests/a11y hears them on AT-SPI), the
// advice as text with links, and the result box opened, closed
// and left by the keyboard alone.
#include "HXAnimationTiming.h"
#include "HXDBusNames.h"
#include "HXGroupViews.h"
#include "HXIconAnimate.h"
#include "HXKeyboardFocus.h"
#include "HXMachineProbes.h"
#include "HXNotificationCenter.h"
#include "HXRepairAdvice.h"
#include "HXShapedTextView.h"
#include "HXStatusReporter.h"
#include "HXStatusViewController.h"

#include <QAccessible>
#include <QFile>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTextDocument>

namespace {

QAccessibleInterface *accessible(QObject *object)
{
    QAccessibleInterface *iface = QAccessible::queryAccessibleInterface(object);
    Q_ASSERT(iface);
    return iface;
}

QStringList childNames(QAccessibleInterface *iface)
{
    QStringList names;
    for (int i = 0; i < iface->childCount(); ++i)
        names.append(iface->child(i)->text(QAccessible::Name));
    return names;
}

// Pixels of the window's highlight colour, the keyboard's mark, in `area`.
int highlightPixels(const QImage &image, const QRect &area)
{
    int count = 0;
    const QRect inside = area.intersected(image.rect());
    for (int y = inside.top(); y <= inside.bottom(); ++y) {
        for (int x = inside.left(); x <= inside.right(); ++x) {
            const QColor c = image.pixelColor(x, y);
            if (std::abs(c.red() - 0xf0) < 40 && std::abs(c.green() - 0x8a) < 40 &&
                std::abs(c.blue() - 0x24) < 50)
                ++count;
        }
    }
    return count;
}

} // namespace

class TestAccessibility : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_root;
    HXFakeMachineProbes m_machine;
    HXNotificationCenter m_local;

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_root.isValid());
        qputenv("ORVEX_ROOT", m_root.path().toUtf8());
        qputenv("ORVEX_DAEMON_BUS", "session");
        HXAnimationTiming::setScale(0.02);
        HXMachineProbes::setCurrent(&m_machine);
    }

    void init() { m_machine = HXFakeMachineProbes(); }

    void groupViewReadsAsItsStatus()
    {
        m_machine.raid = false;
        HXDrivesView drives;
        QAccessibleInterface *iface = accessible(&drives);
        QCOMPARE(iface->role(), QAccessible::Button);
        QCOMPARE(iface->text(QAccessible::Name), QStringLiteral("Drives: Pending"));
        QVERIFY(iface->state().focusable);

        drives.setStatusForVolumeStructures(1, 2, 0, 0, 1);
        QCOMPARE(iface->text(QAccessible::Name), QStringLiteral("Drives: Warning"));
        // Inside: each test in words, its arrow by what it does, the close
        // button; no bullet, no nameless part.
        const QStringList parts = childNames(iface);
        QCOMPARE(
            parts,
            QStringList(
                {QStringLiteral("Volume Structures: passed"),
                 QStringLiteral("Show Volume Structures in the log"),
                 QStringLiteral("Partition Map: warning"), QStringLiteral("RAID: not applicable"),
                 QStringLiteral("Show RAID in the log"), QStringLiteral("Surface Scan: no result"),
                 QStringLiteral("Show Surface Scan in the log"), QStringLiteral("SMART: passed"),
                 QStringLiteral("Show SMART in the log"), QStringLiteral("Close")}));
        for (int i = 0; i < iface->childCount(); ++i)
            QCOMPARE(iface->indexOfChild(iface->child(i)), i);
        drives.setStatusForVolumeStructures(3, 2, 0, 0, 1);
        QCOMPARE(iface->text(QAccessible::Name), QStringLiteral("Drives: Failed"));

        // Pressing it through the screen reader is a click.
        QSignalSpy clicked(&drives, &QAbstractButton::clicked);
        QVERIFY(iface->actionInterface()->actionNames().contains(
            QAccessibleActionInterface::pressAction()));
        iface->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
        QCOMPARE(clicked.count(), 1);
    }

    void liveIconSaysItsState()
    {
        HXIconAnimate icon(QStringLiteral("smartOrange"));
        icon.setTitle(QStringLiteral("SMART"));
        QAccessibleInterface *iface = accessible(&icon);
        QCOMPARE(iface->role(), QAccessible::Graphic);
        const QStringList words = {QStringLiteral("pending"), QStringLiteral("not applicable"),
                                   QStringLiteral("running"), QStringLiteral("failed"),
                                   QStringLiteral("passed")};
        for (int status = 4; status >= 0; --status) {
            icon.setStatus(status);
            QCOMPARE(iface->text(QAccessible::Name), QStringLiteral("SMART: ") + words[status]);
        }

        icon.setVisible(true);
        QVERIFY(!iface->state().invisible);
        icon.setFade(0.0);
        QVERIFY(iface->state().invisible);
        icon.setFade(1.0);
        QVERIFY(!iface->state().invisible);
    }

    void adviceIsTextWithLinks()
    {
        HXShapedTextView view;
        auto document = std::make_unique<QTextDocument>();
        document->setPlainText(HXRepairAdvice::drivesAdvice(
            HXRepairAdvice::repairToolSentences().value(0), false, false));
        HXRepairAdvice::linkifyTaggedString(document.get(), view.font(), 9);
        const QString plain = document->toPlainText();
        view.setDocument(std::move(document));
        view.resize(view.sizeHint());
        view.show();

        QAccessibleInterface *iface = accessible(&view);
        QAccessibleTextInterface *text = iface->textInterface();
        QVERIFY(text);
        QVERIFY(iface->state().readOnly);
        QCOMPARE(text->characterCount(), plain.size());
        QCOMPARE(text->text(0, text->characterCount()), plain);
        QVERIFY(plain.startsWith(QLatin1String("Volume Structures\n")));

        // The links, each a child by its words, pressed as a click would.
        QSignalSpy activated(&view, &HXShapedTextView::linkActivated);
        QStringList links;
        for (int i = 0; i < iface->childCount(); ++i) {
            QAccessibleInterface *child = iface->child(i);
            QCOMPARE(child->role(), QAccessible::Link);
            QCOMPARE(child->parent(), iface);
            QCOMPARE(iface->indexOfChild(child), i);
            QVERIFY(view.rect().contains(
                QRect(view.mapFromGlobal(child->rect().topLeft()), child->rect().size())));
            QVERIFY(!child->rect().isEmpty());
            links.append(child->text(QAccessible::Name));
        }
        QVERIFY(links.contains(QStringLiteral("Disk Utility")));
        QVERIFY(links.contains(QStringLiteral("Ombrel Pro")));
        QAccessibleInterface *first = iface->child(0);
        first->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
        QCOMPARE(activated.count(), 1);
        QCOMPARE(activated.first().first().toString(), first->text(QAccessible::Description));
        // The position under a link's middle is inside the link's words.
        const HXShapedTextView::Link link = view.links().first();
        QCOMPARE(plain.mid(link.start, link.length), first->text(QAccessible::Name));
        const int at = text->offsetAtPoint(first->rect().center());
        QVERIFY2(at >= link.start && at < link.start + link.length,
                 qPrintable(QString::number(at)));

        // Another document, other links; no document, none.
        view.clear();
        QCOMPARE(iface->childCount(), 0);
        QCOMPARE(text->characterCount(), 0);
        view.setTextOpacity(0.0);
        QVERIFY(iface->state().invisible);
    }

    void focusMarkOnlyForTheKeyboard()
    {
        HXStatusReporter reporter(HXStatusReporter::Options{
            m_root.filePath(QStringLiteral("Report.zrrpt")), &m_local, nullptr, true});
        HXStatusViewController::Options options;
        options.reporter = &reporter;
        options.localCenter = &m_local;
        options.listenerPort = 0;
        HXStatusViewController c(options);
        QWidget *root = c.view();
        root->resize(884, 500);
        root->show();
        root->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(root));

        HXAnimView *system = c.systemView();
        HXAnimView *drives = c.drivesView();
        const int unmarked = highlightPixels(drives->grab().toImage(), drives->rect());
        // A press of the mouse on a group gives it the focus, unmarked
        // (released elsewhere, so that no box opens).
        QTest::mousePress(drives, Qt::LeftButton, {}, QPoint(20, 20));
        QTest::mouseRelease(drives, Qt::LeftButton, {}, QPoint(-50, -50));
        QCOMPARE(root->focusWidget(), static_cast<QWidget *>(drives));
        QVERIFY(!HXKeyboardFocus::shows(drives));
        QCOMPARE(highlightPixels(drives->grab().toImage(), drives->rect()), unmarked);
        // Shift+Tab and Tab bring it back, marked in the highlight colour.
        QTest::keyClick(drives, Qt::Key_Backtab);
        QCOMPARE(root->focusWidget(), static_cast<QWidget *>(system));
        QVERIFY(HXKeyboardFocus::shows(system));
        QTest::keyClick(system, Qt::Key_Tab);
        QCOMPARE(root->focusWidget(), static_cast<QWidget *>(drives));
        QVERIFY(HXKeyboardFocus::shows(drives));
        const int marked = highlightPixels(drives->grab().toImage(), drives->rect());
        QVERIFY2(marked > unmarked + 300,
                 qPrintable(QStringLiteral("%1 / %2").arg(marked).arg(unmarked)));
        QVERIFY(!HXKeyboardFocus::shows(system));
    }

    void adviceLinksByKeyboard()
    {
        // The advice's first link, Disk Utility, opens the disk utility:
        // here one that leaves a mark.
        QTemporaryDir apps;
        QFile entry(apps.filePath(QStringLiteral("org.gnome.DiskUtility.desktop")));
        QVERIFY(entry.open(QIODevice::WriteOnly));
        entry.write("[Desktop Entry]\nType=Application\nName=Disks\nExec=touch " +
                    apps.filePath(QStringLiteral("opened")).toUtf8() + "\n");
        entry.close();
        HXRepairAdvice::setApplicationFolders({apps.path()});

        HXStatusReporter reporter(HXStatusReporter::Options{
            m_root.filePath(QStringLiteral("Report.zrrpt")), &m_local, nullptr, true});
        HXStatusViewController::Options options;
        options.reporter = &reporter;
        options.localCenter = &m_local;
        options.listenerPort = 0;
        HXStatusViewController c(options);
        QWidget *root = c.view();
        root->resize(884, 500);
        root->show();
        root->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(root));

        HXShapedTextView *advice = c.adviceView();
        c.drivesView()->setFocus(Qt::TabFocusReason);
        QTest::keyClick(c.drivesView(), Qt::Key_Return);
        // The box's stages, then the advice's own fade: a slow machine may
        // not have begun either when the key has been handled.
        QTRY_VERIFY(c.showingBox());
        QTRY_VERIFY(!c.isAnimatingBox());
        QTRY_COMPARE(advice->textOpacity(), 1.0);
        QTRY_COMPARE(root->focusWidget(), static_cast<QWidget *>(c.drivesView()));
        const QList<HXShapedTextView::Link> links = advice->links();
        QVERIFY(links.size() >= 2);
        QCOMPARE(links.first().text, QStringLiteral("Disk Utility"));
        QCOMPARE(advice->focusedLink(), -1);
        const QRect firstLink = advice->textRect(links[0].start, links[0].length)
                                    .toAlignedRect()
                                    .adjusted(-6, -4, 6, 4);
        const int unmarked = highlightPixels(advice->grab().toImage(), firstLink);

        // Tab goes through the box's controls to the first link; the link
        // has the keyboard, for the eye and for a screen reader.
        for (int i = 0; i < 20 && root->focusWidget() != advice; ++i)
            QTest::keyClick(root->focusWidget(), Qt::Key_Tab);
        QCOMPARE(root->focusWidget(), static_cast<QWidget *>(advice));
        QCOMPARE(advice->focusedLink(), 0);
        QAccessibleInterface *iface = accessible(advice);
        QVERIFY(iface->child(0)->state().focusable);
        QVERIFY(iface->child(0)->state().focused);
        QVERIFY(!iface->child(1)->state().focused);
        const int marked = highlightPixels(advice->grab().toImage(), firstLink);
        if (qEnvironmentVariableIsSet("ORVEX_SHOTS"))
            advice->grab().save(qEnvironmentVariable("ORVEX_SHOTS") +
                                QStringLiteral("/a11y-advice-link.png"));
        QVERIFY2(marked > unmarked + 40,
                 qPrintable(QStringLiteral("%1 / %2").arg(marked).arg(unmarked)));

        // Each Tab the next link, Shift+Tab back; past the last, out.
        QTest::keyClick(advice, Qt::Key_Tab);
        QCOMPARE(advice->focusedLink(), 1);
        QVERIFY(iface->child(1)->state().focused);
        QTest::keyClick(advice, Qt::Key_Backtab);
        QCOMPARE(advice->focusedLink(), 0);
        for (qsizetype i = 1; i < links.size(); ++i)
            QTest::keyClick(advice, Qt::Key_Tab);
        QCOMPARE(advice->focusedLink(), int(links.size()) - 1);
        QTest::keyClick(advice, Qt::Key_Tab);
        QVERIFY(root->focusWidget() != advice);
        QCOMPARE(advice->focusedLink(), -1);
        // Shift+Tab comes back in at the last link, and on to the first.
        QTest::keyClick(root->focusWidget(), Qt::Key_Backtab);
        QCOMPARE(root->focusWidget(), static_cast<QWidget *>(advice));
        QCOMPARE(advice->focusedLink(), int(links.size()) - 1);
        for (qsizetype i = 1; i < links.size(); ++i)
            QTest::keyClick(advice, Qt::Key_Backtab);
        QCOMPARE(advice->focusedLink(), 0);

        // Enter does what the link says.
        QSignalSpy activated(advice, &HXShapedTextView::linkActivated);
        QTest::keyClick(advice, Qt::Key_Return);
        QCOMPARE(activated.count(), 1);
        QCOMPARE(activated.first().first().toString(), links[0].href);
        QTRY_VERIFY(QFile::exists(apps.filePath(QStringLiteral("opened"))));

        // Escape closes the box from a link, and the keyboard is back on
        // the group that opened it. Escape works only from a second after
        // the box opened, which a loaded machine may not have reached.
        QTRY_COMPARE(c.drivesView()->closeButton()->shortcut(), QKeySequence(Qt::Key_Escape));
        QTest::keyClick(advice, Qt::Key_Escape);
        QTRY_VERIFY(!c.showingBox());
        QTRY_VERIFY(!c.isAnimatingBox());
        QCOMPARE(root->focusWidget(), static_cast<QWidget *>(c.drivesView()));
        HXRepairAdvice::setApplicationFolders({});
    }

    void keyboardReachesOpensAndLeavesTheBoxes()
    {
        HXStatusReporter reporter(HXStatusReporter::Options{
            m_root.filePath(QStringLiteral("Report.zrrpt")), &m_local, nullptr, true});
        HXStatusViewController::Options options;
        options.reporter = &reporter;
        options.localCenter = &m_local;
        options.listenerPort = 0;
        HXStatusViewController c(options);
        QWidget *root = c.view();
        root->resize(884, 500);
        root->show();
        root->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(root));

        // Tab meets the four groups in reading order, and a screen reader
        // lists them so.
        const QList<QWidget *> readingOrder{c.hardwareView(), c.systemView(), c.drivesView(),
                                            c.filesView()};
        const auto inReadingOrder = [&] {
            c.hardwareView()->setFocus(Qt::TabFocusReason);
            QList<QWidget *> met{c.hardwareView()};
            for (int i = 0; i < 40 && met.size() < 4; ++i) {
                QTest::keyClick(root->focusWidget(), Qt::Key_Tab);
                if (auto *group = qobject_cast<HXAnimView *>(root->focusWidget());
                    group && !met.contains(group))
                    met.append(group);
            }
            QList<QWidget *> listed;
            QAccessibleInterface *panel = accessible(c.statusView());
            for (int i = 0; i < panel->childCount(); ++i) {
                if (auto *group = qobject_cast<HXAnimView *>(panel->child(i)->object()))
                    listed.append(group);
            }
            return met == readingOrder && listed == readingOrder;
        };
        QVERIFY(inReadingOrder());

        // Enter opens a box; the others fade away and are hidden, to the
        // keyboard and to a screen reader; Escape closes it and the keyboard
        // is back on the group.
        c.drivesView()->setFocus(Qt::TabFocusReason);
        QTest::keyClick(c.drivesView(), Qt::Key_Return);
        QCOMPARE(c.showingBox(), c.drivesView());
        QTRY_VERIFY(!c.isAnimatingBox());
        QTRY_VERIFY(c.hardwareView()->isHidden());
        QVERIFY(accessible(c.hardwareView())->state().invisible);
        QVERIFY(!accessible(c.drivesView())->state().invisible);
        // Open, the keyboard is on the box, marked: the keyboard opened it.
        QTRY_COMPARE(root->focusWidget(), static_cast<QWidget *>(c.drivesView()));
        QVERIFY(HXKeyboardFocus::shows(c.drivesView()));
        QTRY_COMPARE(c.drivesView()->closeButton()->shortcut(), QKeySequence(Qt::Key_Escape));
        QTest::keyClick(root->focusWidget(), Qt::Key_Escape);
        QTRY_VERIFY(!c.showingBox());
        QTRY_VERIFY(!c.isAnimatingBox());
        QVERIFY(c.hardwareView()->isVisible());
        QVERIFY(!accessible(c.hardwareView())->state().invisible);
        QCOMPARE(root->focusWidget(), static_cast<QWidget *>(c.drivesView()));
        QVERIFY(HXKeyboardFocus::shows(c.drivesView()));
        QVERIFY(inReadingOrder()); // the group is back in its place

        // Space opens too; the close button, reached by Tab, closes it.
        c.filesView()->setFocus(Qt::TabFocusReason);
        QTest::keyClick(c.filesView(), Qt::Key_Space);
        QCOMPARE(c.showingBox(), c.filesView());
        QTRY_VERIFY(!c.isAnimatingBox());
        QPushButton *close = c.filesView()->closeButton();
        for (int i = 0; i < 20 && root->focusWidget() != close; ++i)
            QTest::keyClick(root->focusWidget(), Qt::Key_Tab);
        QCOMPARE(root->focusWidget(), static_cast<QWidget *>(close));
        QCOMPARE(accessible(close)->text(QAccessible::Name), QStringLiteral("Close"));
        QTest::keyClick(close, Qt::Key_Space);
        QTRY_VERIFY(!c.showingBox());
        QTRY_VERIFY(!c.isAnimatingBox());
        QCOMPARE(root->focusWidget(), static_cast<QWidget *>(c.filesView()));
    }
};

QTEST_MAIN(TestAccessibility)
#include "tst_accessibility.moc"
