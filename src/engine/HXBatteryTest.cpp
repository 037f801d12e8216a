#include "HXBatteryTest.h"

#include "HXConstants.h"
#include "HXSystemRoot.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <cmath>

namespace {

// A sysfs attribute is at most a page.
constexpr qint64 kMaxAttributeBytes = 4096;
// New cells hold a little more than their design; far more means the figures
// are not what they say.
constexpr double kBelievableRatio = 1.5;

struct Attribute
{
    bool exists = false;
    QString text; // printable, trimmed; empty when the read failed
};

Attribute attribute(const QString &folder, const QString &name)
{
    QFile file(folder + QLatin1Char('/') + name);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray bytes = file.read(kMaxAttributeBytes);
    if (file.error() != QFileDevice::NoError)
        return {true, {}};
    QString text = QString::fromUtf8(bytes);
    // Drivers have been seen to pad with NULs or leave firmware garbage.
    for (QChar &c : text) {
        if (!c.isPrint() || c == QChar::ReplacementCharacter)
            c = QLatin1Char(' ');
    }
    return {true, text.simplified()};
}

QString quoted(const QString &text)
{
    return QStringLiteral("\u201c%1\u201d")
        .arg(text.size() > 40 ? text.left(40) + QStringLiteral("\u2026") : text);
}

// A non-negative number, or why the attribute does not give one (empty when absent).
std::optional<qint64> number(const Attribute &a, const QString &name, QString *problem)
{
    if (!a.exists)
        return std::nullopt;
    bool ok = false;
    const qint64 value = a.text.toLongLong(&ok);
    if (ok && value >= 0)
        return value;
    if (problem && problem->isEmpty()) {
        *problem = a.text.isEmpty()
                       ? QStringLiteral("%1 could not be read").arg(name)
                       : QStringLiteral("%1 is not a number of the kind it should be (%2)")
                             .arg(name, quoted(a.text));
    }
    return std::nullopt;
}

enum class Verdict { Passed, Warning, Error, Unknown };

Verdict healthVerdict(const QString &word)
{
    static const QStringList errors{QStringLiteral("Dead"), QStringLiteral("Over voltage"),
                                    QStringLiteral("Over current"),
                                    QStringLiteral("Unspecified failure")};
    static const QStringList warnings{QStringLiteral("Overheat"),
                                      QStringLiteral("Hot"),
                                      QStringLiteral("Cold"),
                                      QStringLiteral("Watchdog timer expire"),
                                      QStringLiteral("Safety timer expire"),
                                      QStringLiteral("Calibration required")};
    static const QStringList fine{QStringLiteral("Good"), QStringLiteral("Warm"),
                                  QStringLiteral("Cool"), QStringLiteral("Unknown")};
    if (errors.contains(word))
        return Verdict::Error;
    if (warnings.contains(word))
        return Verdict::Warning;
    return fine.contains(word) ? Verdict::Passed : Verdict::Unknown;
}

QString worse(const QString &a, const QString &b)
{
    auto rank = [](const QString &t) {
        return t == HXDTestResultErrorType ? 2 : t == HXDTestResultWarningType ? 1 : 0;
    };
    return rank(b) > rank(a) ? b : a;
}

} // namespace

QString HXBatteryFacts::label() const
{
    QString text = manufacturer;
    if (!model.isEmpty() && !model.startsWith(manufacturer, Qt::CaseInsensitive))
        text += QLatin1Char(' ') + model;
    else if (!model.isEmpty())
        text = model;
    return text.trimmed();
}

HXBatteryFacts HXBatteryTest::read(const QString &folder)
{
    HXBatteryFacts facts;
    facts.name = QFileInfo(folder).fileName();
    facts.manufacturer = attribute(folder, QStringLiteral("manufacturer")).text;
    facts.model = attribute(folder, QStringLiteral("model_name")).text;
    facts.serial = attribute(folder, QStringLiteral("serial_number")).text;
    facts.health = attribute(folder, QStringLiteral("health")).text;
    facts.cycles = number(attribute(folder, QStringLiteral("cycle_count")), {}, nullptr);

    // The first unit whose pair gives a believable figure; else the first
    // problem met, for the log.
    QString firstProblem;
    bool anyPair = false;
    for (const QString &unit : {QStringLiteral("energy"), QStringLiteral("charge")}) {
        const QString fullName = unit + QStringLiteral("_full");
        const QString designName = unit + QStringLiteral("_full_design");
        const Attribute fullText = attribute(folder, fullName);
        const Attribute designText = attribute(folder, designName);
        if (!fullText.exists && !designText.exists)
            continue;
        anyPair = true;
        QString problem;
        const std::optional<qint64> full = number(fullText, fullName, &problem);
        const std::optional<qint64> design = number(designText, designName, &problem);
        if (problem.isEmpty() && !fullText.exists)
            problem = QStringLiteral("the driver gives %1 but no %2").arg(designName, fullName);
        if (problem.isEmpty() && !designText.exists)
            problem = QStringLiteral("the driver gives %1 but no %2").arg(fullName, designName);
        if (problem.isEmpty() && *design == 0)
            problem = QStringLiteral("%1 is 0").arg(designName);
        if (problem.isEmpty() && double(*full) > kBelievableRatio * double(*design))
            problem = QStringLiteral("%1 (%2) is far above %3 (%4)")
                          .arg(fullName)
                          .arg(*full)
                          .arg(designName)
                          .arg(*design);
        if (problem.isEmpty()) {
            facts.full = full;
            facts.design = design;
            facts.unit = unit;
            return facts;
        }
        if (firstProblem.isEmpty())
            firstProblem = problem;
    }
    facts.capacityProblem =
        anyPair ? firstProblem
                : QStringLiteral("the driver gives neither energy_full nor charge_full "
                                 "figures");
    return facts;
}

