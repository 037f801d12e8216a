#pragma once

#include "HXStatusBoard.h"
#include "HXStatusReport.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QVariant>

// The report and its status as JSON for scripts. Property-list values take
// their natural JSON form: dates as ISO 8601 UTC text, data as base64 text,
// the null object as null.
namespace ReportJson {

QJsonValue fromPlistValue(const QVariant &value);
QString isoTimestamp(const QDateTime &date);

// {"testResults": [...], "log": [...]}
QJsonObject report(const HXStatusReport &report);
// {"tests": {"<test name>": {"status": n, "index": n|null}, ...},
//  "groups": {"hardware": n, "system": n, "drives": n, "files": n}}
QJsonObject status(const HXStatusBoard &board);

} // namespace ReportJson
