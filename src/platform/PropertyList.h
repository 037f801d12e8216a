#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>

// Reads a property list of any format: binary lists through our own reader,
// XML through libplist. Values are those of BinaryPlistReader. libplist keeps
// integers unsigned; they are read back as signed 64-bit values, so XML
// integers above 2^63-1 come back negative.
QVariant readPropertyList(const QByteArray &bytes, QString *error);

// An XML property list made by libplist, for people and tools that want text.
QByteArray writeXmlPropertyList(const QVariant &value, QString *error);
