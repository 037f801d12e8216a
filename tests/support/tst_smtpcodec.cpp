// The mail agent's base64: the in-place codec for the login, the byte-buffer
// encoders and the attachment clean-up, against Python's base64 module.

#include "MailPeer.h"
#include "SMTPBase64.h"
#include "SMTPDataBase64.h"

#include <QJsonDocument>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>
#include <cstring>

class SMTPCodecTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void encodersMatchPython();
    void inPlaceCodec_data();
    void inPlaceCodec();
    void inPlaceDecodeRefusals_data();
    void inPlaceDecodeRefusals();
    void attachmentLineBreaks();
    void sizeWording_data();
    void sizeWording();
    void prefixes();
};

void SMTPCodecTest::encodersMatchPython()
{
    QString why;
    if (!MailPeer::available(&why))
        QSKIP(qPrintable(why));
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    // Every length around the groups of 3, the 64-character lines of the
    // filter and the 72-character lines of the clean-up, and a large one.
    QList<qsizetype> sizes;
    for (qsizetype n = 0; n <= 120; ++n)
        sizes << n;
    sizes << 1000 << 4095 << 65536 << 300001;
    QMap<QString, QByteArray> samples;
    QRandomGenerator random(14);
    QStringList files;
    for (const qsizetype n : sizes) {
        QByteArray data(n, Qt::Uninitialized);
        for (auto &b : data)
            b = char(random.bounded(256));
        const QString name = QStringLiteral("s%1").arg(n);
        QFile f(dir.filePath(name));
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(data);
        samples.insert(name, data);
        files << f.fileName();
        // The text the in-place codec takes: no NUL, below 128.
        if (n < 180) {
            for (auto &b : data)
                b = char(1 + uchar(b) % 127);
            QFile a(dir.filePath(QStringLiteral("a%1").arg(n)));
            QVERIFY(a.open(QIODevice::WriteOnly));
            a.write(data);
            files << a.fileName();
        }
    }
    const QByteArray json = MailPeer::run(QStringList{QStringLiteral("b64")} + files, &why);
    QVERIFY2(!json.isEmpty(), qPrintable(why));
    const QJsonObject expected = QJsonDocument::fromJson(json).object();
    QVERIFY(expected.size() > samples.size());
    for (auto it = samples.cbegin(); it != samples.cend(); ++it) {
        const QJsonObject python = expected.value(it.key()).toObject();
        const QByteArray &data = it.value();
        const QString plain = python.value(QStringLiteral("plain")).toString();
        const QString lines64 = python.value(QStringLiteral("lines64")).toString();
        const QByteArray lines72 = python.value(QStringLiteral("lines72")).toString().toLatin1();
        QCOMPARE(SMTPDataBase64::encodeBase64WithNewlines(data, false), plain);
        QCOMPARE(SMTPDataBase64::encodeBase64(data), lines64);
        QCOMPARE(SMTPDataBase64::base64Encoding(data), plain);
        // The group-by-group encoder breaks only after a full line.
        QString fullLines = lines64;
        if (plain.size() % 64 != 0)
            fullLines.chop(1);
        QCOMPARE(SMTPDataBase64::base64EncodingWithLineLength(data, 64), fullLines);
        QCOMPARE(SMTPDataBase64::cleanEncodedAttachment(lines64.toLatin1()), lines72);
        QCOMPARE(SMTPDataBase64::dataWithBase64EncodedString(lines64), data);
        // The in-place codec takes text without NUL and below 128.
        if (data.size() < 180) {
            QByteArray ascii = data;
            for (auto &b : ascii)
                b = char(1 + uchar(b) % 127);
            char text[256] = {};
            memcpy(text, ascii.constData(), size_t(ascii.size()));
            const QByteArray wanted = expected.value(QStringLiteral("a%1").arg(data.size()))
                                          .toObject()
                                          .value(QStringLiteral("plain"))
                                          .toString()
                                          .toLatin1();
            QCOMPARE(wanted, ascii.toBase64());
            QCOMPARE(b64encode(text), !ascii.isEmpty());
            QCOMPARE(QByteArray(text), ascii.isEmpty() ? QByteArray() : wanted);
            if (!ascii.isEmpty()) {
                QVERIFY(b64decode(text));
                QCOMPARE(QByteArray(text), ascii);
            }
        }
    }
}

