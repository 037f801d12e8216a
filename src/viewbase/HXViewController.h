#pragma once

#include <QObject>
#include <QPointer>
#include <QWidget>

// A view controller shown in a tab of the main window. The window hands over
// between two of them with these hooks: the outgoing one says how long its
// disappearing takes (microseconds), the window waits that long off the main
// thread, then swaps the tabs.
class HXViewController : public QObject
{
    Q_OBJECT

public:
    explicit HXViewController(QObject *parent = nullptr);

    // The title; by default the class name without "ViewController".
    QString title() const;
    void setTitle(const QString &title) { m_title = title; }

    // The controller's view, made on first use.
    QWidget *view();

    virtual long long viewWillDisappearHX() { return 0; }
    virtual void viewWillAppearHX() {}
    virtual void viewDidDisappearHX() {}
    virtual void viewDidAppearHX() {}
    // Whether the view is the one the window shows.
    virtual bool isOnScreen() const;

    // The status tab's extras, which the window uses when the status tab is
    // chosen again while shown.
    virtual bool isStatusViewController() const { return false; }
    virtual bool statusViewIsTransparent() const { return false; }
    virtual void showAllBoxes(bool animated) { Q_UNUSED(animated); }

protected:
    virtual QWidget *makeView() = 0;

private:
    QString m_title;
    QPointer<QWidget> m_view;
};
