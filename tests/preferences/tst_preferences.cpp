// The preferences without a daemon: the duration transformer, the popups,
// the sleep warning's order of checks, exclusion entries and their display,
// the file reference, duplicates by the open panel and by a drop, the
// toolbar's selection by tag, and what a screen reader and the Tab key find.
#include "HXDaemonInteractionException.h"
#include "HXExclusionEntries.h"
#include "HXExclusionsDropScrollView.h"
#include "HXExclusionsPane.h"
#include "HXFileRef.h"
#include "HXPreferencesWindowController.h"
#include "HXScheduleMenus.h"
#include "HXSchedulingController.h"
#include "HXSchedulingDurationTransformer.h"
#include "HXSchedulingPane.h"
#include "HXSystemLog.h"
#include "HXSystemSleepWarning.h"
#include "HXTestExclusionsController.h"
#include "HXVolumeCatalogue.h"
#include "TestSupport.h"

#include <QAccessible>
#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QLabel>
#include <QMimeData>
#include <QPushButton>
#include <QStackedWidget>
#include <QStorageInfo>
#include <QTemporaryDir>
#include <QTest>
#include <QToolBar>

class TestPreferences : public QObject
{
    Q_OBJECT

private:
    QStringList m_log;
    QTemporaryDir m_root;

