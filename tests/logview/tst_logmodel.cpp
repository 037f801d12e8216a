// The log tab's model and outline without daemons: the model's contract
// under QAbstractItemModelTester, the tree it shows for a set of logs, the
// expansions that survive reloads, the result-index arithmetic, the row
// heights, and the print copy as a real PDF.
#include "HXAnimationTiming.h"
#include "HXConstants.h"
#include "HXFindHighlightView.h"
#include "HXLogCell.h"
#include "HXLogEntryText.h"
#include "HXLogOutlineView.h"
#include "HXLogPrintView.h"
#include "HXLogTreeModel.h"
#include "HXLogViewController.h"
#include "HXMachineProbes.h"
#include "HXNotificationCenter.h"
#include "HXStatusReporter.h"
#include "HXSystemLog.h"

#include <QAbstractItemModelTester>
#include <QApplication>
#include <QDir>
#include <QHeaderView>
#include <QMouseEvent>
#include <QProcess>
#include <QScopeGuard>
#include <QScrollBar>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <csignal>
#include <sys/resource.h>

namespace {

const QDate kToday(2024, 3, 14);

QDateTime at(int day, int hour, int minute = 0)
{
    return QDateTime(QDate(2024, 3, day), QTime(hour, minute));
}

HXLogEntryRef entry(const QDateTime &when, const QString &type, const QString &text)
{
    HXLogEntryRef e = HXLogEntry::entryWithTypeCompoundString(type, text);
    e->setTimestamp(when);
    const qsizetype children = e->countOfChildren();
    for (qsizetype i = 0; i < children; ++i)
        e->entryInChildrenAtIndex(i)->setTimestamp(when);
    return e;
}

HXStatusReportRef reportWith(const HXLogEntryList &log)
{
    auto report = HXStatusReport::report();
    report->setLog(log);
    return report;
}

// The tree as a person reads it, one row a line, files indented.
QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString dump(const HXLogTreeModel &model)
{
    QStringList lines;
    for (int row = 0; row < model.rowCount(); ++row) {
        const QModelIndex first = model.index(row, 0);
        if (model.rowKind(first) == HXLogTreeModel::SpacerRow) {
            lines << QStringLiteral("--");
            continue;
        }
        const bool icon = !qvariant_cast<QIcon>(first.data(Qt::DecorationRole)).isNull();
        QString line = QStringLiteral("%1 | %2 | %3")
                           .arg(model.index(row, 1).data().toString(),
                                icon ? QStringLiteral("icon") : QStringLiteral("-"),
                                model.index(row, 2).data().toString());
        if (first.data(HXLogTreeModel::HintRole).toBool())
            line += QStringLiteral(" [hint]");
        lines << line;
        for (int child = 0; child < model.rowCount(first); ++child)
            lines << QStringLiteral("    ") + model.index(child, 2, first).data().toString() +
                         QLatin1Char('|') +
                         model.index(child, 2, first).data(HXLogTreeModel::PathRole).toString();
    }
    return lines.join(QLatin1Char('\n'));
}

} // namespace

class TestLogModel : public QObject
{
    Q_OBJECT

private:
    QStringList m_systemLog;
    QTemporaryDir m_dir;

