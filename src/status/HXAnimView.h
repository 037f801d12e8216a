#pragma once

#include "HXStatusBoard.h"

#include <QAbstractButton>
#include <QColor>
#include <QList>
#include <QMap>
#include <array>
#include <functional>

class HXLabel;
class HXTextField;
class QLabel;
class QPushButton;

// A group of tests on the status tab: a clickable panel with the group's
// icon, its title, a large status word and a coloured bullet and name per
// test. It slides in and out with the tab, fades while another group's result
// box is open, and shows a close button while its own box is open. Its tests
// are those of its group, listed in the group's order.
class HXAnimView : public QAbstractButton
{
    Q_OBJECT
    // The panel behind the fields fades with them, by painting.
    Q_PROPERTY(double panelOpacity READ panelOpacity WRITE setPanelOpacity)

public:
    // 0 no result, 1 passed, 2 warning, 3 error, 4 not applicable.
    static const std::array<QColor, 5> &statusColors();
    static bool batteryExists();

    HXAnimView(HXTestGroup group, const QString &title, const QString &iconName,
               QWidget *parent = nullptr);

    HXTestGroup group() const { return m_group; }
    const QList<HXTest> &tests() const { return m_tests; }
    // Shows each test's code (0..3; a test not given has no result), with
    // "not applicable" put in for tests this machine cannot run, and the
    // combined status.
    void setStatusForTests(const QMap<HXTest, qint32> &codes);
    void setStatusForTests(const HXStatusBoard &board);
    // The code a test shows, after the not-applicable substitution.
    qint32 statusOf(HXTest test) const { return m_codes.value(m_tests.indexOf(test)); }
    QLabel *nameField(HXTest test) const;

    qint32 testStatus() const { return m_testStatus; }
    void setStatus(qint32 code, bool animated);
    HXLabel *titleField() const { return m_titleField; }
    HXTextField *statusField() const { return m_statusField; }
    QPushButton *closeButton() const { return m_closeButton; }
    const QList<QLabel *> &subFields() const { return m_subFields; }

    // The view's place when shown; the layout sets it.
    QRect realFrame() const { return m_realFrame; }
    void setRealFrame(const QRect &frame);
    QPoint offScreenPlace() const;

    void viewWillAppear();
    void viewDidAppear();
    long long viewWillDisappear(); // microseconds to wait
    void viewDidDisappear() {}
    void fadeIn();
    void fadeOut();
    void activate();
    void deactivate();

    double panelOpacity() const { return m_panelOpacity; }
    void setPanelOpacity(double opacity);

    QSize sizeHint() const override { return {420, 196}; }

    // A test's go-to-log arrow shows while the test has a warning or an
    // error, or always with `showAll`; a test without a log action has none.
    void setLogButtonsShownAlways(bool showAll);
    QPushButton *logButton(HXTest test) const { return m_logButtons.value(m_tests.indexOf(test)); }

    QString title() const { return m_title; }
    // Faded out while another group's box is open: then hidden, so that
    // neither the keyboard nor a screen reader finds it.
    bool isFaded() const { return m_faded; }
    // What a screen reader lists inside the view, in reading order: each
    // test's line and arrow, then the close button.
    QList<QWidget *> accessibleParts() const;

Q_SIGNALS:
    // The close button of an open box.
    void closeRequested();
    // The go-to-log arrow of a test.
    void showInLog(HXTest test);

protected:
    // Whether this machine can run the test; the groups with tests that
    // depend on the machine say which.
    virtual bool testApplies(HXTest test) const;
    // A click on a test's name: explains a test that does not apply.
    void explainWhenNotApplicable(QLabel *name, std::function<bool()> applies, const QString &message,
                                  const QString &informative);

    void paintEvent(QPaintEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    // Adds a test's bullet, name and, when it has a log action, its arrow.
    void addTest(HXTest test);
    void setTestCode(int slot, qint32 code);
    void layoutFields();
    QList<QWidget *> fadingParts() const;

    void updateAccessibleName();
    void setFaded(bool faded);

    HXTestGroup m_group;
    QString m_title;
    bool m_faded = false;
    QList<HXTest> m_tests;
    QLabel *m_iconView;
    HXLabel *m_titleField;
    HXTextField *m_statusField;
    QPushButton *m_closeButton;
    QList<QLabel *> m_subFields;
    QList<qint32> m_codes;
    QRect m_realFrame;
    qint32 m_testStatus = 0;
    std::vector<std::pair<QLabel *, std::function<void()>>> m_clickable;
    QList<QPushButton *> m_logButtons; // null where a test has none
    bool m_showAll = false;
    double m_panelOpacity = 1.0;
    void fadePanel(double to);
    void updateLogButtons();
};
