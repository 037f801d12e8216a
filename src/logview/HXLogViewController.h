#pragma once

#include "HXNotificationCenter.h"
#include "HXViewController.h"

#include <QPointer>
#include <optional>
#include <vector>

class HXLogOutlineView;
struct HXSystemVersion;
class HXLogTreeModel;
class HXStatusReporter;
class QAction;
class QModelIndex;

// The log tab: the shared reporter's log as an outline, newest first. Clears
// the log, resets the product, shows a logged file in the file manager, and
// points at the entry behind a result shown elsewhere
// ("ShowResultNotification"). It slides in from below when shown and back
// down when it leaves; it counts as on screen when it stands at y = 6.
class HXLogViewController : public HXViewController
{
    Q_OBJECT

public:
    static constexpr int kOnScreenY = 6;
    static constexpr int kSlideInMilliseconds = 250;
    static constexpr long long kSlideOutMicroseconds = 125000;

    struct Options
    {
        HXStatusReporter *reporter = nullptr;        // the shared reporter when none
        HXNotificationCenter *localCenter = nullptr; // the default centre when none
    };

    HXLogViewController();
    explicit HXLogViewController(Options options, QObject *parent = nullptr);
    ~HXLogViewController() override;

    // Points added to the measured width of the Date column: 10 on systems
    // before 10.11, 14 from 10.11 on.
    static double dateColumnAllowance(const HXSystemVersion &version);

    HXLogOutlineView *outlineView();
    HXLogTreeModel *model() const { return m_model; }
    HXStatusReporter *statusReporter() const { return m_reporter; }

    // The Log menu's items: "Clear Log…", "Reset Orvex…" (the menu shows it
    // while Alt is held) and "Show in File Manager" (Ctrl+Enter).
    QAction *clearLogAction() const { return m_clearLogAction; }
    QAction *resetAction() const { return m_resetAction; }
    QAction *showInFileManagerAction() const { return m_showInFileManagerAction; }

    long long viewWillDisappearHX() override;
    void viewWillAppearHX() override;
    bool isOnScreen() const override;

public Q_SLOTS:
    void clearLog();
    void deleteLogFile();
    void resetOrvex();
    // Shows the file of a file row; nothing for any other row.
    void loadFinderForFile(const QModelIndex &index);
    void showSelectedFileInFileManager();
    void expandHideItem(const QModelIndex &index);
    // The top-level entry at count - 1 - resultIndex in arranged order.
    void showResult(qint64 resultIndex);
    void scrollToTop();

protected:
    QWidget *makeView() override;

private:
    // The alert's text for a file only the idle daemon sees: its owner, or
    // why there is none (no answer: nullopt).
    static QString notAccessibleText(const QString &path, const std::optional<QString> &owner);
    void slideTo(int y, int milliseconds);
    void alert(const QString &title, const QString &text);
    bool confirm(const QString &title, const QString &text);
    void updateFileAction();

    Options m_options;
    HXStatusReporter *m_reporter = nullptr;
    HXLogTreeModel *m_model = nullptr;
    QPointer<QWidget> m_page;
    QPointer<HXLogOutlineView> m_outline;
    QAction *m_clearLogAction = nullptr;
    QAction *m_resetAction = nullptr;
    QAction *m_showInFileManagerAction = nullptr;
    std::vector<HXNotificationCenter::Token> m_tokens;
};