void SMTPCodecTest::inPlaceCodec_data()
{
    QTest::addColumn<int>("sw");
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QByteArray>("output");
    QTest::newRow("encode") << 0 << QByteArray("Orvex") << true << QByteArray("T3J2ZXg=");
    QTest::newRow("encode two pads") << 0 << QByteArray("bark") << true << QByteArray("YmFyaw==");
    QTest::newRow("decode") << 1 << QByteArray("YmFyazdnbw==") << true << QByteArray("bark7go");
    QTest::newRow("high byte refused unchanged")
        << 0 << QByteArray("J\xc3\xbcrgen") << false << QByteArray("J\xc3\xbcrgen");
    QTest::newRow("other switch does nothing")
        << 2 << QByteArray("abc") << true << QByteArray("abc");
    QTest::newRow("empty has nothing to encode") << 0 << QByteArray() << false << QByteArray();
}

void SMTPCodecTest::inPlaceCodec()
{
    QFETCH(int, sw);
    QFETCH(QByteArray, input);
    QFETCH(bool, result);
    char text[64] = {};
    memcpy(text, input.constData(), size_t(input.size()));
    QCOMPARE(base64(sw, text), result);
    QTEST(QByteArray(text), "output");
}

void SMTPCodecTest::inPlaceDecodeRefusals_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("length not a multiple of 4") << QByteArray("YWJjZ");
    QTest::newRow("pad before the last two places") << QByteArray("YW=jZGVm");
    QTest::newRow("pad followed by a letter") << QByteArray("YWJjZG=v");
    QTest::newRow("character below +") << QByteArray("YW J");
    QTest::newRow("character between + and z, not in the alphabet") << QByteArray("YW:J");
    QTest::newRow("character above z") << QByteArray("YW~J");
}

void SMTPCodecTest::inPlaceDecodeRefusals()
{
    QFETCH(QByteArray, text);
    char buffer[32] = {};
    memcpy(buffer, text.constData(), size_t(text.size()));
    QVERIFY(!b64decode(buffer));
    QCOMPARE(QByteArray(buffer), text);
}

void SMTPCodecTest::attachmentLineBreaks()
{
    // 72 encoded characters arrive as the filter's 64 + "\n" + 8 + "\n".
    const QByteArray bytes54(54, 'x');
    const QByteArray clean72 = SMTPDataBase64::cleanEncodedAttachment(
        SMTPDataBase64::encodeBase64BytesWithNewlines(bytes54, true));
    QCOMPARE(clean72.size(), 74);
    QVERIFY(clean72.endsWith("\r\n"));
    QCOMPARE(clean72.count("\r\n"), 1);
    // 73 characters: one break, before the last one.
    const QByteArray text73 = QByteArray(64, 'A') + '\n' + QByteArray(9, 'B') + '\n';
    const QByteArray clean73 = SMTPDataBase64::cleanEncodedAttachment(text73);
    QCOMPARE(clean73, QByteArray(64, 'A') + QByteArray(8, 'B') + "\r\nB");
    QCOMPARE(SMTPDataBase64::cleanEncodedAttachment(QByteArray()), QByteArray());
    // Stray CR and NUL bytes are dropped like the line feeds.
    QCOMPARE(SMTPDataBase64::cleanEncodedAttachment(QByteArray("ab\r\ncd\0ef", 9)),
             QByteArray("abcdef"));
}

void SMTPCodecTest::sizeWording_data()
{
    QTest::addColumn<quint64>("bytes");
    QTest::addColumn<QString>("wording");
    QTest::newRow("0") << quint64(0) << QStringLiteral("0 Bs");
    QTest::newRow("1") << quint64(1) << QStringLiteral("1 Bs");
    QTest::newRow("2") << quint64(2) << QStringLiteral("2 B");
    QTest::newRow("1000") << quint64(1000) << QStringLiteral("1000 B");
    QTest::newRow("1001") << quint64(1001) << QStringLiteral("1 KB");
    QTest::newRow("1000000") << quint64(1000000) << QStringLiteral("1000 KB");
    QTest::newRow("27306668") << quint64(27306668) << QStringLiteral("27 MB");
    QTest::newRow("1000000001") << quint64(1000000001) << QStringLiteral("1 GB");
}

void SMTPCodecTest::sizeWording()
{
    QFETCH(quint64, bytes);
    QTEST(SMTPDataBase64::sizeDescription(bytes), "wording");
}

void SMTPCodecTest::prefixes()
{
    const QByteArray data("PK\x03\x04rest");
    QVERIFY(SMTPDataBase64::hasPrefix(data, QByteArray("PK\x03\x04")));
    QVERIFY(!SMTPDataBase64::hasPrefix(data, QByteArray()));
    QVERIFY(!SMTPDataBase64::hasPrefix(QByteArray("PK"), QByteArray("PK\x03")));
    QVERIFY(!SMTPDataBase64::hasPrefixBytes(data, nullptr, 2));
    QVERIFY(!SMTPDataBase64::hasPrefixBytes(data, "PX", 2));
}

QTEST_GUILESS_MAIN(SMTPCodecTest)
#include "tst_smtpcodec.moc"
