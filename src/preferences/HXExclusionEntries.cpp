#include "HXExclusionEntries.h"

#include "HXKeyValueObserving.h"
#include "HXSystemLog.h"
#include "HXVolumeCatalogue.h"

#include <QFileIconProvider>
#include <QFileInfo>

namespace {

bool isString(const QVariant &value, const QString &className)
{
    if (value.metaType().id() == QMetaType::QString)
        return true;
    HXSystemLog::write(
        QStringLiteral("%1: value %2 is not a string!").arg(className, HXDescribeValue(value)));
    return false;
}

} // namespace

QVariantMap HXMakeExclusionEntry(const QString &path, const HXVolumeCatalogue &volumes)
{
    const std::optional<bool> isVolume = volumes.isVolumeRoot(path);
    const bool volume = isVolume.value_or(false);
    QVariantMap entry{{HXExclusionPathKey, path},
                      {HXExclusionFileTestKey, true},
                      {HXExclusionVolTestKey, volume},
                      {HXExclusionSurfaceScanTestKey, volume}};
    if (isVolume)
        entry.insert(HXExclusionIsVolumeKey, *isVolume);
    return entry;
}

QVariantList MakeMutableDeepCopy(const QVariantList &array)
{
    // Qt's containers are values: a copied dictionary is already one that
    // the rows can edit without touching the original. The copy is still
    // made element by element so that each dictionary is detached at once
    // and nothing below the first level is looked at.
    QVariantList copy;
    copy.reserve(array.size());
    for (const QVariant &element : array) {
        if (element.metaType().id() == QMetaType::QVariantMap) {
            QVariantMap detached = element.toMap();
            detached.detach();
            copy.append(detached);
        } else {
            copy.append(element);
        }
    }
    return copy;
}

bool HXExclusionsContainPath(const QVariantList &content, const QString &path)
{
    for (const QVariant &entry : content) {
        const QVariantMap map = entry.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            if (it.value().metaType().id() == QMetaType::QString && it.value().toString() == path)
                return true;
        }
    }
    return false;
}

QVariant HXTestExclusionPathVolumeNameTransformer::transformedValue(const QVariant &path)
{
    if (!isString(path, className()))
        return {};
    const QString p = path.toString();
    const HXVolumeCatalogue &volumes = HXVolumeCatalogue::current();
    if (volumes.isVolumeRoot(p).value_or(false)) {
        const QString label = volumes.volumeLabel(p);
        if (!label.isEmpty())
            return label;
    }
    return p;
}

QVariant HXTestExclusionPathIconTransformer::transformedValue(const QVariant &path)
{
    if (!isString(path, className()))
        return {};
    const QString p = path.toString();
    static const QFileIconProvider provider;
    if (HXVolumeCatalogue::current().isVolumeRoot(p).value_or(false))
        return QIcon::fromTheme(QStringLiteral("drive-harddisk"),
                                provider.icon(QFileIconProvider::Drive));
    return provider.icon(QFileInfo(p));
}
