#pragma once

#include <QString>
#include <QVariant>

// The daemons' own files (settings, the worker's store) are binary property
// lists, which keep dates to the millisecond; a file a developer rewrote as
// XML (plistutil) is read as well.

// The file's value; an invalid QVariant with a sentence when it is missing or
// does not parse.
QVariant HXDaemonReadPlistFile(const QString &path, QString *error);
// Replaces the file whole (temporary file and rename); false with a sentence
// on failure, the old file being left as it was.
bool HXDaemonWritePlistFile(const QString &path, const QVariant &value, QString *error);
