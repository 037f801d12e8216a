#pragma once

#include "HXInstallManager.h" // HXError

#include <QString>
#include <QStringList>

class QPrinter;
class QWidget;

// The questions and messages the application puts to the user, behind one
// small interface so that tests answer them instead of a person.
class HXUserPrompts
{
public:
    virtual ~HXUserPrompts() = default;
    // "Modify Debug mode?": true for Enable, false for Disable.
    virtual bool askDebugMode() = 0;
    virtual void presentError(const HXError &error) = 0;
    // A save panel; an empty path when cancelled.
    virtual QString askSavePath(const QString &proposedName, const QStringList &extensions) = 0;
    // "Could not save changes while quitting. Quit anyway?"; the answer.
    virtual int askQuitAnyway() = 0;
    // The print panel over `printer`, whose settings it changes; false when
    // cancelled.
    virtual bool askPrintSettings(QPrinter *printer) = 0;
};

// The real dialogs, over `window`.
class HXDialogPrompts : public HXUserPrompts
{
public:
    explicit HXDialogPrompts(QWidget *window = nullptr)
        : m_window(window)
    {
    }
    void setWindow(QWidget *window) { m_window = window; }

    bool askDebugMode() override;
    void presentError(const HXError &error) override;
    QString askSavePath(const QString &proposedName, const QStringList &extensions) override;
    int askQuitAnyway() override;
    bool askPrintSettings(QPrinter *printer) override;

private:
    QWidget *m_window;
};
