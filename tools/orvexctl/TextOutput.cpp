#include "TextOutput.h"

#include "ReportJson.h"

#include <QDateTime>

namespace TextOutput {

namespace {

QString paint(const QString &text, int groupStatus, bool colour)
{
    if (!colour)
        return text;
    const char *code = groupStatus == 3   ? "31;1"
                       : groupStatus == 2 ? "33;1"
                       : groupStatus == 1 ? "32"
                                          : "2";
    return QStringLiteral("\x1b[%1m%2\x1b[0m").arg(QLatin1String(code), text);
}

int statusOfType(const QString &type)
{
    if (type == QLatin1String("Error"))
        return 3;
    if (type == QLatin1String("Warning"))
        return 2;
    if (type == QLatin1String("Passed"))
        return 1;
    return 0;
}

} // namespace

QString statusWord(int groupStatus)
{
    switch (groupStatus) {
    case 3:
        return QStringLiteral("FAILED");
    case 2:
        return QStringLiteral("WARNING");
    case 1:
        return QStringLiteral("PASSED");
    default:
        return QStringLiteral("PENDING...");
    }
}

QString statusTable(const HXStatusBoard &board, bool colour)
{
    QString out;
    const int nameWidth = 24, statusWidth = 12;
    out += QStringLiteral("%1%2%3\n")
               .arg(QStringLiteral("TEST"), -nameWidth)
               .arg(QStringLiteral("STATUS"), -statusWidth)
               .arg(QStringLiteral("RESULT"));
    for (const HXTestDescriptor &d : HXTestTable()) {
        const int s = board.testStatus(d.test);
        const qint64 index = board.resultIndex(d.test);
        const QString word = statusWord(s);
        out += d.testName.leftJustified(nameWidth) + paint(word, s, colour) +
               QString(qMax(1, statusWidth - int(word.size())), QLatin1Char(' ')) +
               (index == HXResultIndexNotFound ? QStringLiteral("-")
                                               : QStringLiteral("#%1").arg(index)) +
               QLatin1Char('\n');
    }
    out += QStringLiteral("\n%1%2\n")
               .arg(QStringLiteral("GROUP"), -nameWidth)
               .arg(QStringLiteral("STATUS"));
    for (int g = 0; g < HXTestGroupCount; ++g) {
        const int s = board.groupStatus(HXTestGroup(g));
        out += HXTestGroupKey(HXTestGroup(g)).leftJustified(nameWidth) +
               paint(statusWord(s), s, colour) + QLatin1Char('\n');
    }
    return out;
}

QString statusLine(const HXStatusBoard &board, bool colour)
{
    QString line = QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    for (int g = 0; g < HXTestGroupCount; ++g) {
        const int s = board.groupStatus(HXTestGroup(g));
        line += QStringLiteral("  %1 %2").arg(HXTestGroupKey(HXTestGroup(g)),
                                              paint(statusWord(s), s, colour));
    }
    return line + QLatin1Char('\n');
}

QString report(const HXStatusReport &report, bool colour)
{
    QString out;
    const HXTestResultList results = report.testResults();
    out += QStringLiteral("Test results (%1)\n").arg(results.size());
    for (qsizetype i = 0; i < results.size(); ++i) {
        const HXTestResultRef &r = results[i];
        out += QStringLiteral("  #%1  %2  %3: %4\n")
                   .arg(i)
                   .arg(paint(r->type().leftJustified(8), statusOfType(r->type()), colour),
                        r->name(), r->log());
    }
    const HXLogEntryList log = report.log();
    out += QStringLiteral("\nLog (%1)\n").arg(log.size());
    for (const HXLogEntryRef &e : log) {
        out +=
            QStringLiteral("  %1  %2\n")
                .arg(e->timestamp().toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")),
                     paint(e->string(), statusOfType(e->type()), colour));
        if (const auto children = e->children()) {
            for (const HXLogEntryRef &c : *children)
                out += QStringLiteral("                       %1\n").arg(c->string());
        }
    }
    return out;
}

} // namespace TextOutput
