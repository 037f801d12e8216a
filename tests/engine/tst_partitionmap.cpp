// The partition map reader and test on maps made by sgdisk and sfdisk, damaged
// in the image file the way disks get damaged, and read back through real
// loop devices (as root) and from the image files themselves.

#include "DiskImages.h"
#include "HXConstants.h"
#include "HXPartitionMapReader.h"
#include "HXPartitionMapTest.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>
#include <zlib.h>

using namespace DiskImages;

namespace {

constexpr qint64 ImageBytes = qint64(8) << 20;

// Bytes of an image in 512-byte blocks, with a block that fails to read as
// a failing sector would.
class MemorySource : public HXPartitionMapReader::Source
{
public:
    explicit MemorySource(const QByteArray &bytes)
        : m_bytes(bytes)
    {
    }
    qint64 sizeBytes() const override { return m_bytes.size(); }
    int logicalBlockSize() const override { return 512; }
    bool read(qint64 offset, qint64 length, QByteArray *into, QString *why) override
    {
        const bool bad = offset < (badBlock + 1) * 512 && offset + length > badBlock * 512;
        if (bad || offset + length > m_bytes.size()) {
            *why = bad ? QStringLiteral("Input/output error") : QStringLiteral("past the end");
            return false;
        }
        *into = m_bytes.mid(offset, length);
        return true;
    }
    qint64 badBlock = -1;

private:
    QByteArray m_bytes;
};

// Edits a GPT image (512-byte blocks) the way a test needs it and puts its
// checksums right again, so that only the intended fault remains.
struct GptEditor
{
    QByteArray image;

    quint64 get64(qint64 at) const { return qFromLittleEndian<quint64>(image.constData() + at); }
    quint32 get32(qint64 at) const { return qFromLittleEndian<quint32>(image.constData() + at); }
    void put64(qint64 at, quint64 value) { qToLittleEndian(value, image.data() + at); }
    void put32(qint64 at, quint32 value) { qToLittleEndian(value, image.data() + at); }
    static quint32 crc(const char *data, qint64 length)
    {
        return quint32(crc32(0L, reinterpret_cast<const Bytef *>(data), uInt(length)));
    }

    qint64 header(bool primary) const { return primary ? 512 : qint64(get64(512 + 32)) * 512; }
    qint64 entry(bool primary, int index) const
    {
        const qint64 at = header(primary);
        return qint64(get64(at + 72)) * 512 + qint64(index) * get32(at + 84);
    }
    void fixHeader(qint64 at)
    {
        put32(at + 16, 0);
        put32(at + 16, crc(image.constData() + at, qMin(get32(at + 12), 512u)));
    }
    void setEntryBlocks(int index, quint64 first, quint64 last)
    {
        for (const bool primary : {true, false}) {
            put64(entry(primary, index) + 32, first);
            put64(entry(primary, index) + 40, last);
            const qint64 at = header(primary);
            put32(at + 88, crc(image.constData() + entry(primary, 0),
                               qint64(get32(at + 80)) * get32(at + 84)));
            fixHeader(at);
        }
    }
};

// The reader's partitions against sfdisk's own reading of the same map.
void compareWithSfdisk(const HXPartitionMap &map, const QByteArray &sfdiskJson)
{
    const QJsonValue table = QJsonDocument::fromJson(sfdiskJson)[u"partitiontable"];
    const QJsonArray partitions = table[u"partitions"].toArray();
    QCOMPARE(map.partitions.size(), partitions.size());
    for (int i = 0; i < partitions.size(); ++i) {
        const auto field = [&](const char *key) {
            return partitions[i][QLatin1String(key)].toVariant().toString();
        };
        const HXPartitionEntry &actual = map.partitions.at(i);
        QVERIFY2(field("node").endsWith(QString::number(actual.number)), qPrintable(field("node")));
        QCOMPARE(actual.firstBlock, field("start").toLongLong());
        QCOMPARE(actual.blockCount, field("size").toLongLong());
        if (map.scheme == HXPartitionMap::Scheme::GPT) {
            QCOMPARE(actual.typeGuid, field("type").toLower());
            QCOMPARE(actual.guid, field("uuid").toLower());
            QCOMPARE(actual.name, field("name"));
        } else {
            QCOMPARE(actual.mbrType, field("type").toInt(nullptr, 16));
        }
    }
    const QString id = table[u"id"].toString().toLower();
    QCOMPARE(map.identifier(), id.startsWith(QLatin1String("0x")) ? id.mid(2) : id);
}

QByteArray sfdiskJson(const QString &path)
{
    QByteArray output;
    run(QStringLiteral("sfdisk"), {QStringLiteral("--json"), path}, nullptr, {}, &output);
    return output;
}

// The disk at `path`, named as the kernel would name a device node there.
HXBlockDisk diskAt(const QString &path)
{
    HXBlockDisk disk;
    disk.kernelName = QFileInfo(path).fileName();
    disk.devicePath = path;
    disk.sizeBytes = QFileInfo(path).size();
    disk.uuid = QStringLiteral("test-") + disk.kernelName;
    return disk;
}

QList<HXTestFinding> runTest(const QList<HXBlockDisk> &disks, QStringList *said = nullptr)
{
    HXEngineContext context;
    context.disks = disks;
    context.note = [said](const QString &line) {
        if (said)
            *said << line;
    };
    return HXPartitionMapTest().run(context);
}

} // namespace

