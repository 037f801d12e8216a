#include "HXFileRef.h"

const QString HXFileRef::kRelativeURL = QStringLiteral("relativeURL");
const QString HXFileRef::kFilePath = QStringLiteral("filePath");
const QString HXFileRef::kVolUUID = QStringLiteral("volUUID");

namespace {

// An URL as Foundation archives it: no base, the text as "NS.relative".
class ArchivedURL final : public KeyedArchivable
{
public:
    explicit ArchivedURL(const QUrl &url)
        : m_url(url)
    {
    }
    QString archiveClassName() const override { return QStringLiteral("NSURL"); }
    void encodeWithArchiver(KeyedArchiver &archiver) const override
    {
        archiver.encodeValue(QStringLiteral("NS.base"), QVariant());
        archiver.encodeValue(QStringLiteral("NS.relative"), m_url.toString(QUrl::FullyEncoded));
    }

private:
    QUrl m_url;
};

} // namespace

QVariant HXFileRef::valueForKey(const QString &key) const
{
    QMutexLocker lock(&m_mutex);
    if (key == kRelativeURL)
        return m_relativeURL.isEmpty() ? QVariant() : QVariant(m_relativeURL);
    if (key == kFilePath)
        return m_filePath.isNull() ? QVariant() : QVariant(m_filePath);
    if (key == kVolUUID)
        return m_volUUID.isNull() ? QVariant() : QVariant(m_volUUID);
    return {};
}

void HXFileRef::setValuesForKeysWithDictionary(const QVariantMap &values)
{
    if (values.contains(kRelativeURL))
        setRelativeURL(values.value(kRelativeURL).toUrl());
    if (values.contains(kFilePath))
        setFilePath(values.value(kFilePath).toString());
    if (values.contains(kVolUUID))
        setVolUUID(values.value(kVolUUID).toString());
}

HXFileRefRef HXFileRef::copy() const
{
    QVariantMap values;
    const QStringList keys = keyPaths();
    for (const QString &key : keys) {
        const QVariant value = valueForKey(key);
        if (value.isValid())
            values.insert(key, value);
    }
    auto other = std::make_shared<HXFileRef>();
    other->setValuesForKeysWithDictionary(values);
    return other;
}

void HXFileRef::encodeWithArchiver(KeyedArchiver &archiver) const
{
    const QUrl url = relativeURL();
    if (url.isEmpty()) {
        archiver.encodeValue(kRelativeURL, QVariant());
    } else {
        const ArchivedURL archived(url);
        archiver.encodeObject(kRelativeURL, &archived);
    }
    archiver.encodeValue(kFilePath, valueForKey(kFilePath));
    archiver.encodeValue(kVolUUID, valueForKey(kVolUUID));
}

void HXFileRef::registerClasses(KeyedUnarchiver &unarchiver)
{
    unarchiver.registerClass(
        QStringLiteral("NSURL"), [](KeyedUnarchiver::Coder &coder) -> QVariant {
            QString relative;
            if (!coder.decodeString(QLatin1StringView("NS.relative"), &relative))
                return {};
            return QUrl(relative, QUrl::StrictMode);
        });
    unarchiver.registerClass(
        QStringLiteral("HXFileRef"), [](KeyedUnarchiver::Coder &coder) -> QVariant {
            auto ref = std::make_shared<HXFileRef>();
            // An absent key leaves its property unset.
            const QVariant url = coder.decodeObject(QLatin1StringView("relativeURL"));
            if (url.metaType().id() == QMetaType::QUrl)
                ref->m_relativeURL = url.toUrl();
            const QVariant path = coder.decodeObject(QLatin1StringView("filePath"));
            if (path.metaType().id() == QMetaType::QString)
                ref->m_filePath = path.toString();
            const QVariant uuid = coder.decodeObject(QLatin1StringView("volUUID"));
            if (uuid.metaType().id() == QMetaType::QString)
                ref->m_volUUID = uuid.toString();
            if (coder.unarchiver().failed())
                return {};
            return QVariant::fromValue(HXObjectRef(ref));
        });
}
