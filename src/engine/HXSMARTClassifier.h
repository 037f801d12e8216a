#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

// What smartctl's JSON says about one device, judged.
struct HXSMARTReport
{
    enum class Verdict { Passed, Warning, Error, NotTested };
    Verdict verdict = Verdict::NotTested;
    QString model; // empty when smartctl could not identify the device
    QString serial;
    QString wwn; // "naa.5000cca37fca81a8", as the kernel writes it; empty when none
    qint64 capacityBytes = 0;
    int exitStatus = 0; // smartctl's bit mask the verdict was drawn from
    // The evidence in words, worst first: why it failed or warns, why it was
    // not tested, or what limits a pass ("judged from its attributes alone").
    QStringList reasons;

    QString reasonText() const { return reasons.join(QStringLiteral("; ")); }
};

// Judges the output of `smartctl --json -x DEV`. No process, no device: the
// text and the exit status in, the verdict out, so every capture of a real
// drive can be checked.
class HXSMARTClassifier
{
public:
    // `processExitStatus` stands in when the JSON does not carry smartctl's
    // own exit_status (output of older versions, or a capture cut short).
    static HXSMARTReport classify(const QByteArray &json, int processExitStatus);
};
