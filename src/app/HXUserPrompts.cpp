#include "HXUserPrompts.h"

#include <QCoreApplication>
#include <QFileDialog>
#include <QMessageBox>
#include <QPrintDialog>
#include <QPushButton>

bool HXDialogPrompts::askDebugMode()
{
    QMessageBox alert(QMessageBox::Question, QStringLiteral("Orvex"),
                      QCoreApplication::translate("HXAppDelegate", "Modify Debug mode?"), QMessageBox::NoButton,
                      m_window);
    alert.setInformativeText(QCoreApplication::translate("HXAppDelegate", "This will enable or disable debug mode for Orvex."));
    QPushButton *enable = alert.addButton(QCoreApplication::translate("HXAppDelegate", "Enable"), QMessageBox::AcceptRole);
    alert.addButton(QCoreApplication::translate("HXAppDelegate", "Disable"), QMessageBox::RejectRole);
    alert.setDefaultButton(enable);
    alert.exec();
    return alert.clickedButton() == enable;
}

void HXDialogPrompts::presentError(const HXError &error)
{
    QMessageBox alert(QMessageBox::Warning, QStringLiteral("Orvex"),
                      error.description.isEmpty() ? QCoreApplication::translate("HXAppDelegate", "The operation could not be completed.")
                                                  : error.description,
                      QMessageBox::Ok, m_window);
    QStringList details;
    if (!error.failureReason.isEmpty())
        details.append(error.failureReason);
    if (!error.domain.isEmpty())
        details.append(QStringLiteral("(%1 error %2)").arg(error.domain).arg(error.code));
    alert.setInformativeText(details.join(QLatin1Char('\n')));
    alert.exec();
}

QString HXDialogPrompts::askSavePath(const QString &proposedName, const QStringList &extensions)
{
    QStringList patterns;
    for (const QString &extension : extensions)
        patterns.append(QStringLiteral("*.") + extension);
    QFileDialog panel(m_window);
    panel.setAcceptMode(QFileDialog::AcceptSave);
    panel.setNameFilter(QStringLiteral("%1 (%2)").arg(extensions.join(QStringLiteral(", ")).toUpper(),
                                                      patterns.join(QLatin1Char(' '))));
    panel.setDefaultSuffix(extensions.value(0));
    panel.selectFile(proposedName);
    if (panel.exec() != QDialog::Accepted || panel.selectedFiles().isEmpty())
        return {};
    return panel.selectedFiles().constFirst();
}

int HXDialogPrompts::askQuitAnyway()
{
    QMessageBox alert(QMessageBox::Warning, QStringLiteral("Orvex"),
                      QCoreApplication::translate("HXAppDelegate", "Could not save changes while quitting. Quit anyway?"),
                      QMessageBox::NoButton, m_window);
    alert.setInformativeText(QCoreApplication::translate(
        "HXAppDelegate", "Quitting now will lose any changes you have made since the last successful save."));
    QPushButton *quit = alert.addButton(QCoreApplication::translate("HXAppDelegate", "Quit anyway"), QMessageBox::AcceptRole);
    alert.addButton(QCoreApplication::translate("HXAppDelegate", "Cancel"), QMessageBox::RejectRole);
    alert.exec();
    // The first button answers 1000, the second 1001: never 0.
    return alert.clickedButton() == quit ? 1000 : 1001;
}

bool HXDialogPrompts::askPrintSettings(QPrinter *printer)
{
    QPrintDialog panel(printer, m_window);
    return panel.exec() == QDialog::Accepted;
}