HXTestFinding HXBatteryTest::judge(const HXBatteryFacts &facts)
{
    HXTestFinding finding;
    finding.type = HXDTestResultSuccessType;
    QStringList parts;

    if (facts.full && facts.design && *facts.design > 0) {
        const double percent = 100.0 * double(*facts.full) / double(*facts.design);
        // Shown rounded down, so a figure shown as 80 % never fails the 80 % mark.
        QString part = QStringLiteral("%1 % of its design capacity").arg(int(std::floor(percent)));
        if (percent < 50.0) {
            finding.type = HXDTestResultErrorType;
            part += QStringLiteral(" (below 50 %)");
        } else if (percent < 80.0) {
            finding.type = HXDTestResultWarningType;
            part += QStringLiteral(" (below 80 %)");
        }
        parts.append(part);
    } else {
        parts.append(QStringLiteral("its capacity could not be judged because %1")
                         .arg(facts.capacityProblem));
    }

    if (!facts.health.isEmpty()) {
        QString part =
            QStringLiteral("its driver reports its health as %1").arg(quoted(facts.health));
        switch (healthVerdict(facts.health)) {
        case Verdict::Error:
            finding.type = HXDTestResultErrorType;
            break;
        case Verdict::Warning:
            finding.type = worse(finding.type, HXDTestResultWarningType);
            break;
        case Verdict::Unknown:
            part += QStringLiteral(", a word the kernel does not define, so it was not judged");
            break;
        case Verdict::Passed:
            break;
        }
        parts.append(part);
    }

    // Firmware that does not count cycles reports 0.
    if (facts.cycles && *facts.cycles > 0)
        parts.append(*facts.cycles == 1 ? QStringLiteral("1 cycle")
                                        : QStringLiteral("%1 cycles").arg(*facts.cycles));

    const QString verb = finding.type == HXDTestResultErrorType     ? QStringLiteral("failed")
                         : finding.type == HXDTestResultWarningType ? QStringLiteral("warning")
                                                                    : QStringLiteral("passed");
    const QString label = facts.label();
    finding.log =
        QStringLiteral("Battery test %1 on %2%3: %4")
            .arg(verb, facts.name, label.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(label),
                 parts.join(QStringLiteral(", ")));

    QStringList identity;
    for (const QString &part : {facts.manufacturer, facts.model, facts.serial}) {
        if (!part.isEmpty())
            identity.append(part);
    }
    finding.testInfo.insert(
        HXDiskKey,
        QVariantMap{{QStringLiteral("uuid"),
                     identity.isEmpty() ? facts.name : identity.join(QLatin1Char(' '))},
                    {HXBSDNameKey, facts.name},
                    {HXVolumeNameKey, facts.model.isEmpty() ? facts.name : facts.model},
                    {HXDeviceNameAndSizeKey, facts.model.isEmpty() ? facts.name : facts.model}});
    return finding;
}

QList<HXTestFinding> HXBatteryTest::run(const HXEngineContext &context)
{
    const QDir folder(HXSystemRoot::map(QStringLiteral("/sys/class/power_supply")));
    QList<HXTestFinding> findings;
    const QStringList supplies =
        folder.entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::System, QDir::Name);
    for (const QString &supply : supplies) {
        if (context.isCancelled())
            break;
        const QString base = folder.filePath(supply);
        if (attribute(base, QStringLiteral("type")).text != QLatin1String("Battery"))
            continue;
        const QString scope = attribute(base, QStringLiteral("scope")).text;
        if (!scope.isEmpty() && scope != QLatin1String("System")) {
            context.say(
                QStringLiteral("Battery test: %1 is the battery of a device (scope %2), not the "
                               "machine's; it was not tested.")
                    .arg(supply, scope));
            continue;
        }
        if (attribute(base, QStringLiteral("present")).text == QLatin1String("0") ||
            attribute(base, QStringLiteral("health")).text == QLatin1String("No battery")) {
            context.say(
                QStringLiteral("Battery test: %1 reports no battery in its bay; it was not tested.")
                    .arg(supply));
            continue;
        }
        findings.append(judge(read(base)));
    }
    return findings;
}
