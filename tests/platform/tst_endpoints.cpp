// Where the maker's service endpoints come from: the installed defaults file,
// the user's settings and the environment, each over the one before, with
// real files in a temporary root and real environment variables.
#include "HXEndpoints.h"
#include "HXProductPaths.h"

#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>
#include <QUrl>
#include <QtTest>

namespace {

using E = HXEndpoints;

void writeFile(const QString &path, const QByteArray &bytes)
{
    QVERIFY(QDir().mkpath(QFileInfo(path).absolutePath()));
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.write(bytes);
}

// The host an endpoint names: an address's domain, a page's host, or the
// value itself.
QString hostOf(const QString &value)
{
    if (value.contains(QLatin1String("://")))
        return QUrl(value).host();
    return value.section(QLatin1Char('@'), -1);
}

} // namespace

class TestEndpoints : public QObject
{
    Q_OBJECT

    QTemporaryDir m_root;

    void clearUserSettings()
    {
        QSettings user(QStringLiteral("talvorn"), QStringLiteral("Orvex"));
        user.remove(QStringLiteral("Endpoints"));
        user.sync();
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_root.isValid());
        qputenv("ORVEX_ROOT", m_root.path().toUtf8());
        qputenv("XDG_CONFIG_HOME", m_root.filePath(QStringLiteral("config")).toUtf8());
    }

    void init()
    {
        QFile::remove(E::defaultsFile());
        clearUserSettings();
        for (int i = 0; i < E::EndpointCount; ++i)
            qunsetenv(E::environmentVariable(E::Endpoint(i)).toUtf8().constData());
    }

    void theDefaultsFileIsAProductPathUnderTheRoot()
    {
        QVERIFY2(E::defaultsFile().startsWith(m_root.path() + QLatin1Char('/')),
                 qPrintable(E::defaultsFile()));
        QVERIFY(E::defaultsFile().endsWith(QLatin1String("/share/orvex/endpoints.conf")));
    }

    // Nothing answers at the shipped values: every one is under a name
    // reserved for examples.
    void withNothingSetTheShippedValuesAreReservedNames()
    {
        const E e = E::current();
        for (int i = 0; i < E::EndpointCount; ++i) {
            const auto endpoint = E::Endpoint(i);
            QCOMPARE(e.value(endpoint), E::shippedValue(endpoint));
            QCOMPARE(e.source(endpoint), QStringLiteral("shipped"));
            const QString host = hostOf(e.value(endpoint));
            if (endpoint == E::SupportRefusedPrefix)
                continue; // a prefix of the support address, not a name of its own
            QVERIFY2(host.endsWith(QLatin1String(".example")) ||
                         host.endsWith(QLatin1String(".invalid")),
                     qPrintable(e.value(endpoint)));
        }
        QVERIFY(e.supportAddress().startsWith(e.supportRefusedPrefix()));
        QVERIFY(e.productPage().endsWith(QLatin1Char('/')));
    }

    // The file the package installs parses, key by key, to the shipped values.
    void theInstalledFileHoldsEveryKeyWithTheShippedValue()
    {
        QFile shipped(QStringLiteral(ORVEX_PACKAGING_DIR "/endpoints.conf"));
        QVERIFY(shipped.open(QIODevice::ReadOnly));
        writeFile(E::defaultsFile(), shipped.readAll());
        const E e = E::current();
        for (int i = 0; i < E::EndpointCount; ++i) {
            const auto endpoint = E::Endpoint(i);
            QCOMPARE(e.source(endpoint), E::defaultsFile());
            QCOMPARE(e.value(endpoint), E::shippedValue(endpoint));
        }
    }

    void laterSourcesOverrideEarlierOnes()
    {
        writeFile(E::defaultsFile(), "[Other]\n"
                                     "UpdateServer=wrong-group.example\n"
                                     "[Endpoints]\n"
                                     "SupportMailServer=mail.file.example\n"
                                     "UpdateServer=updates.file.example\n"
                                     "SupportAddress=help@file.example\n"
                                     "ProductPage=http://file.example/orvex\n"
                                     "SenderAddress=\n");
        {
            QSettings user(QStringLiteral("talvorn"), QStringLiteral("Orvex"));
            user.setValue(QStringLiteral("Endpoints/UpdateServer"),
                          QStringLiteral("updates.user.example"));
            user.setValue(QStringLiteral("Endpoints/SupportAddress"),
                          QStringLiteral("help@user.example"));
            user.setValue(QStringLiteral("Endpoints/RepairToolPage"),
                          QStringLiteral("http://user.example/tool/"));
            user.setValue(QStringLiteral("UpdateServer"),
                          QStringLiteral("outside-the-group.example"));
            user.sync();
            QCOMPARE(user.status(), QSettings::NoError);
        }
        qputenv("ORVEX_UPDATE_SERVER", "127.0.0.1");
        qputenv("ORVEX_SUPPORT_ADDRESS", ""); // empty: sets nothing
        qputenv("ORVEX_SUPPORT_REFUSED_PREFIX", "  help@  ");

        const E e = E::current();
        const QString file = E::defaultsFile();
        const QString user = QStringLiteral("user settings");
        const struct
        {
            E::Endpoint endpoint;
            QString value, source;
        } expected[] = {
            {E::SupportMailServer, QStringLiteral("mail.file.example"), file},
            {E::SupportAddress, QStringLiteral("help@user.example"), user},
            {E::SenderAddress, E::shippedValue(E::SenderAddress), QStringLiteral("shipped")},
            {E::SupportRefusedPrefix, QStringLiteral("help@"),
             QStringLiteral("ORVEX_SUPPORT_REFUSED_PREFIX")},
            {E::UpdateServer, QStringLiteral("127.0.0.1"), QStringLiteral("ORVEX_UPDATE_SERVER")},
            {E::ProductPage, QStringLiteral("http://file.example/orvex/"),
             file}, // made a base address
            {E::RepairToolPage, QStringLiteral("http://user.example/tool/"), user},
        };
        for (const auto &x : expected) {
            QCOMPARE(e.value(x.endpoint), x.value);
            QCOMPARE(e.source(x.endpoint), x.source);
        }

        // Read afresh each time: the user's change shows at once.
        clearUserSettings();
        qunsetenv("ORVEX_UPDATE_SERVER");
        const E later = E::current();
        QCOMPARE(later.updateServer(), QStringLiteral("updates.file.example"));
        QCOMPARE(later.supportAddress(), QStringLiteral("help@file.example"));
        QCOMPARE(later.repairToolPage(), E::shippedValue(E::RepairToolPage));
    }

    void aDefaultsFileThatIsNotIniGivesTheShippedValues()
    {
        writeFile(E::defaultsFile(), QByteArray("\x00\x01\x02\xff\xfe garbage [[[ =\n", 20));
        const E e = E::current();
        for (int i = 0; i < E::EndpointCount; ++i)
            QCOMPARE(e.value(E::Endpoint(i)), E::shippedValue(E::Endpoint(i)));
    }
};

QTEST_GUILESS_MAIN(TestEndpoints)
#include "tst_endpoints.moc"
