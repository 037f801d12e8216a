#include "HXLogDocuments.h"

#include "HXConstants.h"
#include "HXLogEntry.h"
#include "HXProductPaths.h"

#include <QFile>
#include <QPdfWriter>
#include <QPrinter>
#include <QSaveFile>
#include <QStringDecoder>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextTable>

namespace HXLogDocuments {

QString workerLogPath()
{
    return HXProductPaths::logsFolder() + QStringLiteral("/OrvexWorkerDaemon.log");
}

QString workerLogText(QString *error)
{
    QFile file(workerLogPath());
    if (!file.open(QIODevice::ReadOnly)) {
        if (error)
            *error = QStringLiteral("The worker's log %1 could not be read: %2").arg(file.fileName(), file.errorString());
        return {};
    }
    const QByteArray bytes = file.readAll();
    QStringDecoder utf8(QStringDecoder::Utf8);
    const QString text = utf8(bytes);
    if (!utf8.hasError())
        return text;
    return QString::fromLatin1(bytes);
}

bool saveWorkerLogAsText(const QString &destination, QString *error)
{
    const auto fail = [&](const QString &reason) {
        if (error)
            *error = QStringLiteral("The worker's log could not be copied to “%1”: %2")
                         .arg(destination, reason);
        return false;
    };
    QFile source(workerLogPath());
    if (!source.open(QIODevice::ReadOnly))
        return fail(source.errorString());
    const QByteArray bytes = source.readAll();
    // Written beside the file it replaces and put in its place only when
    // whole: a failed write leaves the user's file as it was.
    QSaveFile file(destination);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        return fail(file.errorString());
    if (!file.commit())
        return fail(file.errorString());
    return true;
}

QTextDocument *logPrintDocument(const HXStatusReportRef &report)
{
    auto *document = new QTextDocument;
    document->setDocumentMargin(0);
    // Without ligatures, so that a search of the PDF for "files" finds it.
    QFont font = document->defaultFont();
    font.setStyleStrategy(QFont::PreferNoShaping);
    document->setDefaultFont(font);
    QTextCursor cursor(document);
    QTextCharFormat title;
    title.setFontPointSize(14);
    title.setFontWeight(QFont::Bold);
    cursor.insertText(QStringLiteral("Orvex Log"), title);
    cursor.insertBlock();

    const HXLogEntryList entries = report ? report->log() : HXLogEntryList();
    QTextTableFormat format;
    format.setHeaderRowCount(1);
    format.setCellPadding(3);
    format.setCellSpacing(0);
    format.setBorder(0.5);
    format.setWidth(QTextLength(QTextLength::PercentageLength, 100));
    format.setColumnWidthConstraints({QTextLength(QTextLength::PercentageLength, 22),
                                      QTextLength(QTextLength::PercentageLength, 10),
                                      QTextLength(QTextLength::PercentageLength, 68)});
    QTextTable *table = cursor.insertTable(1, 3, format);
    QTextCharFormat header;
    header.setFontWeight(QFont::Bold);
    const QStringList headings = {QStringLiteral("Date"), QStringLiteral("Type"), QStringLiteral("Log Message")};
    for (int column = 0; column < 3; ++column)
        table->cellAt(0, column).firstCursorPosition().insertText(headings[column], header);
    for (const HXLogEntryRef &entry : entries) {
        table->appendRows(1);
        const int row = table->rows() - 1;
        table->cellAt(row, 0).firstCursorPosition().insertText(
            entry->timestamp().toLocalTime().toString(HXDTestResultDateFormat));
        table->cellAt(row, 1).firstCursorPosition().insertText(entry->type());
        QTextCursor message = table->cellAt(row, 2).firstCursorPosition();
        message.insertText(entry->string().section(HXLogEntryBreakDelimiter, 0, 0));
        for (const HXLogEntryRef &file : entry->children().value_or(HXLogEntryList())) {
            message.insertBlock();
            message.insertText(QStringLiteral("    ") + file->string());
        }
    }
    if (entries.isEmpty()) {
        table->appendRows(1);
        table->cellAt(1, 2).firstCursorPosition().insertText(QStringLiteral("The log is empty."));
    }
    return document;
}

bool saveLogAsPdf(const QString &destination, const HXStatusReportRef &report, QString *error)
{
    const auto fail = [&](const QString &reason) {
        if (error)
            *error = QStringLiteral("The log cannot be written to %1: %2").arg(destination, reason);
        return false;
    };
    // Written beside the file it replaces and put in its place only when
    // whole: a full disk or a failed write leaves the user's file as it was.
    QSaveFile file(destination);
    if (!file.open(QIODevice::WriteOnly))
        return fail(file.errorString());
    {
        QPdfWriter writer(&file);
        writer.setTitle(QStringLiteral("Orvex Log"));
        writer.setCreator(QStringLiteral("Orvex"));
        writer.setPageSize(QPageSize(QPageSize::A4));
        writer.setPageMargins(QMarginsF(15, 15, 15, 15), QPageLayout::Millimeter);
        std::unique_ptr<QTextDocument> document(logPrintDocument(report));
        // Pages follow one another down the log.
        document->print(&writer);
    }
    if (file.error() != QFileDevice::NoError) {
        const QString reason = file.errorString();
        file.cancelWriting();
        return fail(reason);
    }
    if (file.size() == 0) {
        file.cancelWriting();
        return fail(QStringLiteral("the pages could not be drawn"));
    }
    if (!file.commit())
        return fail(file.errorString());
    return true;
}

bool printWorkerLog(QPrinter *printer, QString *error)
{
    QString why;
    const QString text = workerLogText(&why);
    if (!why.isEmpty()) {
        *error = why;
        return false;
    }
    QTextDocument document;
    document.setPlainText(text);
    QFont mono(QStringLiteral("monospace"));
    mono.setStyleHint(QFont::Monospace);
    mono.setPointSize(9);
    document.setDefaultFont(mono);
    // Without a page size of its own, the document is laid out on the
    // printer's printable rectangle at the printer's resolution: lines wrap
    // at the page's width and the pages follow one another.
    document.print(printer);
    if (printer->printerState() == QPrinter::Error) {
        *error = printer->outputFileName().isEmpty()
                     ? QStringLiteral("The printer “%1” refused the worker's log.")
                           .arg(printer->printerName())
                     : QStringLiteral("The worker's log could not be printed to “%1”.")
                           .arg(printer->outputFileName());
        return false;
    }
    return true;
}

} // namespace HXLogDocuments