class TestPartitionMap : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

    // An image named after the running case, its map made by `tool`.
    QString makeMapImage(const char *tool, const char *arguments, const QByteArray &script = {})
    {
        const QString path = m_dir.filePath(QStringLiteral("%1-%2.img")
                                                .arg(QLatin1String(QTest::currentTestFunction()),
                                                     QLatin1String(QTest::currentDataTag()))
                                                .replace(QLatin1Char(' '), QLatin1Char('-')));
        QString why;
        if (!DiskImages::makeImage(path, ImageBytes) ||
            !run(QLatin1String(tool),
                 QString::fromLatin1(arguments).split(QLatin1Char(' ')) << path, &why, script)) {
            qWarning() << why;
            return {};
        }
        return path;
    }
    QString makeGptImage()
    {
        return makeMapImage("sgdisk",
                            "--clear --new=1:2048:+1M --change-name=1:EFI --typecode=1:ef00 "
                            "--new=2:0:+2M --change-name=2:data --new=3:0:0 --change-name=3:home");
    }
    QString makeMbrImage()
    {
        // 1: 2048+2048, 2: 4096+4096, 3 (extended): 8192+8192 with two logical ones.
        return makeMapImage("sfdisk", "--quiet",
                            "label: dos\nlabel-id: 0x5eed1e55\nsize=1MiB, type=83, bootable\n"
                            "size=2MiB, type=7\ntype=5\nsize=1MiB, type=83\nsize=1MiB, type=82\n");
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        for (const char *tool : {"sgdisk", "sfdisk"}) {
            QString why;
            if (!run(QLatin1String(tool), {QStringLiteral("--version")}, &why))
                QSKIP(qPrintable(why));
        }
    }

    void damagedGptOnLoopDevices_data()
    {
        // Named after the damage.
        QTest::addColumn<QString>("type");
        QTest::addColumn<QString>("evidence");
        QTest::newRow("intact") << HXDTestResultSuccessType
                                << "GPT with 3 partitions; both headers and their partition "
                                   "entries are intact";
        QTest::newRow("primary header")
            << HXDTestResultErrorType << "primary GPT header is damaged (its checksum is wrong)";
        QTest::newRow("primary entries")
            << HXDTestResultErrorType << "primary GPT header has damaged partition entries";
        QTest::newRow("no protective MBR") << HXDTestResultErrorType << "no protective MBR";
        QTest::newRow("backup header")
            << HXDTestResultWarningType << "backup GPT header is damaged (its checksum is wrong)";
        QTest::newRow("backup entries")
            << HXDTestResultWarningType << "backup GPT header has damaged partition entries";
        QTest::newRow("grown disk")
            << HXDTestResultWarningType << "backup GPT header is not at the disk's last block";
        QTest::newRow("shrunk disk")
            << HXDTestResultErrorType
            << "usable area (blocks 34 to 16350) that does not fit a disk of 14336 blocks";
        QTest::newRow("overlapping partitions")
            << HXDTestResultErrorType
            << "partition 2 (blocks 3000 to 8191) overlaps partition 1 (blocks 2048 to 4095)";
        QTest::newRow("partition outside")
            << HXDTestResultErrorType
            << "partition 3 (blocks 8192 to 16383) lies outside the disk's usable area";
    }

    void damagedGptOnLoopDevices()
    {
        const QString damage = QString::fromLatin1(QTest::currentDataTag());
        QFETCH(QString, type);
        QFETCH(QString, evidence);
        const QString image = makeGptImage();
        QVERIFY(!image.isEmpty());
        const QByteArray madeBySfdisk = sfdiskJson(image);

        GptEditor gpt{readFile(image)};
        const bool primary = damage.startsWith(QLatin1String("primary"));
        if (damage.endsWith(QLatin1String(" header")))
            gpt.image[gpt.header(primary) + 48] = 1;
        else if (damage.endsWith(QLatin1String(" entries")))
            gpt.image[gpt.entry(primary, 1) + 60] = 1;
        else if (damage == QLatin1String("no protective MBR"))
            gpt.image.replace(0, 512, QByteArray(512, '\0'));
        else if (damage == QLatin1String("overlapping partitions"))
            gpt.setEntryBlocks(1, 3000, 8191);
        else if (damage == QLatin1String("partition outside"))
            gpt.setEntryBlocks(2, 8192, 16383);
        const qint64 size = damage == QLatin1String("grown disk")    ? ImageBytes + (4 << 20)
                            : damage == QLatin1String("shrunk disk") ? ImageBytes - (1 << 20)
                                                                     : ImageBytes;
        QVERIFY(writeAt(image, 0, gpt.image) && QFile::resize(image, size));

        // The image file itself, then the same bytes as a block device.
        const std::optional<HXPartitionMap> fromFile =
            HXPartitionMapReader::readPath(image, nullptr);
        QVERIFY(fromFile && fromFile->scheme == HXPartitionMap::Scheme::GPT);
        if (!damage.contains(QLatin1String("partition")) && damage != QLatin1String("shrunk disk"))
            compareWithSfdisk(*fromFile, madeBySfdisk); // from whichever copy is sound

        const LoopDevice loop(image);
        if (!loop.isAttached())
            QSKIP(qPrintable(
                QStringLiteral("the map was checked in the image only: %1").arg(loop.error())));
        const QList<HXTestFinding> findings = runTest({diskAt(loop.path())});
        QCOMPARE(findings.size(), 1);
        const HXTestFinding &finding = findings.first();
        QCOMPARE(finding.type, type);
        QVERIFY2(finding.log.contains(evidence), qPrintable(finding.log));
        QCOMPARE(finding.testInfo.value(HXDTestResultPartitionMapIsValidKey).toBool(),
                 type != HXDTestResultErrorType);
        QCOMPARE(finding.testInfo.value(HXDiskKey).toMap().value(HXBSDNameKey).toString(),
                 loop.kernelName());
    }

    void intactMbr()
    {
        // Read from the file: the block device's side is the GPT cases'.
        const QString image = makeMbrImage();
        QVERIFY(!image.isEmpty());
        const std::optional<HXPartitionMap> map = HXPartitionMapReader::readPath(image, nullptr);
        QVERIFY(map && map->scheme == HXPartitionMap::Scheme::MBR && map->problems.isEmpty());
        compareWithSfdisk(*map, sfdiskJson(image));
        QCOMPARE(HXPartitionMapReader::diskIdentifier(image), QStringLiteral("5eed1e55"));
        const QList<HXTestFinding> findings = runTest({diskAt(image)});
        QCOMPARE(findings.size(), 1);
        QCOMPARE(findings.first().type, HXDTestResultSuccessType);
        QCOMPARE(findings.first().log,
                 QStringLiteral("Partition Map test passed on %1: MBR with 5 partitions, all "
                                "inside the disk and none overlapping.")
                     .arg(QFileInfo(image).fileName()));
    }

    void gptWith4KiBBlocks()
    {
        // sgdisk sees 512-byte blocks in a file: the map is made through a loop
        // device with 4096-byte blocks, then damaged in the file.
        const QString image = m_dir.filePath(QStringLiteral("gpt-4k.img"));
        QVERIFY(DiskImages::makeImage(image, qint64(16) << 20));
        {
            const LoopDevice writable(image, {false, 4096, false});
            if (!writable.isAttached())
                QSKIP(qPrintable(writable.error()));
            QString why;
            QVERIFY2(run(QStringLiteral("sgdisk"),
                         {QStringLiteral("--clear"), QStringLiteral("--new=1:0:+4M"),
                          QStringLiteral("--new=2:0:0"), writable.path()},
                         &why),
                     qPrintable(why));
        }
        const std::optional<HXPartitionMap> fromFile =
            HXPartitionMapReader::readPath(image, nullptr);
        QVERIFY(fromFile && fromFile->problems.isEmpty() && fromFile->partitions.size() == 2);
        QCOMPARE(fromFile->partitions.at(0).blockCount, qint64(1024)); // 4 MiB in 4 KiB blocks

        QVERIFY(writeAt(image, (qint64(16) << 20) - 4096 + 48, "\x01")); // the backup header
        const LoopDevice loop(image, {true, 4096, false});
        QVERIFY2(loop.isAttached(), qPrintable(loop.error()));
        const QList<HXTestFinding> findings = runTest({diskAt(loop.path())});
        QCOMPARE(findings.size(), 1);
        QCOMPARE(findings.first().type, HXDTestResultWarningType);
        QVERIFY2(findings.first().log.contains(QLatin1String("the backup GPT header is damaged")),
                 qPrintable(findings.first().log));
    }

    void mbrFaults_data()
    {
        QTest::addColumn<int>("slot");
        QTest::addColumn<quint32>("start");
        QTest::addColumn<quint32>("count");
        QTest::addColumn<QString>("evidence");
        QTest::newRow("overlap")
            << 2 << 3000u << 4096u
            << "partition 2 (blocks 3000 to 7095) overlaps partition 1 (blocks 2048 to 4095)";
        QTest::newRow("past the end")
            << 2 << 4096u << 20000u
            << "partition 2 (blocks 4096 to 24095) runs past the disk's end "
               "(the disk has 16384 blocks)";
        QTest::newRow("logical chain broken")
            << 3 << 8200u << 8184u << "the logical partition table at block 8200 is damaged";
    }

    void mbrFaults()
    {
        QFETCH(int, slot);
        QFETCH(quint32, start);
        QFETCH(quint32, count);
        QFETCH(QString, evidence);
        const QString image = makeMbrImage();
        QVERIFY(!image.isEmpty());
        QByteArray fields(8, '\0');
        qToLittleEndian(start, fields.data());
        qToLittleEndian(count, fields.data() + 4);
        QVERIFY(writeAt(image, 446 + 16 * (slot - 1) + 8, fields));

        const QList<HXTestFinding> findings = runTest({diskAt(image)});
        QCOMPARE(findings.size(), 1);
        QCOMPARE(findings.first().type, HXDTestResultErrorType);
        QVERIFY2(findings.first().log.contains(evidence), qPrintable(findings.first().log));
    }

    void everyHeaderByteIsChecked()
    {
        // Any change to any byte a header's checksum covers makes that copy
        // unusable, and only that copy.
        const QString image = makeGptImage();
        QVERIFY(!image.isEmpty());
        const QByteArray bytes = readFile(image);
        for (const bool primary : {true, false}) {
            const qint64 header = primary ? 512 : bytes.size() - 512;
            for (int offset = 0; offset < 92; ++offset) {
                QByteArray damaged = bytes;
                damaged[header + offset] = char(damaged.at(header + offset) ^ 0x10);
                MemorySource source(damaged);
                const HXPartitionMap map = HXPartitionMapReader::read(source);
                QVERIFY2(map.scheme == HXPartitionMap::Scheme::GPT &&
                             map.primaryIsSound() != primary && map.backupIsSound() == primary &&
                             map.partitions.size() == 3, // still read from the other copy
                         qPrintable(QStringLiteral("byte %1 of the %2 header")
                                        .arg(offset)
                                        .arg(QLatin1String(primary ? "primary" : "backup"))));
            }
        }
    }

    void hostileHeadersAndFailingReads()
    {
        const QString image = makeGptImage();
        QVERIFY(!image.isEmpty());
        GptEditor gpt{readFile(image)};

        // Headers whose checksums are right but whose numbers are not believable.
        const std::tuple<int, quint32, const char *> cases[] = {
            {80, 0x40000000u, "(it claims 1073741824 partition entries of 128 bytes)"},
            {84, 100u, "(it claims 128 partition entries of 100 bytes)"},
            {12, 600u, "(it claims to be 600 bytes long)"},
            {72, 40u, "places its partition entries at blocks 40 to 71"},
            {24, 7u, "out of place (it says it lies at block 7, but lies at block 1)"},
        };
        for (const auto &[offset, value, evidence] : cases) {
            GptEditor edited = gpt;
            if (offset == 24 || offset == 72)
                edited.put64(512 + offset, value);
            else
                edited.put32(512 + offset, value);
            edited.fixHeader(512);
            MemorySource source(edited.image);
            const HXPartitionMap map = HXPartitionMapReader::read(source);
            QVERIFY(!map.primaryIsSound() && map.partitions.size() == 3);
            QVERIFY2(
                map.problems.first().text.startsWith(QLatin1String("the primary GPT header ")) &&
                    map.problems.first().text.contains(QLatin1String(evidence)),
                qPrintable(map.problems.first().text));
        }

        // A failing sector under the primary entries, then under the first block.
        MemorySource failing(gpt.image);
        failing.badBlock = 2;
        HXPartitionMap map = HXPartitionMapReader::read(failing);
        QCOMPARE(map.problems.size(), 1);
        QVERIFY2(map.problems.first().text.contains(
                     QLatin1String("entries that could not be read (Input/output error)")),
                 qPrintable(map.problems.first().text));
        failing.badBlock = 0;
        map = HXPartitionMapReader::read(failing);
        QVERIFY(map.scheme == HXPartitionMap::Scheme::None && map.problems.size() == 1);
        const HXTestFinding finding = HXPartitionMapTest::judge(diskAt(image), map);
        QCOMPARE(finding.type, HXDTestResultErrorType);
        QVERIFY2(finding.log.contains(QLatin1String("the disk's first block could not be read")),
                 qPrintable(finding.log));

        // A protective MBR with nothing behind it: both copies are missing.
        MemorySource protectiveOnly(gpt.image.left(512) + QByteArray(ImageBytes - 512, '\0'));
        map = HXPartitionMapReader::read(protectiveOnly);
        QVERIFY(map.scheme == HXPartitionMap::Scheme::GPT && map.problems.size() == 2);
        QVERIFY2(map.problems.at(1).text.contains(QLatin1String("backup GPT header is missing")),
                 qPrintable(map.problems.at(1).text));
        QVERIFY(map.identifier().isEmpty());
    }

    void disksWithoutAMap()
    {
        // Whole-disk file systems: FAT's boot sector ends in 0x55AA as an MBR does.
        QList<HXBlockDisk> disks;
        for (const char *name : {"vfat", "ext4", "blank", "gone"}) {
            const QString path = m_dir.filePath(QLatin1String(name));
            QVERIFY(*name == 'g' ||
                    DiskImages::makeImage(path, ImageBytes)); // "gone" stays missing
            disks << diskAt(path);
        }
        QString why;
        if (!run(QStringLiteral("mkfs.vfat"), {disks.at(0).devicePath}, &why) ||
            !run(QStringLiteral("mkfs.ext4"),
                 {QStringLiteral("-q"), QStringLiteral("-F"), disks.at(1).devicePath}, &why))
            QSKIP(qPrintable(why));
        QCOMPARE(readFile(disks.at(0).devicePath).mid(510, 2), QByteArray("\x55\xaa"));

        QStringList said;
        QVERIFY(runTest(disks, &said).isEmpty());
        QCOMPARE(said.size(), 4);
        QCOMPARE(said.at(0), QStringLiteral("Partition Map test: vfat has no partition map, so "
                                            "there is nothing to check."));
        QVERIFY2(said.at(1).contains(QLatin1String("ext4 has no partition map")) &&
                     said.at(3).contains(QLatin1String("gone was not tested: ")) &&
                     said.at(3).contains(QLatin1String("(No such file or directory)")),
                 qPrintable(said.join(QLatin1Char('\n'))));
        QVERIFY(HXPartitionMapReader::diskIdentifier(disks.at(0).devicePath).isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestPartitionMap)
#include "tst_partitionmap.moc"
