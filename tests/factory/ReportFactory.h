#pragma once

#include "HXStatusReport.h"

// Builds believable reports of any size for tests and benchmarks: results
// spread over the ten tests and several disks, each with details holding a
// "disk" dictionary ("uuid", "bsdName", "volumeName"), and log entries of
// which every tenth carries three file children.
namespace ReportFactory {

HXStatusReportRef make(int results, int logEntries);

} // namespace ReportFactory
