#pragma once

#include <QString>

#include <array>

// The endpoints of the maker's service: support mail, updates, web pages.
// Read afresh by current() from three places, each overriding the one before
// for the keys it sets (an empty value sets nothing):
//
//   1. the defaults file installed with the application,
//      <datadir>/orvex/endpoints.conf (INI, group [Endpoints]; under
//      ORVEX_ROOT when that is set, like the other product paths);
//   2. the user's settings, QSettings("talvorn", "Orvex"), group "Endpoints";
//   3. the environment, ORVEX_SUPPORT_MAIL_SERVER and the others below.
//
// Without any of them the values are the shipped ones, under reserved
// example domains, the same as the installed file's.
class HXEndpoints
{
public:
    enum Endpoint {
        SupportMailServer,    // host name or address of the support mail server
        SupportAddress,       // the recipient of support reports
        SenderAddress,        // the product's own mail account
        SupportRefusedPrefix, // reply-to addresses starting with this are refused
        UpdateServer,         // host name of the update-information server
        ProductPage,          // base address of the product page, ending in "/"
        RepairToolPage,       // the repair tool's product page
        EndpointCount
    };

    static HXEndpoints current();
    static QString defaultsFile();
    // The key in the files ("SupportMailServer") and the environment
    // variable ("ORVEX_SUPPORT_MAIL_SERVER") of an endpoint.
    static QString key(Endpoint endpoint);
    static QString environmentVariable(Endpoint endpoint);
    static QString shippedValue(Endpoint endpoint);

    QString value(Endpoint endpoint) const { return m_values[size_t(endpoint)]; }
    // Where the value came from: "shipped", the defaults file's path,
    // "user settings", or the environment variable's name.
    QString source(Endpoint endpoint) const { return m_sources[size_t(endpoint)]; }

    QString supportMailServer() const { return value(SupportMailServer); }
    QString supportAddress() const { return value(SupportAddress); }
    QString senderAddress() const { return value(SenderAddress); }
    QString supportRefusedPrefix() const { return value(SupportRefusedPrefix); }
    QString updateServer() const { return value(UpdateServer); }
    QString productPage() const { return value(ProductPage); }
    QString repairToolPage() const { return value(RepairToolPage); }

private:
    void set(Endpoint endpoint, const QString &value, const QString &source);

    std::array<QString, EndpointCount> m_values;
    std::array<QString, EndpointCount> m_sources;
};
