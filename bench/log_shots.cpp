// Pictures of the log tab for a person to judge, on the offscreen platform:
//   log_shots FOLDER [PREFIX]  writes log-expanded.png (a few entries, one
//   showing its files), log-50000-middle.png (50,000 entries scrolled to the
//   middle), log-50000-expanded.png (there, with the files of three entries
//   shown), log-highlight.png (during a highlight) and log-print.pdf (the
//   print copy); PREFIX replaces "log-".
#include "HXAnimationTiming.h"
#include "HXConstants.h"
#include "HXLogOutlineView.h"
#include "HXLogPrintView.h"
#include "HXLogTreeModel.h"
#include "HXLogViewController.h"
#include "HXNotificationCenter.h"
#include "HXStatusReporter.h"
#include "HXSystemLog.h"
#include "ReportFactory.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QTest>
#include <cstdio>

namespace {

HXLogEntryRef entry(int minutesAgo, const QString &type, const QString &text)
{
    HXLogEntryRef e = HXLogEntry::entryWithTypeCompoundString(type, text);
    const QDateTime when = QDateTime::currentDateTime().addSecs(-60 * minutesAgo);
    e->setTimestamp(when);
    for (qsizetype i = 0; i < e->countOfChildren(); ++i)
        e->entryInChildrenAtIndex(i)->setTimestamp(when);
    return e;
}

HXStatusReportRef fewEntries()
{
    auto report = HXStatusReport::report();
    report->setLog({
        entry(60 * 24 * 3, QStringLiteral("Passed"),
              QStringLiteral("Passed: SMART test passed on Samsung SSD 980 PRO 1TB (nvme0n1)")),
        entry(60 * 24 * 3 - 5, QStringLiteral("Passed"),
              QStringLiteral("Passed: Memory test passed")),
        entry(
            60 * 24 * 2, QStringLiteral("Warning"),
            QStringLiteral(
                "Warning: Surface Scan test found 12 slow sectors on WDC WD40EFRX (sda); the drive "
                "still reads every sector, but it is worth watching over the next weeks")),
        entry(60 * 5, QStringLiteral("Error"),
              QStringLiteral(
                  "Error: File Structures test found 3 damaged files on Samsung SSD 980 PRO 1TB "
                  "(nvme0n1)\n"
                  "/home/ada/Documents/Quarterly figures 2024/ledger-final-really-final.ods,\n"
                  "/home/ada/Pictures/holiday/IMG_2041.jpg,\n/etc/hosts")),
        entry(60 * 4, QStringLiteral("Passed"),
              QStringLiteral("Passed: Volume Structures test passed on /")),
        entry(30, QStringLiteral("Error"),
              QStringLiteral("Error: Disk I/O Error test found 2 read errors in the kernel "
                             "log\n/dev/sda\n/dev/sdb")),
        entry(2, QStringLiteral("Passed"), QStringLiteral("Passed: Battery test passed")),
    });
    return report;
}

bool save(QWidget *widget, const QString &path)
{
    const bool saved = widget->grab().save(path);
    std::printf("%s %s\n", saved ? "wrote" : "could not write", qPrintable(path));
    return saved;
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    HXSystemLog::setSink([](const QString &) {});
    HXAnimationTiming::setScale(0.05);
    const QString folder = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QDir::currentPath();
    const QString prefix = argc > 2 ? QString::fromLocal8Bit(argv[2]) : QStringLiteral("log-");
    const auto named = [&](const char *name) {
        return folder + QLatin1Char('/') + prefix + QLatin1String(name);
    };
    QTemporaryDir dir;
    HXNotificationCenter center;
    HXStatusReporter reporter(
        {dir.filePath(QStringLiteral("Report.zrrpt")), &center, nullptr, false});
    reporter.setReport(fewEntries());
    HXLogViewController controller({&reporter, &center});
    QWidget *page = controller.view();
    page->resize(820, 520);
    page->show();
    QTest::qWait(50);
    HXLogTreeModel *model = controller.model();
    HXLogOutlineView *outline = controller.outlineView();
    for (int row = 0; row < model->rowCount(); ++row) {
        const HXLogEntryRef e = model->entryForIndex(model->index(row, 0));
        if (e && e->string().contains(QLatin1String("File Structures")))
            outline->expand(model->index(row, 0));
    }
    outline->setCurrentIndex(model->index(3, 0));
    QTest::qWait(400);
    bool ok = save(page, named("expanded.png"));

    QString why;
    ok = HXLogPrintView(reporter.report(), outline->expandedEntries())
             .saveAsPdf(named("print.pdf"), &why) &&
         ok;

    center.post(HXShowResultNotification, nullptr, {{HXResultIndexKey, 2}});
    QTest::qWait(200);
    ok = save(page, named("highlight.png")) && ok;

    reporter.setReport(ReportFactory::make(0, 50000));
    QTest::qWait(50);
    QScrollBar *bar = outline->verticalScrollBar();
    bar->setValue(bar->maximum() / 2);
    QTest::qWait(50);
    ok = save(page, named("50000-middle.png")) && ok;

    // The files of three entries in sight shown, the middle one selected.
    int shown = 0;
    for (QModelIndex index = outline->indexAt(QPoint(4, 4)); index.isValid() && shown < 3;
         index = outline->indexBelow(index)) {
        if (model->hasChildren(index)) {
            outline->expand(index);
            if (++shown == 2)
                outline->setCurrentIndex(index);
        }
    }
    QTest::qWait(400);
    ok = save(page, named("50000-expanded.png")) && ok;

    // How long the print copy of a large log takes, for the record.
    // The window waits only while the copy is made and between two reports
    // of progress.
    QElapsedTimer timer;
    timer.start();
    const HXLogPrintView large(reporter.report());
    const qint64 made = timer.elapsed();
    qint64 last = timer.elapsed();
    qint64 longest = 0;
    ok = large.saveAsPdf(dir.filePath(QStringLiteral("large.pdf")), &why, [&](int, int) {
        longest = std::max(longest, timer.elapsed() - last);
        last = timer.elapsed();
        return true;
    }) && ok;
    std::printf(
        "the print copy of 50,000 entries: made in %lld ms, saved in %lld ms, at most %lld ms "
        "between two reports of progress\n",
        static_cast<long long>(made), static_cast<long long>(timer.elapsed()),
        static_cast<long long>(std::max(longest, timer.elapsed() - last)));
    return ok ? 0 : 1;
}
