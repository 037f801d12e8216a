#include "TestSupport.h"

#include "PlistUid.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDBusConnection>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QMessageBox>
#include <QProcess>
#include <QTimer>

namespace TestSupport {

QString fixture(const QString &relativePath)
{
    return QStringLiteral(ORVEX_FIXTURES_DIR "/") + relativePath;
}

bool fixturesAvailable()
{
    return QDir(QStringLiteral(ORVEX_FIXTURES_DIR)).exists();
}

QByteArray readFile(const QString &path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    return f.readAll();
}

bool useTestRoot(const QString &root)
{
    qputenv("ORVEX_ROOT", root.toUtf8());
    qputenv("ORVEX_DAEMON_BUS", "session");
    return QDBusConnection::sessionBus().isConnected();
}

bool pythonPeerAvailable()
{
    static const bool available = [] {
        QProcess p;
        p.start(QStringLiteral("/usr/bin/python3"),
                {QStringLiteral("-c"), QStringLiteral("import plistlib; plistlib.UID")});
        return p.waitForFinished(20000) && p.exitStatus() == QProcess::NormalExit &&
               p.exitCode() == 0;
    }();
    return available;
}

bool runPythonPeer(const QStringList &arguments, QByteArray *output)
{
    QProcess p;
    p.start(QStringLiteral("/usr/bin/python3"),
            QStringList{QStringLiteral(ORVEX_PEERS_DIR "/plist_peer.py")} + arguments);
    if (!p.waitForFinished(60000) || p.exitStatus() != QProcess::NormalExit ||
        p.exitCode() != 0) {
        *output = p.readAllStandardError();
        return false;
    }
    *output = p.readAllStandardOutput();
    return true;
}

QJsonValue toTagged(const QVariant &value)
{
    QJsonObject o;
    auto put = [&](const char *t, const QJsonValue &v) {
        o.insert(QStringLiteral("t"), QLatin1StringView(t));
        o.insert(QStringLiteral("v"), v);
    };
    switch (value.metaType().id()) {
    case QMetaType::Bool:
        put("bool", value.toBool());
        break;
    case QMetaType::Int:
    case QMetaType::LongLong:
        put("int", QString::number(value.toLongLong()));
        break;
    case QMetaType::UInt:
    case QMetaType::ULongLong:
        put("int", QString::number(value.toULongLong()));
        break;
    case QMetaType::Double:
        put("real", value.toDouble());
        break;
    case QMetaType::QString:
        put("string", value.toString());
        break;
    case QMetaType::QByteArray:
        put("data", QString::fromLatin1(value.toByteArray().toBase64()));
        break;
    case QMetaType::QDateTime:
        put("date", double(value.toDateTime().toMSecsSinceEpoch()) / 1000.0);
        break;
    case QMetaType::QVariantList: {
        QJsonArray a;
        for (const QVariant &e : value.toList())
            a.append(toTagged(e));
        put("array", a);
        break;
    }
    case QMetaType::QVariantMap: {
        QJsonObject m;
        const QVariantMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            m.insert(it.key(), toTagged(it.value()));
        put("dict", m);
        break;
    }
    case QMetaType::Nullptr:
        o.insert(QStringLiteral("t"), QStringLiteral("null"));
        break;
    default:
        if (value.metaType() == QMetaType::fromType<PlistUid>())
            put("uid", double(value.value<PlistUid>().value));
        break;
    }
    return o;
}

QVariant fromTagged(const QJsonValue &tagged)
{
    const QJsonObject o = tagged.toObject();
    const QString t = o.value(QStringLiteral("t")).toString();
    const QJsonValue v = o.value(QStringLiteral("v"));
    if (t == QLatin1String("bool"))
        return v.toBool();
    if (t == QLatin1String("int")) {
        bool ok = false;
        const qint64 s = v.toString().toLongLong(&ok);
        if (ok)
            return QVariant::fromValue(s);
        return QVariant::fromValue(v.toString().toULongLong());
    }
    if (t == QLatin1String("real"))
        return v.toDouble();
    if (t == QLatin1String("string"))
        return v.toString();
    if (t == QLatin1String("data"))
        return QByteArray::fromBase64(v.toString().toLatin1());
    if (t == QLatin1String("date"))
        return QDateTime::fromMSecsSinceEpoch(qint64(std::llround(v.toDouble() * 1000.0)),
                                              Qt::UTC);
    if (t == QLatin1String("uid"))
        return QVariant::fromValue(PlistUid{quint64(v.toDouble())});
    if (t == QLatin1String("null"))
        return QVariant::fromValue(nullptr);
    if (t == QLatin1String("array")) {
        QVariantList l;
        for (const QJsonValue &e : v.toArray())
            l.append(fromTagged(e));
        return l;
    }
    if (t == QLatin1String("dict") || t == QLatin1String("object")) {
        QVariantMap m;
        const QJsonObject fields = v.toObject();
        for (auto it = fields.begin(); it != fields.end(); ++it)
            m.insert(it.key(), fromTagged(it.value()));
        if (t == QLatin1String("object"))
            m.insert(QStringLiteral("$class"), o.value(QStringLiteral("class")).toString());
        return m;
    }
    return {};
}

bool samePlistValue(const QVariant &a, const QVariant &b, QString *where)
{
    auto mismatch = [&](const QString &what) {
        if (where)
            *where = what;
        return false;
    };
    const int ta = a.metaType().id(), tb = b.metaType().id();
    auto isInt = [](int t) {
        return t == QMetaType::Int || t == QMetaType::LongLong || t == QMetaType::UInt ||
               t == QMetaType::ULongLong;
    };
    if (isInt(ta) && isInt(tb)) {
        const bool ua = ta == QMetaType::ULongLong || ta == QMetaType::UInt;
        const bool ub = tb == QMetaType::ULongLong || tb == QMetaType::UInt;
        if (ua == ub ? a.toULongLong() == b.toULongLong()
                     : (a.toLongLong() >= 0 && b.toLongLong() >= 0 &&
                        a.toULongLong() == b.toULongLong()))
            return true;
        return mismatch(QStringLiteral("%1 != %2").arg(a.toString(), b.toString()));
    }
    if (ta != tb)
        return mismatch(QStringLiteral("type %1 != %2")
                            .arg(QLatin1String(a.metaType().name()),
                                 QLatin1String(b.metaType().name())));
    if (ta == QMetaType::QVariantList) {
        const QVariantList la = a.toList(), lb = b.toList();
        if (la.size() != lb.size())
            return mismatch(QStringLiteral("list sizes %1 != %2").arg(la.size()).arg(lb.size()));
        for (qsizetype i = 0; i < la.size(); ++i) {
            QString inner;
            if (!samePlistValue(la[i], lb[i], &inner))
                return mismatch(QStringLiteral("[%1] %2").arg(i).arg(inner));
        }
        return true;
    }
    if (ta == QMetaType::QVariantMap) {
        const QVariantMap ma = a.toMap(), mb = b.toMap();
        if (ma.keys() != mb.keys())
            return mismatch(QStringLiteral("keys %1 != %2")
                                .arg(ma.keys().join(QLatin1Char(',')),
                                     mb.keys().join(QLatin1Char(','))));
        for (auto it = ma.cbegin(); it != ma.cend(); ++it) {
            QString inner;
            if (!samePlistValue(it.value(), mb.value(it.key()), &inner))
                return mismatch(QStringLiteral("{%1} %2").arg(it.key(), inner));
        }
        return true;
    }
    if (ta == QMetaType::QDateTime) {
        if (a.toDateTime().toMSecsSinceEpoch() == b.toDateTime().toMSecsSinceEpoch())
            return true;
        return mismatch(QStringLiteral("dates %1 != %2")
                            .arg(a.toDateTime().toString(Qt::ISODateWithMs),
                                 b.toDateTime().toString(Qt::ISODateWithMs)));
    }
    if (ta == QMetaType::Nullptr)
        return true;
    if (a.metaType() == QMetaType::fromType<PlistUid>())
        return a.value<PlistUid>() == b.value<PlistUid>() || mismatch(QStringLiteral("uid"));
    if (a == b)
        return true;
    return mismatch(QStringLiteral("%1 != %2").arg(a.toString(), b.toString()));
}

AlertAnswerer::AlertAnswerer(const QString &press)
    : m_press(press)
    , m_poll(std::make_unique<QTimer>())
{
    QObject::connect(m_poll.get(), &QTimer::timeout, [this] { answer(); });
    m_poll->start(10);
}

AlertAnswerer::~AlertAnswerer() = default;

void AlertAnswerer::answer()
{
    auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
    // A box already answered may stay on the modal stack until its loop
    // next runs.
    if (!box || !box->isVisible() || m_answered.contains(box))
        return;
    m_answered.append(box);
    QStringList seen{box->text(), box->informativeText()};
    QAbstractButton *pressed = nullptr;
    const auto buttons = box->buttons();
    for (QAbstractButton *button : buttons) {
        const QString title = button->text().remove(QLatin1Char('&'));
        seen.append(title);
        if (!m_press.isEmpty() && title == m_press)
            pressed = button;
    }
    m_alerts.append(seen);
    if (pressed)
        pressed->click();
    else
        box->reject();
}

QStringList answerAlert(const std::function<void()> &action, const QString &press)
{
    AlertAnswerer answerer(press);
    action();
    return answerer.alerts().isEmpty() ? QStringList() : answerer.alerts().constLast();
}

} // namespace TestSupport
