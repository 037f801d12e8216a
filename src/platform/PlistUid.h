#pragma once

#include <QMetaType>
#include <QtGlobal>

// The UID type of binary property lists: an index into a keyed archive's
// "$objects" array. It is its own type so that a QVariant holding one can
// never be mistaken for an integer.
struct PlistUid
{
    quint64 value = 0;

    friend bool operator==(PlistUid a, PlistUid b) { return a.value == b.value; }
    friend bool operator!=(PlistUid a, PlistUid b) { return a.value != b.value; }
};
Q_DECLARE_METATYPE(PlistUid)
