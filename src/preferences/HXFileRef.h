#pragma once

#include "HXKeyValueObserving.h"
#include "KeyedArchiver.h"
#include "KeyedUnarchiver.h"

#include <QMutex>
#include <QUrl>
#include <memory>

class HXFileRef;
using HXFileRefRef = std::shared_ptr<HXFileRef>;

// A reference to a file that must survive its renaming: where it was, by URL
// and path, and the UUID of its volume. Archivable (each property under its
// own name, the URL as Foundation archives an NSURL) and copyable; its three
// key paths drive archiving, copying, the description and observation.
class HXFileRef final : public HXKeyValueObservable,
                        public HXKeyValueObserver,
                        public KeyedArchivable
{
public:
    static const QString kRelativeURL;
    static const QString kFilePath;
    static const QString kVolUUID;

    QUrl relativeURL() const { return guardedGet(m_mutex, m_relativeURL); }
    QString filePath() const { return guardedGet(m_mutex, m_filePath); }
    QString volUUID() const { return guardedGet(m_mutex, m_volUUID); }
    void setRelativeURL(const QUrl &url) { guardedSet(m_mutex, m_relativeURL, url, kRelativeURL); }
    void setFilePath(const QString &path) { guardedSet(m_mutex, m_filePath, path, kFilePath); }
    void setVolUUID(const QString &uuid) { guardedSet(m_mutex, m_volUUID, uuid, kVolUUID); }

    // A new reference set from the values of the key paths.
    HXFileRefRef copy() const;
    // Sets each key path present in `values`.
    void setValuesForKeysWithDictionary(const QVariantMap &values);

    QString className() const override { return QStringLiteral("HXFileRef"); }
    QStringList keyPaths() const override { return {kRelativeURL, kFilePath, kVolUUID}; }
    QVariant valueForKey(const QString &key) const override;

    QString archiveClassName() const override { return className(); }
    void encodeWithArchiver(KeyedArchiver &archiver) const override;
    // Registers the reference and the URL inside it.
    static void registerClasses(KeyedUnarchiver &unarchiver);

    void observeValueForKeyPath(const QString &, HXKeyValueObservable *, const QVariant &,
                                bool) override
    {
    }

protected:
    bool describesOneKeyPerLine() const override { return false; }

private:
    mutable QMutex m_mutex;
    QUrl m_relativeURL;
    QString m_filePath;
    QString m_volUUID;
};
