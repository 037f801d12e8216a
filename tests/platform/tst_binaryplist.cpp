// The binary property-list codec against files written by Apple's tools, files
// other projects keep as malformed input, and two independent implementations
// (libplist and Python's plistlib) in both directions.
#include "BinaryPlistReader.h"
#include "BinaryPlistWriter.h"
#include "PlistUid.h"
#include "PropertyList.h"
#include "TestSupport.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QtEndian>
#include <QtTest>

#include <plist/plist.h>

using namespace TestSupport;

namespace {

QVariant readFixture(const QString &name, QString *error = nullptr)
{
    QString why;
    const QVariant v = BinaryPlistReader::read(readFile(fixture(name)), &why);
    if (error)
        *error = why;
    return v;
}

// What libplist 2.2's XML keeps of a value: integers as 64-bit patterns, dates
// to the whole second.
QVariant asLibplistXmlKeepsIt(const QVariant &v)
{
    switch (v.metaType().id()) {
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        return QVariant::fromValue(qint64(v.toULongLong()));
    case QMetaType::QDateTime: {
        const qint64 ms = v.toDateTime().toMSecsSinceEpoch();
        return QDateTime::fromMSecsSinceEpoch(ms - (((ms % 1000) + 1000) % 1000), Qt::UTC);
    }
    case QMetaType::QVariantList: {
        QVariantList l;
        for (const QVariant &e : v.toList())
            l.append(asLibplistXmlKeepsIt(e));
        return l;
    }
    case QMetaType::QVariantMap: {
        QVariantMap m = v.toMap();
        for (auto it = m.begin(); it != m.end(); ++it)
            *it = asLibplistXmlKeepsIt(*it);
        return m;
    }
    default:
        return v;
    }
}

QDateTime utc(const char *iso)
{
    return QDateTime::fromString(QLatin1String(iso), Qt::ISODateWithMs).toUTC();
}

// A hand-made binary list from objects given as raw bytes; references are 1
// byte, offsets 2 bytes. Lets a test describe exactly the malformation it wants.
QByteArray handMade(const QList<QByteArray> &objects, quint64 top = 0,
                    std::optional<quint64> claimedCount = std::nullopt)
{
    QByteArray out("bplist00");
    QList<quint16> offsets;
    for (const QByteArray &o : objects) {
        offsets.append(quint16(out.size()));
        out += o;
    }
    const quint64 table = quint64(out.size());
    for (quint16 off : offsets) {
        out.append(char(off >> 8));
        out.append(char(off & 0xFF));
    }
    QByteArray trailer(32, '\0');
    trailer[6] = 2;
    trailer[7] = 1;
    qToBigEndian<quint64>(claimedCount.value_or(quint64(objects.size())), trailer.data() + 8);
    qToBigEndian<quint64>(top, trailer.data() + 16);
    qToBigEndian<quint64>(table, trailer.data() + 24);
    return out + trailer;
}

} // namespace