    HXLogEntryList sampleLog()
    {
        return {
            entry(at(12, 9, 5), QStringLiteral("Passed"),
                  QStringLiteral("Passed: SMART test passed on disk0")),
            entry(at(13, 22), QStringLiteral("Error"),
                  QStringLiteral("Error: File Structures test found 2 damaged "
                                 "files::tail\n/home/a/one.txt,\n/home/a/two.txt")),
            // Written without a type word: no ":" to parse.
            entry(at(14, 8, 30), QStringLiteral("Warning"),
                  QStringLiteral("No colon in this line")),
            // Out of order in the list, newest of all.
            entry(at(14, 10, 45), QStringLiteral("Info"),
                  QStringLiteral("Info:   spaced message  ::x::y")),
            entry(at(14, 9), QStringLiteral("Warning"),
                  QStringLiteral("Warning: ends in a newline\n")),
        };
    }

private Q_SLOTS:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
        HXSystemLog::setSink([this](const QString &line) { m_systemLog << line; });
        HXAnimationTiming::setScale(0.02);
        QVERIFY(m_dir.isValid());
    }

    void modelContractHoldsThroughResetsAndEdits()
    {
        HXLogTreeModel model(nullptr);
        QAbstractItemModelTester tester(&model,
                                        QAbstractItemModelTester::FailureReportingMode::QtTest);
        QCOMPARE(model.rowCount(), 0);
        model.setReport(reportWith(sampleLog()));
        QCOMPARE(model.rowCount(), 5 + 4);
        model.setReport(reportWith({}));
        QCOMPARE(model.rowCount(), 0);
        auto report = reportWith(sampleLog());
        model.setReport(report);
        report->addToLog(
            entry(at(14, 11), QStringLiteral("Passed"), QStringLiteral("Passed: later\n/x")));
        model.reload();
        QCOMPARE(model.rowCount(), 6 + 4);
        QCOMPARE(model.rowCount(model.index(2, 0)), 1);
        // Only the tree column has children; spacers never do.
        QCOMPARE(model.rowCount(model.index(2, 2)), 0);
        QCOMPARE(model.rowCount(model.index(0, 0)), 0);
        QVERIFY(!model.index(0, 0, model.index(0, 0)).isValid());
    }

    void treeShowsSpacersChildrenParseFailuresAndCommas()
    {
        HXLogTreeModel model(nullptr);
        model.setToday(kToday);
        m_systemLog.clear();
        model.setReport(reportWith(sampleLog()));
        const QString expected =
            QStringLiteral("--\n"
                           "--\n"
                           "10:45 AM | - | spaced message\n"
                           "9:00 AM | icon | ends in a newline [hint]\n"
                           "     |\n"
                           "8:30 AM | icon | No colon in this line\n"
                           "3/13/24 | icon | File Structures test found 2 damaged files [hint]\n"
                           "    one.txt |/home/a/one.txt\n"
                           "    two.txt |/home/a/two.txt\n"
                           "3/12/24 | icon | SMART test passed on disk0\n"
                           "--\n"
                           "--");
        QCOMPARE(dump(model), expected);
        QVERIFY(
            m_systemLog.contains(QStringLiteral("Error parsing log entry: No colon in this line")));
        // One entry: two blank rows above and two below.
        model.setReport(reportWith({sampleLog().first()}));
        QCOMPARE(dump(model),
                 QStringLiteral("--\n--\n3/12/24 | icon | SMART test passed on disk0\n--\n--"));
    }

    void rowsReadAsDateTypeAndMessage()
    {
        HXLogTreeModel model(nullptr);
        model.setToday(kToday);
        model.setReport(reportWith(sampleLog()));
        QCOMPARE(
            model.index(5, 2).data(Qt::AccessibleTextRole).toString(),
            QStringLiteral("3/13/24, Error, File Structures test found 2 damaged files, 2 files"));
        QCOMPARE(model.index(0, 0, model.index(5, 0)).data(Qt::AccessibleTextRole).toString(),
                 QStringLiteral("3/13/24, File, /home/a/one.txt, not found"));
        QCOMPARE(model.index(0, 1).data(Qt::AccessibleTextRole).toString(),
                 QStringLiteral("Blank row"));
        QVERIFY(model.index(5, 1)
                    .data(Qt::ToolTipRole)
                    .toString()
                    .contains(QLatin1String("March 13, 2024")));
        QVERIFY(!model.index(5, 2).data(Qt::ToolTipRole).isValid());
    }

    void modelFollowsTheReportersEditsAndReplacements()
    {
        HXNotificationCenter center;
        const QString path = m_dir.filePath(QStringLiteral("follow.zrrpt"));
        HXStatusReporter reporter({path, &center, nullptr, false});
        HXLogTreeModel model(&reporter);
        QAbstractItemModelTester tester(&model,
                                        QAbstractItemModelTester::FailureReportingMode::QtTest);
        QCOMPARE(model.rowCount(), 0);
        // In place: the reporter keeps its report and changes it.
        const HXStatusReportRef before = reporter.report();
        QVERIFY(reporter.addLogEntry(
            entry(at(14, 7), QStringLiteral("Error"), QStringLiteral("Error: one"))));
        QCOMPARE(reporter.report(), before);
        QCOMPARE(model.entryCount(), 1);
        QVERIFY(reporter.addLogEntry(
            entry(at(14, 8), QStringLiteral("Passed"), QStringLiteral("Passed: two"))));
        QCOMPARE(model.arrangedEntry(0)->string(), QStringLiteral("Passed: two"));
        // Replaced whole, as a reload from the file does.
        reporter.setReport(reportWith(sampleLog()));
        QCOMPARE(model.entryCount(), 5);
        QVERIFY(reporter.clearReport());
        QCOMPARE(model.rowCount(), 0);
    }

    void expansionsSurviveReloadsAsNewEntriesArriveOnTop()
    {
        auto report = reportWith(sampleLog());
        HXLogTreeModel model(nullptr);
        model.setReport(report);
        HXLogOutlineView outline;
        outline.resize(700, 400);
        outline.setLogModel(&model);
        outline.show();
        QVERIFY(QTest::qWaitForWindowExposed(&outline));
        const auto rowOf = [&](const QString &string) {
            for (int row = 0; row < model.rowCount(); ++row) {
                const HXLogEntryRef e = model.entryForIndex(model.index(row, 0));
                if (e && e->string().startsWith(string))
                    return row;
            }
            return -1;
        };
        const int damaged = rowOf(QStringLiteral("Error: File Structures"));
        QVERIFY(outline.toggleExpansion(model.index(damaged, 2)));
        QVERIFY(!outline.toggleExpansion(model.index(0, 0))); // a spacer
        QVERIFY(outline.isExpanded(model.index(damaged, 0)));

        // Two newer entries: the expanded row moves down by two and stays open.
        report->addToLog(
            entry(at(14, 12), QStringLiteral("Passed"), QStringLiteral("Passed: newer\n/n")));
        report->addToLog(
            entry(at(14, 13), QStringLiteral("Passed"), QStringLiteral("Passed: newest")));
        model.reload();
        QCOMPARE(rowOf(QStringLiteral("Error: File Structures")), damaged + 2);
        QVERIFY(outline.isExpanded(model.index(damaged + 2, 0)));
        QVERIFY(!outline.isExpanded(model.index(rowOf(QStringLiteral("Passed: newer")), 0)));
        QCOMPARE(outline.expandedRows(), (std::set<int>{damaged + 2}));

        // A reload of the same log keeps it where it is; collapsing is kept too.
        model.reload();
        QVERIFY(outline.isExpanded(model.index(damaged + 2, 0)));
        QVERIFY(outline.toggleExpansion(model.index(damaged + 2, 0)));
        model.reload();
        QVERIFY(!outline.isExpanded(model.index(damaged + 2, 0)));
        QVERIFY(outline.expandedRows().empty());
    }

    // Sizing the scroll bar lays out every row of the log: an outline that
    // is hidden (its tab behind another) leaves that until it is shown.
    void aHiddenOutlineLaysOutItsRowsOnlyWhenShown()
    {
        HXLogEntryList log;
        for (int i = 0; i < 200; ++i)
            log << entry(at(1 + i / 60, (i / 60) % 24, i % 60), QStringLiteral("Passed"),
                         QStringLiteral("Passed: test number %1").arg(i));
        HXLogTreeModel model(nullptr);
        model.setReport(reportWith(log));
        QWidget page;
        page.resize(700, 400);
        auto *outline = new HXLogOutlineView(&page);
        outline->resize(700, 400);
        outline->hide();
        outline->setLogModel(&model);
        page.show();
        QVERIFY(QTest::qWaitForWindowExposed(&page));
        model.reload();
        // After the layouts the resets scheduled: nothing laid out.
        bool marker = false;
        QTimer::singleShot(0, this, [&] { marker = true; });
        QTRY_VERIFY(marker);
        QCOMPARE(outline->verticalScrollBar()->maximum(), 0);

        outline->show();
        QTRY_VERIFY(outline->verticalScrollBar()->maximum() > 0);
        outline->scrollToBottom();
        const QModelIndex oldest =
            model.index(model.rowCount() - 1 - HXLogTreeModel::kSpacerRows, 0);
        QCOMPARE(model.entryForIndex(oldest)->string(), QStringLiteral("Passed: test number 0"));
        QVERIFY(outline->viewport()->rect().intersects(outline->visualRect(oldest)));
    }

    void keyboardMovesExpandsAndAsksToShowTheFile()
    {
        HXLogTreeModel model(nullptr);
        model.setReport(reportWith(sampleLog()));
        HXLogOutlineView outline;
        outline.resize(700, 400);
        outline.setLogModel(&model);
        outline.show();
        QVERIFY(QTest::qWaitForWindowExposed(&outline));
        outline.setFocus();
        const QModelIndex damaged = model.index(5, 0);
        outline.setCurrentIndex(damaged);
        QTest::keyClick(&outline, Qt::Key_Return);
        QVERIFY(outline.isExpanded(damaged));
        QTest::keyClick(&outline, Qt::Key_Down);
        QCOMPARE(outline.currentIndex().parent(), damaged);
        QSignalSpy asked(&outline, &HXLogOutlineView::showInFileManagerRequested);
        QTest::keyClick(&outline, Qt::Key_Return, Qt::ControlModifier);
        QCOMPARE(asked.size(), 1);
        QCOMPARE(asked.at(0).at(0).value<QModelIndex>().data(HXLogTreeModel::PathRole).toString(),
                 QStringLiteral("/home/a/one.txt"));
        outline.setCurrentIndex(damaged);
        QTest::keyClick(&outline, Qt::Key_Space);
        QVERIFY(!outline.isExpanded(damaged));
        QTest::keyClick(&outline, Qt::Key_Up);
        QCOMPARE(outline.currentIndex().row(), 4);
    }

    void rowHeightsFollowTheWrappedMessage()
    {
        const QFont font = QApplication::font();
        const QFontMetrics metrics(font);
        QCOMPARE(HXLogCell::messageRowHeight(10, 400, metrics),
                 std::max(30, metrics.height() + 10));
        // Exactly one usable width is one line; one more point is two.
        QCOMPARE(HXLogCell::messageRowHeight(370, 400, metrics),
                 std::max(30, metrics.height() + 10));
        QCOMPARE(HXLogCell::messageRowHeight(371, 400, metrics), 2 * metrics.height() + 10);
        QCOMPARE(HXLogCell::messageRowHeight(3 * 370, 400, metrics), 3 * metrics.height() + 10);

        HXLogTreeModel model(nullptr);
        model.setReport(reportWith(sampleLog()));
        HXLogOutlineView outline;
        outline.resize(500, 400);
        outline.setLogModel(&model);
        outline.show();
        QVERIFY(QTest::qWaitForWindowExposed(&outline));
        outline.expand(model.index(5, 0));
        QCoreApplication::processEvents();
        QCOMPARE(outline.visualRect(model.index(0, 2)).height(), 20);
        QCOMPARE(outline.visualRect(model.index(0, 2, model.index(5, 0))).height(), 20);
        const int width = outline.header()->sectionSize(2);
        const int text =
            HXLogCell::messageTextWidth(model.index(5, 2).data().toString(), true, outline.font());
        QCOMPARE(outline.visualRect(model.index(5, 2)).height(),
                 HXLogCell::messageRowHeight(text, width, outline.fontMetrics()));
        // The Date column fits 12 December 2012 plus the allowance; the
        // message column takes the rest, whatever the window's width.
        const int date = outline.header()->sectionSize(1);
        QCOMPARE(date,
                 int(std::ceil(outline.fontMetrics().horizontalAdvance(QStringLiteral("12/12/12")) +
                               14.0)));
        outline.resize(800, 400);
        QCoreApplication::processEvents();
        QCOMPARE(outline.header()->sectionSize(1), date);
        QCOMPARE(outline.header()->sectionSize(0) + date + outline.header()->sectionSize(2),
                 outline.viewport()->width());
    }

    void localeChangeReformatsAndResizes()
    {
        HXLogTreeModel model(nullptr);
        model.setToday(kToday);
        model.setReport(reportWith(sampleLog()));
        HXLogOutlineView outline;
        outline.resize(700, 400);
        outline.setLogModel(&model);
        connect(&outline, &HXLogOutlineView::localeChanged, &model, &HXLogTreeModel::reload);
        outline.show();
        QVERIFY(QTest::qWaitForWindowExposed(&outline));
        QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
        QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
        QEvent change(QEvent::LocaleChange);
        QCoreApplication::sendEvent(&outline, &change);
        QCOMPARE(reset.size(), 1);
        QCOMPARE(outline.header()->sectionSize(1),
                 int(std::ceil(outline.fontMetrics().horizontalAdvance(QStringLiteral("12.12.12")) +
                               14.0)));
        QCOMPARE(model.index(5, 1).data().toString(), QStringLiteral("13.03.24"));
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    }

    void dateAllowanceFollowsTheSystemVersion()
    {
        QCOMPARE(HXLogViewController::dateColumnAllowance(HXSystemVersion::parse(QStringLiteral("10.10.5"))), 10.0);
        QCOMPARE(HXLogViewController::dateColumnAllowance(HXSystemVersion::parse(QStringLiteral("10.11.0"))), 14.0);
        QCOMPARE(HXLogViewController::dateColumnAllowance(HXSystemVersion::parse(QStringLiteral("11.0.0"))), 14.0);
        QCOMPARE(HXLogViewController::dateColumnAllowance(HXSystemVersion()), 14.0); // 10.15.0
    }

    void resultIndexCountsFromTheOldestAndHighlights()
    {
        HXNotificationCenter center;
        const QString path = m_dir.filePath(QStringLiteral("result.zrrpt"));
        HXStatusReporter reporter({path, &center, nullptr, false});
        reporter.setReport(reportWith(sampleLog()));
        HXLogViewController controller({&reporter, &center});
        QWidget *page = controller.view();
        page->resize(700, 500);
        page->show();
        QVERIFY(QTest::qWaitForWindowExposed(page));
        HXLogOutlineView *outline = controller.outlineView();
        HXLogTreeModel *model = controller.model();

        center.post(HXShowResultNotification, nullptr, {{HXResultIndexKey, 0}});
        QCOMPARE(model->entryForIndex(outline->currentIndex())->string(),
                 QStringLiteral("Passed: SMART test passed on disk0")); // the oldest
        QVERIFY(outline->highlightView());
        QCOMPARE(outline->highlightView()->text(),
                 QStringLiteral("3/12/24 - SMART test passed on disk0"));
        center.post(HXShowResultNotification, nullptr, {{HXResultIndexKey, 4}});
        QCOMPARE(outline->currentIndex().row(), 2); // the newest, below the spacers
        QCOMPARE(outline->highlightView()->text(), QStringLiteral("3/14/24 - spaced message"));
        const QModelIndex before = outline->currentIndex();
        center.post(HXShowResultNotification, nullptr, {{HXResultIndexKey, 5}});
        center.post(HXShowResultNotification, nullptr, {{HXResultIndexKey, -1}});
        QCOMPARE(outline->currentIndex(), before);

        // A reload of the log takes the highlight away: its row may have moved.
        QPointer<HXFindHighlightView> stale = outline->highlightView();
        model->reload();
        QTRY_VERIFY(stale.isNull());
        center.post(HXShowResultNotification, nullptr, {{HXResultIndexKey, 4}});

        // A click on the highlight goes no further than the highlight.
        QPointer<HXFindHighlightView> highlight = outline->highlightView();
        QSignalSpy pressed(outline, &QAbstractItemView::pressed);
        QTest::mouseClick(highlight, Qt::LeftButton, {},
                          QPoint(20, outline->viewport()->height() - 10));
        QCOMPARE(pressed.size(), 0);
        // It brightens to a quarter, then fades and removes itself.
        QTRY_COMPARE(highlight->alpha(), HXFindHighlightView::kMaximumAlpha);
        QTRY_VERIFY(highlight.isNull());
        QTest::mouseClick(outline->viewport(), Qt::LeftButton, {},
                          outline->visualRect(model->index(4, 2)).center());
        QCOMPARE(pressed.size(), 1);

        // Double-click shows a message's files, and hides them again.
        const QModelIndex damaged = model->index(5, 0);
        const QPoint on = outline->visualRect(damaged.siblingAtColumn(2)).center();
        // Apart from the click before, or the two would make a double-click.
        QTest::qWait(QApplication::doubleClickInterval() + 20);
        // As the window system sends it: a click, then the double-click.
        QTest::mouseClick(outline->viewport(), Qt::LeftButton, {}, on);
        QTest::mouseDClick(outline->viewport(), Qt::LeftButton, {}, on);
        QVERIFY(outline->isExpanded(damaged));
        QTest::qWait(QApplication::doubleClickInterval() + 20);
        QTest::mouseClick(outline->viewport(), Qt::LeftButton, {}, on);
        QTest::mouseDClick(outline->viewport(), Qt::LeftButton, {}, on);
        QVERIFY(!outline->isExpanded(damaged));

        // "ScrollLogViewToTopNotification" brings the first row into view.
        page->resize(700, 120);
        outline->scrollToBottom();
        QVERIFY(outline->verticalScrollBar()->value() > 0);
        center.post(HXScrollLogViewToTopNotification, nullptr);
        QCOMPARE(outline->verticalScrollBar()->value(), 0);
    }

    void slidesInAndAnswersTheSlideOutsLength()
    {
        HXNotificationCenter center;
        HXStatusReporter reporter(
            {m_dir.filePath(QStringLiteral("slide.zrrpt")), &center, nullptr, false});
        HXLogViewController controller({&reporter, &center});
        QWidget *page = controller.view();
        page->resize(600, 400);
        page->show();
        QVERIFY(QTest::qWaitForWindowExposed(page));
        controller.viewWillAppearHX();
        QVERIFY(!controller.isOnScreen());
        QCOMPARE(controller.outlineView()->y(), 400);
        QTRY_VERIFY(controller.isOnScreen());
        HXAnimationTiming::setScale(1.0);
        QCOMPARE(controller.viewWillDisappearHX(), 125000LL);
        HXAnimationTiming::setScale(0.02);
        QTRY_COMPARE(controller.outlineView()->y(), 400);
        QVERIFY(!controller.isOnScreen());
    }

    void savedPdfPaginatesWholeRows()
    {
        HXLogEntryList log;
        for (int i = 0; i < 120; ++i) {
            QString text =
                QStringLiteral("Warning: Surface Scan test number %1 found slow sectors on the "
                               "second drive, which is worth a second look before long")
                    .arg(i, 3, 10, QLatin1Char('0'));
            if (i % 10 == 0)
                text += QStringLiteral("\n/srv/data/file%1.bin").arg(i);
            log << entry(at(1 + i % 13, i % 24), QStringLiteral("Warning"), text);
        }
        auto report = reportWith(log);
        std::set<const HXLogEntry *> expanded{log.at(0).get()};
        HXLogPrintView copy(report, expanded);
        const QString pdf = m_dir.filePath(QStringLiteral("Orvex Log.pdf"));
        QFile::remove(pdf);
        QFile stale(pdf);
        QVERIFY(stale.open(QIODevice::WriteOnly));
        stale.write("old");
        stale.close();
        QString why;
        QVERIFY2(copy.saveAsPdf(pdf, &why), qPrintable(why));
        if (QStandardPaths::findExecutable(QStringLiteral("pdftotext")).isEmpty())
            QSKIP("pdftotext is not installed");
        QProcess text;
        text.start(QStringLiteral("pdftotext"),
                   {QStringLiteral("-layout"), pdf, QStringLiteral("-")});
        QVERIFY(text.waitForFinished(20000));
        const QString out = QString::fromUtf8(text.readAllStandardOutput());
        const QStringList pages = out.split(QLatin1Char('\f'), Qt::SkipEmptyParts);
        QVERIFY2(pages.size() >= 3, qPrintable(QString::number(pages.size())));
        // Sorted by the message: number 000 comes first, 119 last; every
        // message is there whole, none split over two pages.
        QVERIFY(out.indexOf(QLatin1String("number 000")) <
                out.indexOf(QLatin1String("number 001")));
        QVERIFY(out.indexOf(QLatin1String("number 118")) <
                out.indexOf(QLatin1String("number 119")));
        for (int i = 0; i < 120; ++i) {
            const QString number = QStringLiteral("number %1").arg(i, 3, 10, QLatin1Char('0'));
            int on = 0;
            for (const QString &page : pages) {
                if (page.contains(number)) {
                    ++on;
                    // The whole message of this row, its last words too.
                    QVERIFY2(page.simplified().contains(
                                 QStringLiteral("%1 found slow sectors on the second drive, "
                                                "which is worth a second look before long")
                                     .arg(number)),
                             qPrintable(number));
                }
            }
            QCOMPARE(on, 1);
        }
        QVERIFY(out.contains(QLatin1String("file0.bin"))); // expanded on screen
        QVERIFY(out.contains(QLatin1String("(Double-click to show/hide files.)")));
        QVERIFY(!out.contains(QLatin1String("file10.bin"))); // not expanded
        QVERIFY(pages.first().contains(QLatin1String("Log Message")));
        QVERIFY(pages.last().contains(QLatin1String("Log Message")));

        // Stopped on the way: no error to show, and the file saved before
        // is left whole, not half a new one.
        const QByteArray saved = readAll(pdf);
        QVERIFY(saved.startsWith("%PDF"));
        QList<int> told;
        int rows = 0;
        why = QStringLiteral("untouched");
        QVERIFY(!copy.saveAsPdf(pdf, &why, [&](int done, int total) {
            told << done;
            rows = total;
            return total == 0; // measured, then stopped at the first row painted
        }));
        QCOMPARE(rows, 120 + 4 + 1); // with the spacers and the one file
        QVERIFY(why.isEmpty());
        QCOMPARE(readAll(pdf), saved);
        QCOMPARE(told, (QList<int>{0, 1}));
        QCOMPARE(QDir(m_dir.path()).entryList({QStringLiteral("Orvex Log.pdf*")}, QDir::Files),
                 QStringList{QStringLiteral("Orvex Log.pdf")});
    }

    void aFailedPdfWriteSaysWhyAndKeepsTheOldFile()
    {
        HXLogEntryList log;
        for (int i = 0; i < 60; ++i)
            log << entry(
                at(1 + i % 13, i % 24), QStringLiteral("Error"),
                QStringLiteral("Error: message %1 that takes some room on the page").arg(i));
        const HXLogPrintView copy(reportWith(log));
        const QString pdf = m_dir.filePath(QStringLiteral("full disk.pdf"));
        QFile old(pdf);
        QVERIFY(old.open(QIODevice::WriteOnly));
        old.write("the PDF saved last week");
        old.close();

        // A disk that fills up on the way: writes past 4 KB fail.
        rlimit before{};
        QCOMPARE(getrlimit(RLIMIT_FSIZE, &before), 0);
        const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
        rlimit small = before;
        small.rlim_cur = 4096;
        QCOMPARE(setrlimit(RLIMIT_FSIZE, &small), 0);
        QString why;
        bool saved = false;
        {
            const auto restore = qScopeGuard([&] {
                setrlimit(RLIMIT_FSIZE, &before);
                std::signal(SIGXFSZ, oldHandler);
            });
            saved = copy.saveAsPdf(pdf, &why);
        }
        QVERIFY(!saved);
        QVERIFY2(why.startsWith(QStringLiteral("The log cannot be written to %1: ").arg(pdf)),
                 qPrintable(why));
        QCOMPARE(readAll(pdf), QByteArray("the PDF saved last week"));

        // A folder that is not there: said so, nothing made.
        const QString nowhere = m_dir.filePath(QStringLiteral("gone/Orvex Log.pdf"));
        QVERIFY(!copy.saveAsPdf(nowhere, &why));
        QVERIFY2(why.startsWith(QStringLiteral("The log cannot be written to %1: ").arg(nowhere)),
                 qPrintable(why));
        QVERIFY(!QFileInfo::exists(QFileInfo(nowhere).absolutePath()));
    }
};

QTEST_MAIN(TestLogModel)
#include "tst_logmodel.moc"
