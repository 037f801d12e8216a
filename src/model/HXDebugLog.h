#pragma once

#include <QString>

// The switchable developer log: off when the program starts; when on, each
// message goes to the system log. It never reaches the report.
void HXDebugLog(const QString &message);
void HXDebugLogEnable(bool enabled);
// Callers that would build an expensive message ask first.
bool HXDebugLogIsEnabled();
