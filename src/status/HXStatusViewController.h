#pragma once

#include "HXConstants.h"
#include "HXGroupViews.h"
#include "HXStagedAnimation.h"
#include "HXStatusBoard.h"
#include "HXViewController.h"

#include <QPointer>
#include <array>
#include <atomic>
#include <functional>
#include <memory>

class HXDBusNotificationCenter;
class HXDaemonPresence;
class QLabel;
class HXIconAnimate;
class HXDescriptionField;
class HXNotificationCenter;
class HXShapedTextView;
class HXStatusReporter;
class HXStatusViewRemoteControlManager;
class HXTextAnimate;
class QScrollArea;

// The status tab: the worker's live test status on eight icons, the report's
// outcome in four groups, and a group's result box with its repair advice
// flowing around it.
class HXStatusViewController : public HXViewController
{
    Q_OBJECT

public:
    struct Options
    {
        HXStatusReporter *reporter = nullptr;             // the shared reporter when none
        HXNotificationCenter *localCenter = nullptr;      // the default centre when none
        HXDBusNotificationCenter *distributedCenter = nullptr; // none: only the command listener
        quint16 listenerPort = 6333;                      // 0: no command listener
    };

    explicit HXStatusViewController(Options options, QObject *parent = nullptr);
    explicit HXStatusViewController(QObject *parent = nullptr);
    ~HXStatusViewController() override;

    const HXStatusBoard &board() const { return m_board; }
    qint64 resultIndex(HXTest test) const { return m_board.resultIndex(test); }
    QStringList repairAdviceExtraStrings() const { return m_repairAdviceExtraStrings; }
    bool showAll() const { return m_showAll; }
    void setShowAll(bool showAll);

    HXHardwareView *hardwareView() const { return m_hardwareView; }
    HXSystemView *systemView() const { return m_systemView; }
    HXDrivesView *drivesView() const { return m_drivesView; }
    HXFilesView *filesView() const { return m_filesView; }
    // The live icon of a test; none for surface scan and file structures.
    HXIconAnimate *icon(HXTest test) const;
    QWidget *statusView() const { return m_statusView; }
    // The line saying that the daemons are not running.
    QLabel *daemonsMissingText() const { return m_daemonsMissingText; }
    QScrollArea *repairAdviceView() const { return m_repairAdviceView; }
    HXShapedTextView *adviceView() const { return m_adviceView; }
    HXAnimView *showingBox() const { return m_showingBox; }
    QList<QWidget *> showingBoxExtras() const;
    bool isAnimatingBox() const { return m_stages.isRunning(); }
    std::atomic<bool> cancelAnimation{false};

    // How the main window finishes testing; the app sets it.
    void setTestingFinishedHandler(std::function<void()> handler) { m_testingFinished = std::move(handler); }

    void reloadData();
    void initializeTestStatus();
    void updateTestStatus();
    void testingFinishedStatus();
    // The worker's live status as the eight icons and the volume-structure
    // texts show it, each asked for as the worker is asked for it.
    struct LiveStatus
    {
        qint32 post = 0, io = 0, battery = 0, memory = 0, smart = 0, raid = 0;
        qint32 volStructs = 0, volStructsText = 0, warningText = 0, partitionMap = 0;
    };
    void showTestStatus(const LiveStatus &status);
    // Whether an answer from the worker is still awaited.
    bool isAskingForTestStatus() const { return m_askingForStatus; }

    void gotoLog(qint64 index);
    void showInLog(HXTest test);
    void individualStatusButtonClicked(qint64 tag);

    void showHardwareRepairAdvice();
    void showSystemRepairAdvice();
    void showDrivesRepairAdvice();
    void showFilesRepairAdvice();
    // The advice of one test, in a box without a group view.
    void showTestRepairAdvice(HXTest test);
    // Opens the box of `view` (or closes the open one).
    void showView(HXAnimView *view, const QString &advice, const QList<HXResultEntry> &results);
    void showAllBoxes();

    // HXViewController
    long long viewWillDisappearHX() override;
    void viewWillAppearHX() override;
    void viewDidDisappearHX() override;
    void viewDidAppearHX() override;
    bool isOnScreen() const override;
    bool isStatusViewController() const override { return true; }
    bool statusViewIsTransparent() const override;
    void showAllBoxes(bool animated) override;

protected:
    QWidget *makeView() override;

private:
    void wire();
    void layoutStatusView();
    // The open box at the tab's right edge and the advice fitted to the tab,
    // at the tab's size of the moment.
    void layoutOpenBox();
    void fitAdvice();
    QList<HXAnimView *> groupViews() const;
    void slideStatusView(int y, int milliseconds);
    // The panel's own fade: its icons and captions (the groups fade
    // themselves), so that no graphics effects nest.
    void fadeStatusView(double to, int milliseconds);
    void fadeAdvice(double to, int milliseconds);
    QFont adviceFont() const;
    bool eventFilter(QObject *watched, QEvent *event) override;

    Options m_options;
    HXStatusBoard m_board;
    QStringList m_repairAdviceExtraStrings;
    std::unique_ptr<HXStatusViewRemoteControlManager> m_svrcm;
    bool m_showAll = false;
    std::function<void()> m_testingFinished;
    std::vector<quint64> m_localTokens;
    quint64 m_showAllToken = 0;
    quint64 m_workerToken = 0;

    QPointer<QWidget> m_root;
    QWidget *m_statusView = nullptr;
    HXHardwareView *m_hardwareView = nullptr;
    HXSystemView *m_systemView = nullptr;
    HXDrivesView *m_drivesView = nullptr;
    HXFilesView *m_filesView = nullptr;
    std::array<HXIconAnimate *, 8> m_icons{};
    HXTextAnimate *m_volumeStructuresText = nullptr;
    HXDescriptionField *m_warningText = nullptr;
    QLabel *m_daemonsMissingText = nullptr;
    HXDaemonPresence *m_presence = nullptr;
    QScrollArea *m_repairAdviceView = nullptr;
    HXShapedTextView *m_adviceView = nullptr;

    double m_statusViewOpacity = 1.0;
    QPointer<HXAnimView> m_showingBox;
    QList<QPointer<QWidget>> m_showingBoxExtras;
    QRect m_previousBoxFrame;
    bool m_askingForStatus = false;
    bool m_askAgain = false;

    // Last, so that it stops before anything its stages touch goes.
    HXStagedAnimation m_stages{cancelAnimation};
};