    void clearLog() { m_log.clear(); }
    bool logged(const QString &line) const { return m_log.contains(line); }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_root.isValid());
        TestSupport::useTestRoot(m_root.path());
        HXSystemLog::setSink([this](const QString &line) { m_log.append(line); });
    }

    void durationTransformerBothWays()
    {
        using T = HXSchedulingDurationTransformer;
        const QList<QPair<int, qint64>> forward{{0, 900},   {1, 1800},   {2, 3600},   {3, 7200},
                                                {5, 14400}, {10, 32400}, {11, 36000}, {12, 39600}};
        for (const auto &[index, seconds] : forward)
            QCOMPARE(T::transformedValue(index).toLongLong(), seconds);
        const QList<QPair<qint64, qint64>> reverse{{0, 11},     {-1, 11},  {900, 0},   {1800, 1},
                                                   {3600, 2},   {5400, 2}, {7200, 3},  {7199, 2},
                                                   {36000, 11}, {600, 1},  {14400, 5}, {-7200, -1}};
        for (const auto &[seconds, index] : reverse)
            QVERIFY2(T::reverseTransformedValue(seconds).toLongLong() == index,
                     qPrintable(QString::number(seconds)));
        // Not whole hours are rounded down on the way back.
        QCOMPARE(T::transformedValue(T::reverseTransformedValue(5400)).toLongLong(), 3600);
        // A string is read as atoi reads it.
        QCOMPARE(T::transformedValue(QStringLiteral("3")).toLongLong(), 7200);
        QCOMPARE(T::transformedValue(QStringLiteral("4 hours")).toLongLong(), 10800);
        QCOMPARE(T::transformedValue(QStringLiteral("none")).toLongLong(), 900);
        QCOMPARE(T::reverseTransformedValue(QStringLiteral("1800")).toLongLong(), 1);
        QCOMPARE(T::transformedValue(2.9).toLongLong(), 3600);
        // Nothing gives nothing, quietly; anything else that is not a number
        // is logged and gives nothing.
        clearLog();
        QVERIFY(!T::transformedValue(QVariant()).isValid());
        QVERIFY(!T::reverseTransformedValue(QVariant()).isValid());
        QVERIFY(m_log.isEmpty());
        QVERIFY(!T::transformedValue(QVariantList{1}).isValid());
        QVERIFY(!T::reverseTransformedValue(QVariantMap{{QStringLiteral("a"), 1}}).isValid());
        QCOMPARE(m_log.size(), 2);
        QVERIFY2(m_log[0].startsWith(QLatin1String("HXSchedulingDurationTransformer: value ")) &&
                     m_log[0].endsWith(QLatin1String(" is not a number!")),
                 qPrintable(m_log[0]));
    }

    void popupRows()
    {
        const QStringList durations = HXScheduleMenus::localizedDurationMenuContent();
        QCOMPARE(durations.size(), 12);
        QCOMPARE(durations.first(), QStringLiteral("15 Minutes"));
        QCOMPARE(durations[1], QStringLiteral("30 Minutes"));
        QCOMPARE(durations[2], QStringLiteral("1 Hour"));
        QCOMPARE(durations[3], QStringLiteral("2 Hours"));
        QCOMPARE(durations.last(), QStringLiteral("10 Hours"));
        const QStringList english = HXScheduleMenus::localizedHourMenuContent(
            QLocale(QLocale::English, QLocale::UnitedStates));
        QCOMPARE(english.size(), 24);
        QCOMPARE(english[0], QStringLiteral("12 AM"));
        QCOMPARE(english[1], QStringLiteral("1 AM"));
        QCOMPARE(english[12], QStringLiteral("12 PM"));
        QCOMPARE(english[23], QStringLiteral("11 PM"));
        const QStringList german =
            HXScheduleMenus::localizedHourMenuContent(QLocale(QLocale::German, QLocale::Germany));
        QCOMPARE(german[0], QStringLiteral("00"));
        QCOMPARE(german[23], QStringLiteral("23"));
        QCOMPARE(HXScheduleMenus::localizedHourMenuContent(QLocale::c())[13],
                 QStringLiteral("1 PM"));
    }

    void sleepWarningChecksInOrder()
    {
        int asked = 0;
        const auto daemonSays = [&asked](bool allows) {
            return std::function<bool()>([&asked, allows] {
                ++asked;
                return allows;
            });
        };
        const QVariantMap sleeps{{HXOrvexIdleScheduleWakeFromSleepKey, false}};
        const QVariantMap wakes{{HXOrvexIdleScheduleWakeFromSleepKey, true}};
        // Each earlier check decides before the daemon is asked.
        QVERIFY(!HXSystemSleepWarning::shouldShow(false, sleeps, daemonSays(false)));
        QVERIFY(!HXSystemSleepWarning::shouldShow(true, std::nullopt, daemonSays(false)));
        QVERIFY(!HXSystemSleepWarning::shouldShow(true, wakes, daemonSays(false)));
        QCOMPARE(asked, 0);
        QVERIFY(!HXSystemSleepWarning::shouldShow(true, sleeps, nullptr));
        QVERIFY(HXSystemSleepWarning::shouldShow(true, sleeps, daemonSays(false)));
        QVERIFY(!HXSystemSleepWarning::shouldShow(true, sleeps, daemonSays(true)));
        QVERIFY(HXSystemSleepWarning::shouldShow(true, QVariantMap(), daemonSays(false)));
        QCOMPARE(asked, 3);
        // A broken connection is logged and hides the warning.
        clearLog();
        QVERIFY(!HXSystemSleepWarning::shouldShow(true, sleeps, []() -> bool {
            throw HXDaemonInteractionException(QStringLiteral("NSPortTimeoutException"),
                                               QStringLiteral("timed out"));
        }));
        QCOMPARE(m_log, QStringList{QStringLiteral(
                            "HXSchedulingController::showSystemSleepWarning: exception: "
                            "NSPortTimeoutException, timed out")});
    }

    void sleepWarningTextLinksThePowerSettings()
    {
        const QString text = HXSystemSleepWarning::text();
        QVERIFY(HXSystemSleepWarning::plainText().contains(QLatin1String("power settings")));
        QVERIFY(!text.contains(QLatin1String("Energy Saver")));
        QCOMPARE(text.count(QLatin1String("<a ")), 1);
        QVERIFY(text.contains(QLatin1String(">power settings</a>")));
        QVERIFY(HXSystemSleepWarning::plainText(true).contains(QLatin1String("display is off")));
    }

    void entriesForVolumesAndFolders()
    {
        HXFakeVolumeCatalogue volumes;
        volumes.roots = {QStringLiteral("/media/Backup"), QStringLiteral("/mnt/plain")};
        volumes.labels = {QStringLiteral("Backup Disk")};
        volumes.unknown = {QStringLiteral("/proc/odd")};
        const QVariantMap volume = HXMakeExclusionEntry(QStringLiteral("/media/Backup"), volumes);
        QCOMPARE(volume.value(HXExclusionPathKey).toString(), QStringLiteral("/media/Backup"));
        QCOMPARE(volume.value(HXExclusionIsVolumeKey), QVariant(true));
        QCOMPARE(volume.value(HXExclusionFileTestKey), QVariant(true));
        QCOMPARE(volume.value(HXExclusionVolTestKey), QVariant(true));
        QCOMPARE(volume.value(HXExclusionSurfaceScanTestKey), QVariant(true));
        const QVariantMap folder =
            HXMakeExclusionEntry(QStringLiteral("/media/Backup/photos"), volumes);
        QCOMPARE(folder.value(HXExclusionIsVolumeKey), QVariant(false));
        QCOMPARE(folder.value(HXExclusionFileTestKey), QVariant(true));
        QCOMPARE(folder.value(HXExclusionVolTestKey), QVariant(false));
        QCOMPARE(folder.value(HXExclusionSurfaceScanTestKey), QVariant(false));
        const QVariantMap unknown = HXMakeExclusionEntry(QStringLiteral("/proc/odd"), volumes);
        QVERIFY(!unknown.contains(HXExclusionIsVolumeKey));
        QCOMPARE(unknown.value(HXExclusionVolTestKey), QVariant(false));

        // Display: a root by its label, a root without one and anything
        // else by its path; a non-string is logged.
        HXVolumeCatalogue::setCurrent(&volumes);
        using Name = HXTestExclusionPathVolumeNameTransformer;
        QCOMPARE(Name::transformedValue(QStringLiteral("/media/Backup")).toString(),
                 QStringLiteral("Backup Disk"));
        QCOMPARE(Name::transformedValue(QStringLiteral("/mnt/plain")).toString(),
                 QStringLiteral("/mnt/plain"));
        QCOMPARE(Name::transformedValue(QStringLiteral("/media/Backup/photos")).toString(),
                 QStringLiteral("/media/Backup/photos"));
        clearLog();
        QVERIFY(!Name::transformedValue(42).isValid());
        QVERIFY(!HXTestExclusionPathIconTransformer::transformedValue(QVariantList()).isValid());
        QCOMPARE(m_log.size(), 2);
        QCOMPARE(
            m_log[0],
            QStringLiteral("HXTestExclusionPathVolumeNameTransformer: value 42 is not a string!"));
        QVERIFY(m_log[1].startsWith(QLatin1String("HXTestExclusionPathIconTransformer: value ")));
        HXVolumeCatalogue::setCurrent(nullptr);

        // The real catalogue: "/" is a root, a folder inside a temporary
        // folder is not, a missing path cannot be said.
        const HXLinuxVolumeCatalogue real;
        QCOMPARE(real.isVolumeRoot(QStringLiteral("/")), std::optional<bool>(true));
        QDir(m_root.path()).mkpath(QStringLiteral("inner"));
        QCOMPARE(real.isVolumeRoot(m_root.filePath(QStringLiteral("inner"))),
                 std::optional<bool>(false));
        QCOMPARE(real.isVolumeRoot(m_root.filePath(QStringLiteral("missing"))), std::nullopt);
    }

    void fstabLabelsName_volumes()
    {
        QFile fstab(m_root.filePath(QStringLiteral("fstab")));
        QVERIFY(fstab.open(QIODevice::WriteOnly));
        fstab.write("# comment\nLABEL=My\\040Data  /   ext4 defaults 0 1\nUUID=x /boot ext4 "
                    "defaults 0 2\n");
        fstab.close();
        HXLinuxVolumeCatalogue real;
        real.fstabFile = fstab.fileName();
        // Without udev here, only the mount table's label can name "/".
        const QString label = real.volumeLabel(QStringLiteral("/"));
        QVERIFY2(label == QStringLiteral("My Data") ||
                     !QStorageInfo(QStringLiteral("/")).name().isEmpty(),
                 qPrintable(label));
    }

    void deepCopyIsOneLevelOfEditableDictionaries()
    {
        const QVariantMap entry{{HXExclusionPathKey, QStringLiteral("/a")},
                                {HXExclusionFileTestKey, true}};
        const QVariantList original{entry, QStringLiteral("text"), 7};
        QVariantList copy = MakeMutableDeepCopy(original);
        QCOMPARE(copy.size(), 3);
        QCOMPARE(copy, original);
        QVariantMap edited = copy[0].toMap();
        edited.insert(HXExclusionFileTestKey, false);
        copy[0] = edited;
        QCOMPARE(original[0].toMap().value(HXExclusionFileTestKey), QVariant(true));
        QCOMPARE(copy[1], QVariant(QStringLiteral("text")));
        QVERIFY(MakeMutableDeepCopy({}).isEmpty());
    }

    void fileRefArchivesCopiesAndDescribes()
    {
        HXFileRef ref;
        ref.setRelativeURL(QUrl(QStringLiteral("file:///home/user/My%20Files/")));
        ref.setFilePath(QStringLiteral("/home/user/My Files"));
        ref.setVolUUID(QStringLiteral("0F1E-2D3C"));
        QCOMPARE(ref.keyPaths(),
                 (QStringList{QStringLiteral("relativeURL"), QStringLiteral("filePath"),
                              QStringLiteral("volUUID")}));
        QCOMPARE(ref.description(),
                 QStringLiteral("\n\nClass name: HXFileRef\nrelativeURL: file:///home/user/"
                                "My Files/filePath: /home/user/My FilesvolUUID: 0F1E-2D3C"));

        KeyedArchiver archiver;
        const QByteArray bytes = archiver.archiveRootObject(ref);
        KeyedUnarchiver unarchiver;
        HXFileRef::registerClasses(unarchiver);
        QVERIFY(unarchiver.open(bytes));
        const auto decoded =
            std::dynamic_pointer_cast<HXFileRef>(unarchiver.decodeRoot().value<HXObjectRef>());
        QVERIFY2(decoded, qPrintable(unarchiver.error()));
        QCOMPARE(decoded->relativeURL(), ref.relativeURL());
        QCOMPARE(decoded->filePath(), ref.filePath());
        QCOMPARE(decoded->volUUID(), ref.volUUID());

        // An absent key leaves its property unset.
        HXFileRef partial;
        partial.setFilePath(QStringLiteral("/only/path"));
        KeyedArchiver second;
        KeyedUnarchiver again;
        HXFileRef::registerClasses(again);
        QVERIFY(again.open(second.archiveRootObject(partial)));
        const auto half =
            std::dynamic_pointer_cast<HXFileRef>(again.decodeRoot().value<HXObjectRef>());
        QVERIFY(half);
        QVERIFY(half->relativeURL().isEmpty());
        QVERIFY(half->volUUID().isNull());
        QCOMPARE(half->filePath(), QStringLiteral("/only/path"));

        const HXFileRefRef copy = ref.copy();
        QCOMPARE(copy->description(), ref.description());
        copy->setFilePath(QStringLiteral("/elsewhere"));
        QCOMPARE(ref.filePath(), QStringLiteral("/home/user/My Files"));
    }

    void duplicatesByPanelAreRefusedByDropAccepted()
    {
        QDir(m_root.path()).mkpath(QStringLiteral("docs"));
        const QString docs = m_root.filePath(QStringLiteral("docs"));
        const QString file = m_root.filePath(QStringLiteral("fstab"));
        HXTestExclusionsController controller;
        QStringList chosen{docs};
        controller.setChooser([&chosen] { return chosen; });

        // Before the list came from the daemon nothing can be added.
        controller.addExclusion();
        controller.excludePath(docs);
        QCOMPARE(controller.rowCount(), 0);

        controller.setContent(QVariantList());
        controller.addExclusion();
        QCOMPARE(controller.rowCount(), 1);
        chosen = {docs, file};
        controller.addExclusion(); // docs is there already
        QCOMPARE(controller.rowCount(), 2);
        QCOMPARE(controller.content()[1].toMap().value(HXExclusionPathKey).toString(), file);

        // A drop does not look: the same path again, as one string.
        HXExclusionsDropScrollView view;
        view.setModel(&controller);
        view.setDragDelegate(&controller);
        view.resize(300, 200);
        QMimeData one;
        one.setUrls({QUrl::fromLocalFile(docs)});
        // (The platform routes a drop only to the target of a drag in
        // progress, which a test cannot start; the drop's handling is called
        // as the drop event calls it.)
        QVERIFY(view.performDrop(&one));
        QCOMPARE(controller.rowCount(), 3);
        QCOMPARE(controller.content()[2].toMap().value(HXExclusionPathKey).toString(), docs);

        // A list, in order, with a missing file logged and a web link ignored.
        clearLog();
        const QString missing = m_root.filePath(QStringLiteral("gone"));
        QMimeData many;
        many.setUrls({QUrl::fromLocalFile(file), QUrl::fromLocalFile(missing),
                      QUrl(QStringLiteral("https://example.invalid/x")),
                      QUrl::fromLocalFile(docs)});
        QVERIFY(view.performDrop(&many));
        QCOMPARE(controller.rowCount(), 5);
        QCOMPARE(controller.content()[3].toMap().value(HXExclusionPathKey).toString(), file);
        QCOMPARE(controller.content()[4].toMap().value(HXExclusionPathKey).toString(), docs);
        QCOMPARE(m_log,
                 QStringList{QStringLiteral("File does not exist at path: %1").arg(missing)});

        // The operation offered: link before copy, nothing without files.
        QMimeData text;
        text.setText(QStringLiteral("hello"));
        QCOMPARE(HXExclusionsDropScrollView::operationFor(&text, Qt::CopyAction | Qt::LinkAction),
                 Qt::IgnoreAction);
        QCOMPARE(HXExclusionsDropScrollView::operationFor(&many, Qt::CopyAction | Qt::LinkAction),
                 Qt::LinkAction);
        QCOMPARE(HXExclusionsDropScrollView::operationFor(&many, Qt::CopyAction | Qt::MoveAction),
                 Qt::CopyAction);
        QCOMPARE(HXExclusionsDropScrollView::operationFor(&many, Qt::MoveAction), Qt::IgnoreAction);

        // A check box edits its own key of its own entry; removal by rows.
        QVERIFY(controller.setData(
            controller.index(1, HXTestExclusionsController::SurfaceScanTestColumn), Qt::Checked,
            Qt::CheckStateRole));
        QCOMPARE(controller.content()[1].toMap().value(HXExclusionSurfaceScanTestKey),
                 QVariant(true));
        QCOMPARE(controller.content()[1].toMap().value(HXExclusionVolTestKey), QVariant(false));
        QVERIFY(controller.index(1, HXTestExclusionsController::SurfaceScanTestColumn)
                    .data(Qt::AccessibleTextRole)
                    .toString()
                    .endsWith(QLatin1String("excluded")));
        controller.removeExclusions({0, 2, 0});
        QCOMPARE(controller.rowCount(), 3);
        QCOMPARE(controller.content()[0].toMap().value(HXExclusionPathKey).toString(), file);
    }

    void toolbarSelectsByTag()
    {
        HXPreferencesWindowController window;
        QCOMPARE(window.toolbarSelectableItemIdentifiers(),
                 (QStringList{QStringLiteral("Scheduling"), QStringLiteral("Exclusions")}));
        QCOMPARE(window.tabView()->currentIndex(), 0);
        QCOMPARE(window.selectedItem()->objectName(), QStringLiteral("Scheduling"));
        clearLog();
        window.showExclusions();
        QCOMPARE(window.tabView()->currentIndex(), 1);
        QCOMPARE(window.selectedItem()->objectName(), QStringLiteral("Exclusions"));
        QVERIFY(m_log.isEmpty());
        // The item clicked is the one whose tag matches, whatever its name.
        window.toolbar()->actions().at(0)->trigger();
        QCOMPARE(window.tabView()->currentIndex(), 0);

        // An item named "1" loses to the last item tagged 1.
        auto *named = new QAction(QStringLiteral("named"), window.toolbar());
        named->setObjectName(QStringLiteral("1"));
        named->setData(7);
        named->setCheckable(true);
        window.toolbar()->actions().at(0)->actionGroup()->addAction(named);
        window.toolbar()->addAction(named);
        window.selectTabViewItemAtIndex(1);
        QCOMPARE(window.selectedItem()->objectName(), QStringLiteral("Exclusions"));

        // No item with the tag: logged, the tab still changes, the first
        // selection (by identifier) stays.
        window.toolbar()->removeAction(window.toolbar()->actions().at(1));
        window.selectTabViewItemAtIndex(1);
        QCOMPARE(window.tabView()->currentIndex(), 1);
        QCOMPARE(window.selectedItem()->objectName(), QStringLiteral("1"));
        QCOMPARE(m_log,
                 QStringList{QStringLiteral("Could not find matching NSToolbarItem for index: 1")});
    }

    void everyControlHasANameAndTabReachesIt()
    {
        HXSchedulingController::Options options;
        options.hasBatteryAvailable = [] {
            return true;
        };
        options.showsStatusMenu = [] {
            return false;
        };
        HXSchedulingController scheduling(options);
        HXPreferencesWindowController::Options windowOptions;
        windowOptions.schedulingController = &scheduling;
        HXPreferencesWindowController window(windowOptions);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        // The panes are disabled until a daemon answers; once the bus has
        // said whether one is there, they are enabled here so that Tab walks
        // them as a person would once it has.
        QTest::qWait(300);
        window.exclusionsController()->setContent(
            QVariantList{HXMakeExclusionEntry(QStringLiteral("/"), HXVolumeCatalogue::current())});
        window.schedulingPane()->setEnabled(true);
        window.exclusionsPane()->setEnabled(true);
        window.schedulingPane()->sleepWarning()->show();

        HXSchedulingPane *s = window.schedulingPane();
        const QList<QWidget *> schedulingControls{
            s->testingCheckBox(), s->automaticCheckBox(), s->hourPopup(),
            s->durationPopup(),   s->batteryCheckBox(),   s->alertsCheckBox(),
            s->menubarCheckBox(), s->sleepWarning(),      s->resetButton()};
        QStringList names;
        for (QWidget *w : schedulingControls) {
            QAccessibleInterface *a = QAccessible::queryAccessibleInterface(w);
            QVERIFY(a);
            const QString name = a->text(QAccessible::Name);
            QVERIFY2(name.size() > 3, w->metaObject()->className());
            names.append(name);
        }
        QCOMPARE(names[0], QStringLiteral("Test in the background"));
        // A popup is named by its label (the screen reader's "labelled by")
        // and read out with its value.
        for (QComboBox *popup : {s->hourPopup(), s->durationPopup()}) {
            const auto labels =
                QAccessible::queryAccessibleInterface(popup)->relations(QAccessible::Label);
            QCOMPARE(labels.size(), 1);
            QVERIFY(labels.first().first->text(QAccessible::Name).endsWith(QLatin1Char(':')));
        }
        QVERIFY(names[7].startsWith(QLatin1String("Warning:")));
        // A check box's state is read out.
        s->testingCheckBox()->setChecked(true);
        QVERIFY(QAccessible::queryAccessibleInterface(s->testingCheckBox())->state().checked);
        QCOMPARE(QAccessible::queryAccessibleInterface(s->hourPopup())->text(QAccessible::Value),
                 s->hourPopup()->currentText());

        // Tab from the toolbar walks every control in reading order.
        QList<QWidget *> order;
        QWidget *first = window.toolbar()->widgetForAction(window.toolbar()->actions().at(0));
        QVERIFY(first->focusPolicy() & Qt::TabFocus);
        window.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&window));
        first->setFocus(Qt::TabFocusReason);
        QCOMPARE(QApplication::focusWidget(), first);
        for (int i = 0; i < 14; ++i) {
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
            // The warning takes one Tab to reach its link, one to leave it.
            if (order.isEmpty() || order.constLast() != QApplication::focusWidget())
                order.append(QApplication::focusWidget());
        }
        const int start = int(order.indexOf(s->testingCheckBox()));
        QVERIFY(start >= 0);
        for (int i = 1; i < schedulingControls.size(); ++i)
            QVERIFY2(order.value(start + i) == schedulingControls[i],
                     qPrintable(QString::number(i)));

        window.showExclusions();
        HXExclusionsPane *e = window.exclusionsPane();
        for (QWidget *control :
             {static_cast<QWidget *>(e->list()), static_cast<QWidget *>(e->addButton()),
              static_cast<QWidget *>(e->removeButton()),
              static_cast<QWidget *>(e->resetButton())}) {
            const QString name =
                QAccessible::queryAccessibleInterface(control)->text(QAccessible::Name);
            QVERIFY2(name.size() > 3, control->metaObject()->className());
            QVERIFY(control->focusPolicy() & Qt::TabFocus);
        }
        const QString cell = window.exclusionsController()
                                 ->index(0, HXTestExclusionsController::VolTestColumn)
                                 .data(Qt::AccessibleTextRole)
                                 .toString();
        QCOMPARE(cell, QStringLiteral("Volume structures: excluded"));
    }
};

QTEST_MAIN(TestPreferences)
#include "tst_preferences.moc"
