#pragma once

#include <QWidget>

class QLabel;
class QProgressBar;
class QPushButton;

// The progress window of a report: what is happening in words, the progress
// bar, and the button that cancels, or closes once the report is done.
class ZRSendingReportProgress : public QWidget
{
    Q_OBJECT

public:
    explicit ZRSendingReportProgress(QWidget *parent = nullptr);

    QLabel *iconLabel() const { return m_icon; }
    QLabel *sendingReportProgressMessageField() const { return m_sending; }
    QLabel *sendingReportProgressMessageSentField() const { return m_sent; }
    QLabel *failureMessageField() const { return m_failure; }
    QProgressBar *sendingReportProgressIndicator() const { return m_progress; }
    QPushButton *sendingReportCancelButton() const { return m_button; }
    QPushButton *saveReportButton() const { return m_save; }

Q_SIGNALS:
    // The window was closed by its frame or the keyboard, not by its button.
    void closedByUser();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    QLabel *m_icon;
    QLabel *m_sending;
    QLabel *m_sent;
    QLabel *m_failure;
    QProgressBar *m_progress;
    QPushButton *m_save;
    QPushButton *m_button;
};
