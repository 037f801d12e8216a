#pragma once

#include <QIcon>
#include <QString>
#include <QVariantList>
#include <QVariantMap>

class HXVolumeCatalogue;

// The keys of an exclusion entry, as the idle daemon stores them.
inline const QString HXExclusionPathKey = QStringLiteral("path");
inline const QString HXExclusionIsVolumeKey = QStringLiteral("NSURLIsVolumeKey");
inline const QString HXExclusionFileTestKey = QStringLiteral("isExcludedFromFileTest");
inline const QString HXExclusionVolTestKey = QStringLiteral("isExcludedFromVolTest");
inline const QString HXExclusionSurfaceScanTestKey =
    QStringLiteral("isExcludedFromSurfaceScanTest");

// A new entry for `path`: a volume's root is left out of all three tests, a
// file or folder out of the file test only. The volume flag is absent when
// the file system could not say.
QVariantMap HXMakeExclusionEntry(const QString &path, const HXVolumeCatalogue &volumes);

// A list whose dictionaries are copies the rows may edit, one level deep;
// other elements are kept as they are.
QVariantList MakeMutableDeepCopy(const QVariantList &array);

// Whether an entry of `content` holds `path` among its values.
bool HXExclusionsContainPath(const QVariantList &content, const QString &path);

// What a row shows for an entry's path: a volume's root by its label,
// anything else by its path.
class HXTestExclusionPathVolumeNameTransformer
{
public:
    static QString className()
    {
        return QStringLiteral("HXTestExclusionPathVolumeNameTransformer");
    }
    // An invalid value (and a log line) for anything but a string.
    static QVariant transformedValue(const QVariant &path);
};

// The desktop's icon for the path.
class HXTestExclusionPathIconTransformer
{
public:
    static QString className() { return QStringLiteral("HXTestExclusionPathIconTransformer"); }
    static QVariant transformedValue(const QVariant &path);
};
