#pragma once

#include "HXMachineProbes.h"
#include "HXStatusBoard.h"
#include "HXStatusReport.h"

#include <QString>

// The status in Prometheus's text exposition format, for node_exporter's
// textfile collector: a gauge per test and per group with the group-status
// scale, the results by type, and the time of the newest result. Tests that
// cannot apply on this machine (no battery, no array, no SMART disk, no
// partition-map test) are 4, as the status window shows them.
namespace PrometheusText {

// A label value as the format wants it: backslash, double quote and line
// feed escaped.
QString labelValue(const QString &value);

QString status(const HXStatusBoard &board, const HXStatusReport &report,
               const HXMachineProbes &machine);

} // namespace PrometheusText
