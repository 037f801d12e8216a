#pragma once

#include <QString>
#include <QStringList>
#include <optional>

// What the file system says about volumes: whether a path is the root of
// its volume, and the name a person gave the volume. The real catalogue asks
// the mount table and udev; tests put a fake in its place with setCurrent().
class HXVolumeCatalogue
{
public:
    virtual ~HXVolumeCatalogue() = default;

    // Whether `path` is the root (mount point) of the volume that holds it;
    // nothing when the file system could not say.
    virtual std::optional<bool> isVolumeRoot(const QString &path) const = 0;
    // The label of the volume mounted at `rootPath` as udev or the mount
    // table knows it; empty when it has none.
    virtual QString volumeLabel(const QString &rootPath) const = 0;

    static const HXVolumeCatalogue &current();
    // Not owned; nullptr restores the real catalogue.
    static void setCurrent(const HXVolumeCatalogue *catalogue);
};

// The mount table (/proc/self/mountinfo through QStorageInfo), udev's
// ID_FS_LABEL of the mounted device, the /dev/disk/by-label links, and a
// "LABEL=" source in the static mount table (fstab).
class HXLinuxVolumeCatalogue : public HXVolumeCatalogue
{
public:
    QString fstabFile = QStringLiteral("/etc/fstab");

    std::optional<bool> isVolumeRoot(const QString &path) const override;
    QString volumeLabel(const QString &rootPath) const override;
};

// Answers what it is told: the listed roots with their labels.
class HXFakeVolumeCatalogue : public HXVolumeCatalogue
{
public:
    QStringList roots;
    QStringList labels;  // by the roots' order; missing or empty: no label
    QStringList unknown; // paths the file system cannot say anything about

    std::optional<bool> isVolumeRoot(const QString &path) const override
    {
        if (unknown.contains(path))
            return std::nullopt;
        return roots.contains(path);
    }
    QString volumeLabel(const QString &rootPath) const override
    {
        return labels.value(roots.indexOf(rootPath));
    }
};
