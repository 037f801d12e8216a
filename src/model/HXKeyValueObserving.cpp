#include "HXKeyValueObserving.h"

#include "BinaryPlistReader.h"

#include <QDateTime>
#include <QRegularExpression>

void HXKeyValueObserver::startObservingObject(HXKeyValueObservable *object)
{
    if (!object)
        return;
    const QStringList keys = object->keyPaths();
    for (const QString &key : keys)
        object->addObserver(this, key);
}

void HXKeyValueObserver::stopObservingObject(HXKeyValueObservable *object)
{
    if (!object)
        return;
    const QStringList keys = object->keyPaths();
    for (const QString &key : keys)
        object->removeObserver(this, key);
}

HXKeyValueObservable::~HXKeyValueObservable() = default;

void HXKeyValueObservable::addObserver(HXKeyValueObserver *observer, const QString &keyPath,
                                       bool wantsPrior)
{
    if (!m_observation)
        m_observation = std::make_unique<Observation>();
    m_observation->registrations.push_back({observer, keyPath, wantsPrior});
}

void HXKeyValueObservable::removeObserver(HXKeyValueObserver *observer, const QString &keyPath)
{
    if (!m_observation)
        return;
    auto &regs = m_observation->registrations;
    for (auto it = regs.begin(); it != regs.end(); ++it) {
        if (it->observer == observer && it->keyPath == keyPath) {
            regs.erase(it);
            break;
        }
    }
}

void HXKeyValueObservable::willChangeValueForKey(const QString &key)
{
    if (!m_observation)
        return;
    bool observed = false;
    for (const Registration &r : m_observation->registrations)
        observed = observed || r.keyPath == key;
    if (!observed)
        return;
    const QVariant old = valueForKey(key);
    m_observation->pendingOld.emplace_back(key, old);
    // Copy: an observer may stop observing from inside its callback.
    const auto regs = m_observation->registrations;
    for (const Registration &r : regs) {
        if (r.keyPath == key && r.wantsPrior)
            r.observer->observeValueForKeyPath(key, this, old, true);
    }
}

void HXKeyValueObservable::didChangeValueForKey(const QString &key)
{
    if (!m_observation)
        return;
    QVariant old;
    auto &pending = m_observation->pendingOld;
    bool found = false;
    for (auto it = pending.end(); it != pending.begin();) {
        --it;
        if (it->first == key) {
            old = std::move(it->second);
            pending.erase(it);
            found = true;
            break;
        }
    }
    if (!found)
        return;
    const auto regs = m_observation->registrations;
    for (const Registration &r : regs) {
        if (r.keyPath == key)
            r.observer->observeValueForKeyPath(key, this, old, false);
    }
}

QString HXKeyValueObservable::descriptionForKeyPaths() const
{
    QString text = QStringLiteral("\n\nClass name: %1\n").arg(className());
    const bool perLine = describesOneKeyPerLine();
    const QStringList keys = keyPaths();
    for (const QString &key : keys) {
        if (!describesKey(key))
            continue;
        text += key + QLatin1String(": ") + HXDescribeValue(valueForKey(key));
        if (perLine)
            text += QLatin1Char('\n');
    }
    return text;
}

namespace {

QString pad(int indent)
{
    return QString(indent * 4, QLatin1Char(' '));
}

// Foundation quotes strings inside collections unless they are plain words.
QString quotedIfNeeded(const QString &s)
{
    static const QRegularExpression plain(QStringLiteral("^[A-Za-z0-9_.$/]+$"));
    if (plain.match(s).hasMatch())
        return s;
    QString escaped = s;
    escaped.replace(QLatin1Char('\\'), QLatin1String("\\\\"))
        .replace(QLatin1Char('"'), QLatin1String("\\\""))
        .replace(QLatin1Char('\n'), QLatin1String("\\n"));
    return QLatin1Char('"') + escaped + QLatin1Char('"');
}

QString describeInside(const QVariant &value, int indent)
{
    if (value.metaType().id() == QMetaType::QString)
        return quotedIfNeeded(value.toString());
    return HXDescribeValue(value, indent);
}

} // namespace

QString HXDescribeValue(const QVariant &value, int indent)
{
    if (!value.isValid())
        return QStringLiteral("(null)");
    if (isPlistNull(value))
        return QStringLiteral("<null>");
    if (value.metaType() == QMetaType::fromType<HXObjectRef>()) {
        const HXObjectRef object = value.value<HXObjectRef>();
        return object ? object->description() : QStringLiteral("(null)");
    }
    if (value.metaType() == QMetaType::fromType<HXObjectList>()) {
        const HXObjectList list = value.value<HXObjectList>();
        QString s = QStringLiteral("(\n");
        for (qsizetype i = 0; i < list.size(); ++i) {
            s += pad(indent + 1) + (list[i] ? list[i]->description() : QStringLiteral("(null)"));
            s += i + 1 < list.size() ? QLatin1String(",\n") : QLatin1String("\n");
        }
        return s + pad(indent) + QLatin1Char(')');
    }
    switch (value.metaType().id()) {
    case QMetaType::Bool:
        return value.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    case QMetaType::QDateTime:
        return value.toDateTime().toUTC().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss +0000"));
    case QMetaType::QByteArray:
        return QLatin1Char('<') + QString::fromLatin1(value.toByteArray().toHex(' ')) +
               QLatin1Char('>');
    case QMetaType::QVariantList:
    case QMetaType::QStringList: {
        const QVariantList list = value.toList();
        QString s = QStringLiteral("(\n");
        for (qsizetype i = 0; i < list.size(); ++i) {
            s += pad(indent + 1) + describeInside(list[i], indent + 1);
            s += i + 1 < list.size() ? QLatin1String(",\n") : QLatin1String("\n");
        }
        return s + pad(indent) + QLatin1Char(')');
    }
    case QMetaType::QVariantMap: {
        const QVariantMap map = value.toMap();
        QString s = QStringLiteral("{\n");
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            s += pad(indent + 1) + quotedIfNeeded(it.key()) + QLatin1String(" = ") +
                 describeInside(it.value(), indent + 1) + QLatin1String(";\n");
        return s + pad(indent) + QLatin1Char('}');
    }
    default:
        return value.toString();
    }
}
