#pragma once

#include <QDialog>

class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;

// The dialog that asks for a reply-to address and a message. Only widgets:
// the help reporter's controller decides what they show and what they do.
// Escape closes it, as the Cancel button does.
class ZRSendReportDialog : public QDialog
{
    Q_OBJECT

public:
    explicit ZRSendReportDialog(QWidget *parent = nullptr);

    QLabel *iconLabel() const { return m_icon; }
    QLabel *titleLabel() const { return m_title; }
    QLineEdit *replyToEmailField() const { return m_replyTo; }
    QPlainTextEdit *reportMessageField() const { return m_message; }
    QPushButton *sendButton() const { return m_send; }
    QPushButton *saveInsteadButton() const { return m_saveInstead; }
    QPushButton *cancelButton() const { return m_cancel; }

private:
    QLabel *m_icon;
    QLabel *m_title;
    QLineEdit *m_replyTo;
    QPlainTextEdit *m_message;
    QPushButton *m_send;
    QPushButton *m_saveInstead;
    QPushButton *m_cancel;
};
