// Keyed archives written by Foundation on Apple's systems decode to what
// their authors documented; archives that are not what they claim are refused.
#include "BinaryPlistReader.h"
#include "KeyedArchiver.h"
#include "KeyedUnarchiver.h"
#include "PlistUid.h"
#include "TestSupport.h"

#include <QDateTime>
#include <QtTest>

using namespace TestSupport;

namespace {

QVariant decodeFixture(const QString &name, KeyedUnarchiver::Mode mode, QString *error,
                       bool wholeTop = false)
{
    KeyedUnarchiver u(mode);
    QVariant v;
    if (u.open(readFile(fixture(QStringLiteral("keyed-archives/") + name))))
        v = wholeTop ? QVariant(u.decodeTop()) : u.decodeRoot();
    *error = u.error();
    return v;
}

QVariant permissive(const QString &name)
{
    QString error;
    const QVariant v = decodeFixture(name, KeyedUnarchiver::Mode::Permissive, &error);
    if (!error.isEmpty())
        qWarning("%s: %s", qPrintable(name), qPrintable(error));
    return v;
}

QDateTime utc(const char *iso)
{
    return QDateTime::fromString(QLatin1String(iso), Qt::ISODateWithMs).toUTC();
}

} // namespace

class TestKeyedArchive : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(fixturesAvailable(), "tests/fixtures/plist is missing from the checkout");
    }

    void decodesCustomClassesWithCollections()
    {
        const QVariantMap foo = permissive(QStringLiteral("bpylist2-complex_archive.plist")).toMap();
        QCOMPARE(foo.value(QStringLiteral("$class")).toString(), QStringLiteral("crap.Foo"));
        QCOMPARE(foo.value(QStringLiteral("title")).toString(), QStringLiteral("yo"));
        QCOMPARE(foo.value(QStringLiteral("count")).toLongLong(), 42LL);
        QCOMPARE(foo.value(QStringLiteral("active")).toBool(), true);
        QCOMPARE(foo.value(QStringLiteral("categories")).toStringList(),
                 (QStringList{QStringLiteral("banana"), QStringLiteral("apple")}));
        QCOMPARE(foo.value(QStringLiteral("metadata")).toMap(),
                 (QVariantMap{{QStringLiteral("fruit"), QStringLiteral("kiwi")},
                              {QStringLiteral("veg"), QStringLiteral("asparagus")}}));

        const QVariantMap dated = permissive(QStringLiteral("bpylist2-date_archive.plist")).toMap();
        QCOMPARE(dated.value(QStringLiteral("stamp")).toDateTime(), utc("2017-02-23T06:15:58.684Z"));

        const QVariantMap nulled = permissive(QStringLiteral("bpylist2-null_archive.plist")).toMap();
        QVERIFY(nulled.contains(QStringLiteral("empty")));
        QVERIFY(!nulled.value(QStringLiteral("empty")).isValid()); // $null is nil

        const QVariantMap outer = permissive(QStringLiteral("bpylist2-recursive_archive.plist")).toMap();
        QCOMPARE(outer.value(QStringLiteral("title")).toString(), QStringLiteral("hello"));
        QCOMPARE(outer.value(QStringLiteral("recursive")).toMap().value(QStringLiteral("title")).toString(),
                 QStringLiteral("yo"));
    }

    void decodesFoundationsOwnClasses()
    {
        const QVariantMap complex = permissive(QStringLiteral("scf-NSKeyedUnarchiver-ComplexTest.plist")).toMap();
        const QVariantList array = complex.value(QStringLiteral("array")).toList();
        QCOMPARE(array.size(), 4);
        QVERIFY(array.at(0).metaType().id() == QMetaType::Nullptr);
        QCOMPARE(array.at(1).toString(), QStringLiteral("hello"));
        QCOMPARE(array.at(2).toLongLong(), 34545LL);
        QCOMPARE(array.at(3).toMap().value(QStringLiteral("key")).toString(), QStringLiteral("val"));
        const QVariantMap url = complex.value(QStringLiteral("url")).toMap();
        QCOMPARE(url.value(QStringLiteral("$class")).toString(), QStringLiteral("NSURL"));
        QCOMPARE(url.value(QStringLiteral("NS.relative")).toString(), QStringLiteral("index.xml"));
        QCOMPARE(url.value(QStringLiteral("NS.base")).toMap().value(QStringLiteral("NS.relative")).toString(),
                 QStringLiteral("https://www.swift.org"));
        QCOMPARE(complex.value(QStringLiteral("uuid")).toMap().value(QStringLiteral("NS.uuidbytes")).toByteArray().toHex(),
                 QByteArray("71dc068e342045ff919e3a267d55ec22"));

        const QVariantMap formatter = permissive(QStringLiteral("scf-DateIntervalFormatter-ValuesSetWithoutTemplate.archive")).toMap();
        QCOMPARE(formatter.value(QStringLiteral("$class")).toString(), QStringLiteral("NSDateIntervalFormatter"));
        QCOMPARE(formatter.value(QStringLiteral("NS.dateTemplateFromStyles")).toString(),
                 QStringLiteral("y\u5e74M\u6708d\u65e5"));
        const QVariantMap calendar = formatter.value(QStringLiteral("NS.calendar")).toMap();
        QCOMPARE(calendar.value(QStringLiteral("NS.gstartdate")).toDateTime(), utc("1582-10-15T00:00:00Z"));
        QVERIFY(calendar.value(QStringLiteral("NS.timezone")).toMap().value(QStringLiteral("NS.data"))
                    .toByteArray().startsWith("TZif2"));

        const QVariantMap attributed = permissive(QStringLiteral("scf-NSMutableAttributedString.archive")).toMap();
        QCOMPARE(attributed.value(QStringLiteral("NSString")).toString(), QStringLiteral("0123456789"));
        const QVariantList attrs = attributed.value(QStringLiteral("NSAttributes")).toList();
        QCOMPARE(attrs.size(), 4);
        QCOMPARE(attrs.at(2).toMap().value(QStringLiteral("Font")).toString(), QStringLiteral("Times"));
        QCOMPARE(attributed.value(QStringLiteral("NSAttributeInfo")).toByteArray().toHex(),
                 QByteArray("010001010402020101030100"));
    }

    void decodesAnObjectiveCClassAndTheLargeArchive()
    {
        const QVariantMap note = permissive(QStringLiteral("nskeyedunarchiver-note.plist")).toMap();
        QCOMPARE(note.value(QStringLiteral("$class")).toString(), QStringLiteral("Note"));
        QCOMPARE(note.value(QStringLiteral("author")).toString(), QStringLiteral("Michael Wright"));
        QCOMPARE(note.value(QStringLiteral("date")).toLongLong(), 2025LL);
        QCOMPARE(note.value(QStringLiteral("array")).toList().at(2).toBool(), true);

        QString error;
        const QVariantList processes = decodeFixture(QStringLiteral("libnskeyedarchiver-nsarray_runningprocesses.bplist"),
                                                     KeyedUnarchiver::Mode::Secure, &error).toList();
        QVERIFY2(error.isEmpty(), qPrintable(error)); // nothing but property-list classes
        QCOMPARE(processes.size(), 328);
        const QVariantMap first = processes.first().toMap();
        QCOMPARE(first.value(QStringLiteral("pid")).toLongLong(), 84474LL);
        QCOMPARE(first.value(QStringLiteral("name")).toString(), QStringLiteral("contactsd"));
        QCOMPARE(first.value(QStringLiteral("startDate")).toDateTime(), utc("2022-07-25T16:03:35.615Z"));
        const QVariantMap last = processes.last().toMap();
        QCOMPARE(last.value(QStringLiteral("name")).toString(), QStringLiteral("Mach Kernel"));
        QVERIFY(!last.contains(QStringLiteral("startDate")));
        QStringList names;
        for (const QVariant &p : processes)
            names.append(p.toMap().value(QStringLiteral("name")).toString());
        QVERIFY(names.contains(QStringLiteral("\u56fd\u5bb6\u53cd\u8bc8\u4e2d\u5fc3")));
        QVERIFY(names.contains(QStringLiteral("\u4ea4\u901a\u94f6\u884c")));
    }

    void decodesUnkeyedTopsAndFallsBackAlongClassChains()
    {
        QString error;
        const QVariantMap top = decodeFixture(QStringLiteral("go-nskeyedarchiver-primitives.bin"),
                                              KeyedUnarchiver::Mode::Secure, &error, true).toMap();
        QVERIFY2(error.isEmpty(), qPrintable(error));
        QCOMPARE(top.size(), 12);
        QCOMPARE(top.value(QStringLiteral("$3")).toDouble(), 1.5);
        QCOMPARE(top.value(QStringLiteral("$4")).toByteArray(), QByteArray("asdfasdfadsfadsf"));
        QCOMPARE(top.value(QStringLiteral("$8")).toString(), QStringLiteral("Hello, World!"));
        QCOMPARE(top.value(QStringLiteral("$11")).toLongLong(), 42LL);

        const QVariantMap py = permissive(QStringLiteral("plaso-NSKeyedArchiver.plist")).toMap();
        QCOMPARE(py.value(QStringLiteral("MyString")).toString(), QStringLiteral("Some string"));
        QCOMPARE(py.value(QStringLiteral("MyData")).toByteArray(), QByteArray("DATA\n"));
        QCOMPARE(py.value(QStringLiteral("MyDate")).toDateTime(), utc("2024-02-12T17:40:49Z"));
        QCOMPARE(py.value(QStringLiteral("MyFloat")).toDouble(), 2.7);
        QCOMPARE(py.value(QStringLiteral("MyInteger")).toLongLong(), 98LL);
        QCOMPARE(py.value(QStringLiteral("MyArray")).toList().size(), 0);
    }

    void refusesBrokenArchives_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<int>("mode");
        QTest::addColumn<QString>("expected");
        QTest::newRow("array that holds itself") << QStringLiteral("keyed-archives/nskeyedunarchiver-circularReference.plist")
                                                 << int(KeyedUnarchiver::Mode::Permissive) << QStringLiteral("contains itself");
        QTest::newRow("root beyond the objects") << QStringLiteral("malformed/bpylist2-invalid_uid_archive.plist")
                                                 << int(KeyedUnarchiver::Mode::Permissive) << QStringLiteral("out of range");
        QTest::newRow("a class a report cannot hold") << QStringLiteral("keyed-archives/bpylist2-complex_archive.plist")
                                                      << int(KeyedUnarchiver::Mode::Secure) << QStringLiteral("crap.Foo");
        QTest::newRow("NSURL in secure mode") << QStringLiteral("keyed-archives/scf-NSKeyedUnarchiver-ComplexTest.plist")
                                              << int(KeyedUnarchiver::Mode::Secure) << QStringLiteral("NSURL");
        QTest::newRow("a plain list") << QStringLiteral("apple/bpylist2-dict_big.plist")
                                      << int(KeyedUnarchiver::Mode::Permissive) << QStringLiteral("not a keyed archive");
    }
    void refusesBrokenArchives()
    {
        QFETCH(QString, file);
        QFETCH(int, mode);
        QFETCH(QString, expected);
        KeyedUnarchiver u{KeyedUnarchiver::Mode(mode)};
        QVariant v;
        if (u.open(readFile(fixture(file))))
            v = u.decodeRoot();
        QVERIFY(!v.isValid());
        QVERIFY2(u.error().contains(expected), qPrintable(u.error()));
    }

    // What we write reads back with every property-list class, and keeps
    // Apple's frame: "$null" first, class records with their chains.
    void writesFoundationsLayout()
    {
        const QVariantMap value{{QStringLiteral("when"), utc("2026-01-31T12:00:00.250Z")},
                                {QStringLiteral("list"), QVariantList{1, QStringLiteral("two"), 3.5, true}},
                                {QStringLiteral("data"), QByteArray("\x00\x01", 2)},
                                {QStringLiteral("none"), QVariant::fromValue(nullptr)}};
        const QByteArray bytes = KeyedArchiver().archiveRootValue(value);
        KeyedUnarchiver u(KeyedUnarchiver::Mode::Secure);
        QVERIFY(u.open(bytes));
        QString where;
        QVERIFY2(samePlistValue(u.decodeRoot(), value, &where), qPrintable(where));

        QString error;
        const QVariantMap raw = BinaryPlistReader::read(bytes, &error).toMap();
        QCOMPARE(raw.value(QStringLiteral("$archiver")).toString(), QStringLiteral("NSKeyedArchiver"));
        QCOMPARE(raw.value(QStringLiteral("$version")).toLongLong(), 100000LL);
        const QVariantList objects = raw.value(QStringLiteral("$objects")).toList();
        QCOMPARE(objects.first().toString(), QStringLiteral("$null"));
        const quint64 rootUid = raw.value(QStringLiteral("$top")).toMap().value(QStringLiteral("root")).value<PlistUid>().value;
        const QVariantMap rootObject = objects.at(qsizetype(rootUid)).toMap();
        const QVariantMap classRecord =
            objects.at(qsizetype(rootObject.value(QStringLiteral("$class")).value<PlistUid>().value)).toMap();
        QCOMPARE(classRecord.value(QStringLiteral("$classname")).toString(), QStringLiteral("NSDictionary"));
        QCOMPARE(classRecord.value(QStringLiteral("$classes")).toStringList(),
                 (QStringList{QStringLiteral("NSDictionary"), QStringLiteral("NSObject")}));
        bool sawDate = false;
        for (const QVariant &o : objects) {
            const QVariantMap m = o.toMap();
            if (m.contains(QStringLiteral("NS.time"))) {
                QCOMPARE(m.value(QStringLiteral("NS.time")).toDouble(), 791553600.25);
                sawDate = true;
            }
        }
        QVERIFY(sawDate);
    }
};

QTEST_GUILESS_MAIN(TestKeyedArchive)
#include "tst_keyedarchive.moc"