class TestBinaryPlist : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(fixturesAvailable(), "tests/fixtures/plist is missing from the checkout");
    }

    void readsEveryScalarTypeFromCPythonsAppleFile()
    {
        QString error;
        const QVariantMap m = readFixture(QStringLiteral("apple/cpython-test_plistlib-FMT_BINARY.bplist"),
                                          &error)
                                  .toMap();
        QVERIFY2(error.isEmpty(), qPrintable(error));
        QCOMPARE(m.size(), 16);
        QCOMPARE(m.value(QStringLiteral("aBigInt")).toLongLong(), 9223372036854775764LL);
        QCOMPARE(m.value(QStringLiteral("aBigInt2")).metaType().id(), int(QMetaType::ULongLong));
        QCOMPARE(m.value(QStringLiteral("aBigInt2")).toULongLong(), 9223372036854775852ULL);
        QCOMPARE(m.value(QStringLiteral("aDate")).toDateTime(), utc("2004-10-26T10:33:33Z"));
        const QVariantMap dict = m.value(QStringLiteral("aDict")).toMap();
        QCOMPARE(dict.value(QStringLiteral("aFalseValue")).metaType().id(), int(QMetaType::Bool));
        QCOMPARE(dict.value(QStringLiteral("aUnicodeValue")).toString(),
                 QStringLiteral("M\u00e4ssig, Ma\u00df"));
        QCOMPARE(dict.value(QStringLiteral("anotherString")).toString(),
                 QStringLiteral("<hello & 'hi' there!>"));
        const QVariantMap deeper = dict.value(QStringLiteral("deeperDict")).toMap();
        QCOMPARE(deeper.value(QStringLiteral("b")).toDouble(), 32.5);
        QCOMPARE(deeper.value(QStringLiteral("c")).toList().at(2).toString(), QStringLiteral("text"));
        QCOMPARE(m.value(QStringLiteral("aNegativeBigInt")).toLongLong(), -80000000000LL);
        QCOMPARE(m.value(QStringLiteral("aNegativeInt")).toLongLong(), -5LL);
        QCOMPARE(m.value(QStringLiteral("anInt")).toLongLong(), 728LL);
        QCOMPARE(m.value(QStringLiteral("aFloat")).toDouble(), 0.5);
        QCOMPARE(m.value(QStringLiteral("anEmptyDict")).toMap().size(), 0);
        QCOMPARE(m.value(QStringLiteral("anEmptyList")).metaType().id(), int(QMetaType::QVariantList));
        const QByteArray gunk = QByteArray("<lots of binary gunk>\x00\x01\x02\x03", 25).repeated(10);
        QCOMPARE(m.value(QStringLiteral("nestedData")).toList().size(), 1);
        QCOMPARE(m.value(QStringLiteral("nestedData")).toList().at(0).toByteArray(), gunk);
        QCOMPARE(m.value(QStringLiteral("someMoreData")).toByteArray(), gunk);
        QCOMPARE(m.value(QStringLiteral("someData")).toByteArray(), QByteArray("<binary gunk>"));
        QCOMPARE(m.value(QStringLiteral("\u00c5benraa")).toString(),
                 QStringLiteral("That was a unicode key."));
    }

    // CPython re-encodes this Apple-written file byte for byte; so must we.
    void rewritesCPythonsAppleFileByteForByte()
    {
        const QByteArray original =
            readFile(fixture(QStringLiteral("apple/cpython-test_plistlib-FMT_BINARY.bplist")));
        QString error;
        const QVariant v = BinaryPlistReader::read(original, &error);
        QVERIFY2(error.isEmpty(), qPrintable(error));
        QCOMPARE(BinaryPlistWriter::write(v).toHex(), original.toHex());
    }

    void readsTheOtherAppleFiles()
    {
        QString error;
        const QVariantMap rust = readFixture(QStringLiteral("apple/rust-plist-binary.plist"), &error).toMap();
        QVERIFY2(error.isEmpty(), qPrintable(error));
        QCOMPARE(rust.size(), 13);
        QCOMPARE(rust.value(QStringLiteral("Birthdate")).toDateTime(), utc("1981-05-16T11:32:06Z"));
        QCOMPARE(rust.value(QStringLiteral("SmallestNumber")).toLongLong(),
                 std::numeric_limits<qint64>::min());
        QCOMPARE(rust.value(QStringLiteral("BiggestNumber")).toULongLong(),
                 std::numeric_limits<quint64>::max());
        QCOMPARE(rust.value(QStringLiteral("Height")).toDouble(), 1.6);
        QCOMPARE(rust.value(QStringLiteral("Death")).toLongLong(), 1564LL);
        QCOMPARE(rust.value(QStringLiteral("Blank")).toString(), QString());
        QCOMPARE(rust.value(QStringLiteral("Lines")).toList().at(0).toString(),
                 QStringLiteral("It is a tale told by an idiot,     "));
        QCOMPARE(rust.value(QStringLiteral("Data")).toByteArray().toHex(),
                 QByteArray("000000be000000030000001e000000"));

        const QVariantMap utf16 = readFixture(QStringLiteral("apple/rust-plist-utf16_bplist.plist"), &error).toMap();
        QVERIFY2(error.isEmpty(), qPrintable(error));
        QCOMPARE(utf16.value(QStringLiteral("name")).toString(), QStringLiteral("\u2605 or better"));
        const QString poem = utf16.value(QStringLiteral("longText")).toString();
        QCOMPARE(poem.size(), 641);
        QVERIFY(poem.startsWith(QStringLiteral("The sun was shining on the sea,")));
        QCOMPARE(poem.toUtf8().size(), 643);

        const QVariantList array = readFixture(QStringLiteral("apple/bpylist2-array_long.plist"), &error).toList();
        QVERIFY2(error.isEmpty(), qPrintable(error));
        QCOMPARE(array.size(), 37);
        QCOMPARE(array.at(12).toLongLong(), -1LL);
        QCOMPARE(array.at(14).toDouble(), -3.14);
        QCOMPARE(array.at(20).toList().at(0).toList().at(0).toLongLong(), 9LL);
        QCOMPARE(array.last().toBool(), true);

        const QVariantMap big = readFixture(QStringLiteral("apple/bpylist2-dict_big.plist"), &error).toMap();
        QVERIFY2(error.isEmpty(), qPrintable(error));
        QCOMPARE(big.size(), 36);
        QCOMPARE(big.value(QStringLiteral("z")).toLongLong(), 26LL);
        QCOMPARE(big.value(QStringLiteral("9")).toLongLong(), 36LL);

        const QVariantMap bt = readFixture(QStringLiteral("apple/plaso-com.apple.bluetooth.plist"), &error).toMap();
        QVERIFY2(error.isEmpty(), qPrintable(error));
        QCOMPARE(bt.size(), 16);
        QCOMPARE(bt.value(QStringLiteral("BluetoothVersionNumber")).toLongLong(), 3LL);
        const QVariantMap audio = bt.value(QStringLiteral("SCOAudioDevices")).toMap()
                                      .value(QStringLiteral("00-0d-fd-00-00-00")).toMap();
        QCOMPARE(audio.value(QStringLiteral("IOAudioControls")).toList().at(0).toMap()
                     .value(QStringLiteral("IOAudioLevelControlMinDB")).toLongLong(),
                 4293558272LL);
        const QVariantMap trackpad = bt.value(QStringLiteral("DeviceCache")).toMap()
                                         .value(QStringLiteral("44-00-00-00-00-04")).toMap();
        QCOMPARE(trackpad.value(QStringLiteral("Name")).toString(), QStringLiteral("Apple Magic Trackpad 2"));
        QCOMPARE(trackpad.value(QStringLiteral("LastInquiryUpdate")).toDateTime(),
                 utc("2012-11-02T01:13:17.324Z"));
        QCOMPARE(trackpad.value(QStringLiteral("BatteryPercent")).toDouble(), 0.61);
        QCOMPARE(trackpad.value(QStringLiteral("LMPSubversion")).toLongLong(), 796LL);
    }

    void rejectsMalformedFiles_data()
    {
        QTest::addColumn<QString>("file");
        QTest::newRow("truncated trailer") << QStringLiteral("malformed/libplist-fuzz-crash-94b37259.bplist");
        QTest::newRow("absurd utf-16 length") << QStringLiteral("malformed/libplist-fuzz-clusterfuzz-5421965105954816.bplist");
        QTest::newRow("zero offset size") << QStringLiteral("malformed/rust-plist-binary_zero_offset_size.plist");
        QTest::newRow("cut off in the data") << QStringLiteral("malformed/plaso-truncated.plist");
        QTest::newRow("keys that are containers") << QStringLiteral("malformed/libplist-malformed_dict.bplist");
        QTest::newRow("cyclic containers") << QStringLiteral("malformed/libplist-recursion.bplist");
    }
    void rejectsMalformedFiles()
    {
        QFETCH(QString, file);
        QString error;
        const QVariant v = readFixture(file, &error);
        QVERIFY(!v.isValid());
        QVERIFY(!error.isEmpty());
    }

    void rejectsHostileStructures_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("expected");
        // 0xAF 0x13 + 8 bytes: an array claiming 2^60 elements.
        QByteArray hugeArray("\xAF\x13", 2);
        hugeArray += QByteArray::fromHex("1000000000000000");
        QTest::newRow("count of 2^60") << handMade({hugeArray}) << QStringLiteral("claims more elements");
        QByteArray hugeString("\x5F\x12", 2);
        hugeString += QByteArray::fromHex("1DCD6500"); // 500,000,000 bytes
        QTest::newRow("500 MB string in a small file") << handMade({hugeString}) << QStringLiteral("claims more bytes");
        QTest::newRow("reference out of range")
            << handMade({QByteArray("\xA1\x07", 2)}) << QStringLiteral("out of range");
        QTest::newRow("object count beyond the table")
            << handMade({QByteArray("\x09", 1)}, 0, quint64(1) << 60) << QStringLiteral("more objects");
        QTest::newRow("top object beyond the count")
            << handMade({QByteArray("\x09", 1)}, 5) << QStringLiteral("top object");
        QTest::newRow("array that holds itself")
            << handMade({QByteArray("\xA1\x00", 2)}) << QStringLiteral("contains itself");
        QTest::newRow("unknown marker") << handMade({QByteArray("\x70", 1)}) << QStringLiteral("malformed");
        QTest::newRow("int wider than 128 bits")
            << handMade({QByteArray("\x15", 1) + QByteArray(32, '\1')}) << QStringLiteral("malformed");
        QTest::newRow("128-bit int beyond 64 bits")
            << handMade({QByteArray("\x14\x00\x00\x00\x00\x00\x00\x00\x01", 9) + QByteArray(8, '\0')})
            << QStringLiteral("too large");
        QByteArray badOffset = handMade({QByteArray("\x09", 1)});
        badOffset[9] = char(0xFF); // the only offset now points into the trailer
        badOffset[10] = char(0xF0);
        QTest::newRow("offset outside the object data") << badOffset << QStringLiteral("outside");
        QTest::newRow("NaN date") << handMade({QByteArray("\x33\x7f\xf8\x00\x00\x00\x00\x00\x00", 9)})
                                  << QStringLiteral("out of range");
    }
    void rejectsHostileStructures()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, expected);
        QString error;
        QVERIFY(!BinaryPlistReader::read(bytes, &error).isValid());
        QVERIFY2(error.contains(expected), qPrintable(error));
    }

    // Ten thousand arrays, each holding the next: refused, not a stack overflow.
    void refusesNestingTenThousandDeep()
    {
        BinaryPlistWriter w;
        BinaryPlistWriter::Ref first = w.reserve(), prev = first;
        for (int i = 0; i < 10000; ++i) {
            const auto next = w.reserve();
            const BinaryPlistWriter::Ref elems[] = {next};
            w.setArray(prev, elems);
            prev = next;
        }
        w.setArray(prev, {});
        QString error;
        QVERIFY(!BinaryPlistReader::read(w.finish(first), &error).isValid());
        QVERIFY2(error.contains(QStringLiteral("nested too deeply")), qPrintable(error));
    }

    // Sixty levels of arrays holding the next level twice describe 2^60
    // elements in a few hundred bytes; sharing keeps the decode linear.
    void sharedContainersDoNotExpand()
    {
        BinaryPlistWriter w;
        BinaryPlistWriter::Ref level = w.string(QStringLiteral("leaf"));
        for (int i = 0; i < 60; ++i) {
            const BinaryPlistWriter::Ref twice[] = {level, level};
            level = w.array(twice);
        }
        QElapsedTimer t;
        t.start();
        QString error;
        const QVariant v = BinaryPlistReader::read(w.finish(level), &error);
        QVERIFY2(error.isEmpty(), qPrintable(error));
        QVERIFY(t.elapsed() < 5000);
        QVariant inner = v;
        for (int i = 0; i < 60; ++i)
            inner = inner.toList().at(1);
        QCOMPARE(inner.toString(), QStringLiteral("leaf"));
    }

    void roundTripsEveryTypeWeWrite()
    {
        QVariantMap m;
        m.insert(QStringLiteral("ascii"), QStringLiteral("plain"));
        m.insert(QStringLiteral("unicode \u2603"), QStringLiteral("snow \u2603 and \U0001F600"));
        m.insert(QStringLiteral("long"), QString(300, QLatin1Char('x')));
        m.insert(QStringLiteral("ints"), QVariantList{0, 255, 256, 65535, 65536, qint64(1) << 40,
                                                       qint64(-1), std::numeric_limits<qint64>::min(),
                                                       QVariant::fromValue(std::numeric_limits<quint64>::max())});
        m.insert(QStringLiteral("reals"), QVariantList{0.0, -2.5, 1e300});
        m.insert(QStringLiteral("date"), utc("1999-12-31T23:59:59.125Z"));
        m.insert(QStringLiteral("data"), QByteArray(70000, '\xAB'));
        m.insert(QStringLiteral("bools"), QVariantList{true, false});
        m.insert(QStringLiteral("uid"), QVariant::fromValue(PlistUid{70000}));
        m.insert(QStringLiteral("null"), plistNull());
        m.insert(QStringLiteral("empty"), QVariantMap());
        QString error;
        const QByteArray bytes = BinaryPlistWriter::write(m, &error);
        QVERIFY2(error.isEmpty(), qPrintable(error));
        const QVariant back = BinaryPlistReader::read(bytes, &error);
        QVERIFY2(error.isEmpty(), qPrintable(error));
        QString where;
        QVERIFY2(samePlistValue(m, back, &where), qPrintable(where));
    }

    void refusesValuesWithoutAPropertyListForm()
    {
        QString error;
        QVERIFY(BinaryPlistWriter::write(QVariantList{QVariant::fromValue(QPoint(1, 2))}, &error).isEmpty());
        QVERIFY(error.contains(QStringLiteral("no property-list form")));
    }

    // libplist, an implementation nobody here wrote, reads what we write and
    // writes what we read.
    void agreesWithLibplistBothWays_data()
    {
        QTest::addColumn<QString>("file");
        QTest::newRow("cpython") << QStringLiteral("apple/cpython-test_plistlib-FMT_BINARY.bplist");
        QTest::newRow("bluetooth") << QStringLiteral("apple/plaso-com.apple.bluetooth.plist");
        QTest::newRow("array") << QStringLiteral("apple/bpylist2-array_long.plist");
        QTest::newRow("dict") << QStringLiteral("apple/bpylist2-dict_big.plist");
        QTest::newRow("utf16") << QStringLiteral("apple/rust-plist-utf16_bplist.plist");
        QTest::newRow("archive") << QStringLiteral("keyed-archives/libnskeyedarchiver-nsarray_runningprocesses.bplist");
    }
    void agreesWithLibplistBothWays()
    {
        QFETCH(QString, file);
        QString error;
        const QVariant ours = readFixture(file, &error);
        QVERIFY2(error.isEmpty(), qPrintable(error));
        // libplist 2.2 keeps dates to whole microseconds and integers unsigned:
        // compare through its own XML to let it speak for itself.
        const QByteArray written = BinaryPlistWriter::write(ours);
        plist_t node = nullptr;
        plist_from_bin(written.constData(), uint32_t(written.size()), &node);
        QVERIFY(node);
        char *xml = nullptr;
        uint32_t len = 0;
        plist_to_xml(node, &xml, &len);
        const QVariant viaLibplist = readPropertyList(QByteArray(xml, qsizetype(len)), &error);
        plist_to_xml_free(xml);
        QVERIFY2(error.isEmpty(), qPrintable(error));

        char *bin = nullptr;
        plist_to_bin(node, &bin, &len);
        const QVariant fromLibplistBinary = BinaryPlistReader::read(QByteArray(bin, qsizetype(len)), &error);
        plist_to_bin_free(bin);
        plist_free(node);
        QVERIFY2(error.isEmpty(), qPrintable(error));

        QString where;
        QVERIFY2(samePlistValue(asLibplistXmlKeepsIt(ours), asLibplistXmlKeepsIt(viaLibplist), &where),
                 qPrintable(where));
        QVERIFY2(samePlistValue(ours, fromLibplistBinary, &where), qPrintable(where));
    }

    // Python's plistlib, a second independent implementation.
    void agreesWithPythonBothWays_data() { agreesWithLibplistBothWays_data(); }
    void agreesWithPythonBothWays()
    {
        if (!pythonPeerAvailable())
            QSKIP("Debian's /usr/bin/python3 with plistlib is not installed");
        QFETCH(QString, file);
        QString error;
        const QVariant ours = readFixture(file, &error);
        QVERIFY2(error.isEmpty(), qPrintable(error));

        QTemporaryDir dir;
        const QString written = dir.filePath(QStringLiteral("ours.bplist"));
        QFile f(written);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(BinaryPlistWriter::write(ours));
        f.close();
        QByteArray out;
        QVERIFY2(runPythonPeer({QStringLiteral("dump"), written}, &out), out.constData());
        QString where;
        QVERIFY2(samePlistValue(ours, fromTagged(QJsonDocument::fromJson(out).object()), &where),
                 qPrintable(where));

        const QString json = dir.filePath(QStringLiteral("value.json"));
        QFile j(json);
        QVERIFY(j.open(QIODevice::WriteOnly));
        j.write(QJsonDocument(toTagged(ours).toObject()).toJson());
        j.close();
        const QString pythonWritten = dir.filePath(QStringLiteral("python.bplist"));
        QVERIFY2(runPythonPeer({QStringLiteral("write"), json, pythonWritten}, &out), out.constData());
        const QVariant back = BinaryPlistReader::read(readFile(pythonWritten), &error);
        QVERIFY2(error.isEmpty(), qPrintable(error));
        QVERIFY2(samePlistValue(ours, back, &where), qPrintable(where));
    }

    void readsXmlThroughLibplist()
    {
        const QByteArray xml =
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
            "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
            "<plist version=\"1.0\"><dict><key>Hour</key><integer>3</integer>"
            "<key>Name</key><string>caf\xc3\xa9</string><key>On</key><true/>"
            "<key>Days</key><array><integer>1</integer><integer>-2</integer></array></dict></plist>\n";
        QString error;
        const QVariantMap m = readPropertyList(xml, &error).toMap();
        QVERIFY2(error.isEmpty(), qPrintable(error));
        QCOMPARE(m.value(QStringLiteral("Hour")).toLongLong(), 3LL);
        QCOMPARE(m.value(QStringLiteral("Name")).toString(), QStringLiteral("caf\u00e9"));
        QCOMPARE(m.value(QStringLiteral("On")).toBool(), true);
        QCOMPARE(m.value(QStringLiteral("Days")).toList().at(1).toLongLong(), -2LL);
        QVERIFY(!readPropertyList("not a property list at all", &error).isValid());
        QVERIFY(!error.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestBinaryPlist)
#include "tst_binaryplist.moc"
