#pragma once

#include <QString>

// Where the kernel's view of the machine is read: /sys, /proc and the kernel
// log device. With ORVEX_SYSROOT set, those paths are taken under that folder
// (a fixture tree laid out as the kernel lays out its own), and /dev/kmsg is a
// plain file of records there. Device nodes are never moved: a block device
// is always the real /dev node, so a test names a real loop device.
class HXSystemRoot
{
public:
    static QString root(); // empty when the real machine is read
    // `absolutePath` (under /sys, /proc or /dev/kmsg) as this process reads it.
    static QString map(const QString &absolutePath);

    static QString sysfs() { return map(QStringLiteral("/sys")); }
    static QString procfs() { return map(QStringLiteral("/proc")); }
    static QString kmsg() { return map(QStringLiteral("/dev/kmsg")); }
};
