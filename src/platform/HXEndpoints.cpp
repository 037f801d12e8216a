#include "HXEndpoints.h"

#include "HXProductPaths.h"

#include <QSettings>

namespace {

struct Description
{
    const char *key;
    const char *variable;
    const char *shipped; // as packaging/endpoints.conf has it
};

constexpr std::array<Description, HXEndpoints::EndpointCount> kEndpoints{{
    {"SupportMailServer", "ORVEX_SUPPORT_MAIL_SERVER", "mail.talvorn.example"},
    {"SupportAddress", "ORVEX_SUPPORT_ADDRESS", "support@talvorn.example"},
    {"SenderAddress", "ORVEX_SENDER_ADDRESS", "orvex@talvorn.example"},
    {"SupportRefusedPrefix", "ORVEX_SUPPORT_REFUSED_PREFIX", "support@talvorn"},
    {"UpdateServer", "ORVEX_UPDATE_SERVER", "updates.talvorn.example"},
    {"ProductPage", "ORVEX_PRODUCT_PAGE", "http://www.talvorn.example/orvex/"},
    {"RepairToolPage", "ORVEX_REPAIR_TOOL_PAGE", "http://www.talvorn.example/ombrelpro/"},
}};

const QString kGroup = QStringLiteral("Endpoints");

} // namespace

QString HXEndpoints::defaultsFile()
{
    return HXProductPaths::map(QStringLiteral(ORVEX_DATADIR "/orvex/endpoints.conf"));
}

QString HXEndpoints::key(Endpoint endpoint)
{
    return QLatin1String(kEndpoints[size_t(endpoint)].key);
}

QString HXEndpoints::environmentVariable(Endpoint endpoint)
{
    return QLatin1String(kEndpoints[size_t(endpoint)].variable);
}

QString HXEndpoints::shippedValue(Endpoint endpoint)
{
    return QLatin1String(kEndpoints[size_t(endpoint)].shipped);
}

HXEndpoints HXEndpoints::current()
{
    HXEndpoints e;
    for (int i = 0; i < EndpointCount; ++i)
        e.set(Endpoint(i), shippedValue(Endpoint(i)), QStringLiteral("shipped"));

    const QString file = defaultsFile();
    QSettings installed(file, QSettings::IniFormat);
    installed.beginGroup(kGroup);
    QSettings user(QStringLiteral("talvorn"), QStringLiteral("Orvex"));
    user.beginGroup(kGroup);
    for (int i = 0; i < EndpointCount; ++i) {
        const auto endpoint = Endpoint(i);
        e.set(endpoint, installed.value(key(endpoint)).toString(), file);
        e.set(endpoint, user.value(key(endpoint)).toString(), QStringLiteral("user settings"));
        const QByteArray variable = kEndpoints[size_t(i)].variable;
        e.set(endpoint, qEnvironmentVariable(variable.constData()), environmentVariable(endpoint));
    }
    return e;
}

void HXEndpoints::set(Endpoint endpoint, const QString &value, const QString &source)
{
    QString v = value.trimmed();
    if (v.isEmpty())
        return;
    // A page is appended to the base address ("index.html"): it must end
    // in a slash whoever wrote it.
    if (endpoint == ProductPage && !v.endsWith(QLatin1Char('/')))
        v += QLatin1Char('/');
    m_values[size_t(endpoint)] = v;
    m_sources[size_t(endpoint)] = source;
}
