#include "PrometheusText.h"

#include "HXConstants.h"

#include <QDateTime>
#include <array>

namespace PrometheusText {

namespace {

// The status window's rule: these four are not applicable where the machine
// lacks what they test, whatever the report holds.
bool applies(HXTest test, const HXMachineProbes &machine)
{
    switch (test) {
    case HXTest::Battery:
        return machine.hasInternalBattery();
    case HXTest::RAID:
        return machine.raidExists();
    case HXTest::SMART:
        return machine.smartExists();
    case HXTest::PartitionMap:
        return machine.partitionMapIsTestable();
    default:
        return true;
    }
}

QString family(const QString &name, const QString &help)
{
    QString escaped = help;
    escaped.replace(QLatin1Char('\\'), QLatin1String("\\\\"))
        .replace(QLatin1Char('\n'), QLatin1String("\\n"));
    return QStringLiteral("# HELP %1 %2\n# TYPE %1 gauge\n").arg(name, escaped);
}

QString seconds(const QDateTime &date)
{
    const qint64 ms = date.toMSecsSinceEpoch();
    if (ms % 1000 == 0)
        return QString::number(ms / 1000);
    return QString::number(double(ms) / 1000.0, 'f', 3);
}

} // namespace

QString labelValue(const QString &value)
{
    QString out;
    out.reserve(value.size());
    for (const QChar c : value) {
        if (c == QLatin1Char('\\'))
            out += QLatin1String("\\\\");
        else if (c == QLatin1Char('"'))
            out += QLatin1String("\\\"");
        else if (c == QLatin1Char('\n'))
            out += QLatin1String("\\n");
        else
            out += c;
    }
    return out;
}

QString status(const HXStatusBoard &board, const HXStatusReport &report,
               const HXMachineProbes &machine)
{
    QString out = family(
        QStringLiteral("orvex_test_status"),
        QStringLiteral("State of each Orvex test as the status window shows it: 0 no result, "
                       "1 passed, 2 warning, 3 error, 4 not applicable on this machine."));
    std::array<int, HXTestCount> codes{};
    for (const HXTestDescriptor &d : HXTestTable()) {
        const int code =
            applies(d.test, machine) ? board.testStatus(d.test) : int(HXGroupStatusNotApplicable);
        codes[size_t(d.test)] = code;
        out +=
            QStringLiteral("orvex_test_status{test=\"%1\",name=\"%2\",group=\"%3\"} %4\n")
                .arg(labelValue(d.key), labelValue(d.testName), labelValue(HXTestGroupKey(d.group)))
                .arg(code);
    }

    out += family(
        QStringLiteral("orvex_group_status"),
        QStringLiteral("State of each group of Orvex tests, the worst of its tests: 0 no result, "
                       "1 passed, 2 warning, 3 error; tests that do not apply here are left out."));
    for (int g = 0; g < HXTestGroupCount; ++g) {
        QList<int> groupCodes;
        for (HXTest t : HXTestsOfGroup(HXTestGroup(g)))
            groupCodes.append(codes[size_t(t)]);
        out += QStringLiteral("orvex_group_status{group=\"%1\"} %2\n")
                   .arg(labelValue(HXTestGroupKey(HXTestGroup(g))))
                   .arg(HXStatusBoard::combine(groupCodes));
    }

    int passed = 0, warnings = 0, errors = 0;
    for (const HXTestResultRef &r : report.testResults()) {
        const QString type = r->type();
        passed += type == HXDTestResultSuccessType;
        warnings += type == HXDTestResultWarningType;
        errors += type == HXDTestResultErrorType;
    }
    out += family(QStringLiteral("orvex_results"),
                  QStringLiteral("Test results in the Orvex report, by type."));
    out += QStringLiteral("orvex_results{type=\"passed\"} %1\norvex_results{type=\"warning\"} %2\n"
                          "orvex_results{type=\"error\"} %3\n")
               .arg(passed)
               .arg(warnings)
               .arg(errors);

    // Results carry no time; the line the worker logs with each result does.
    QDateTime newest;
    for (const HXLogEntryRef &e : report.log()) {
        const QString type = e->type();
        const QDateTime when = e->timestamp();
        if ((type == HXDTestResultSuccessType || type == HXDTestResultWarningType ||
             type == HXDTestResultErrorType) &&
            when.isValid() && (!newest.isValid() || when > newest))
            newest = when;
    }
    out += family(
        QStringLiteral("orvex_last_result_timestamp_seconds"),
        QStringLiteral("Time of the newest result in the Orvex report, in seconds since the epoch: "
                       "results carry no time of their own, so this is the time of the newest "
                       "passed, warning or error line of the report's log, which is written with "
                       "each result. No sample while there is none."));
    if (newest.isValid())
        out += QStringLiteral("orvex_last_result_timestamp_seconds %1\n").arg(seconds(newest));
    return out;
}

} // namespace PrometheusText
