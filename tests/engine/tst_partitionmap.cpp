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

// Bytes of an image, and a block range that fails to read as a failing
// sector would.
class MemorySource : public HXPartitionMapReader::Source
{
public:
    MemorySource(const QByteArray &bytes, int blockSize)
        : m_bytes(bytes)
        , m_blockSize(blockSize)
    {
    }
    qint64 sizeBytes() const override { return m_bytes.size(); }
    int logicalBlockSize() const override { return m_blockSize; }
    bool read(qint64 offset, qint64 length, QByteArray *into, QString *why) override
    {
        if (offset < m_badEnd && offset + length > m_badStart) {
            *why = QStringLiteral("Input/output error");
            return false;
        }
        if (offset + length > m_bytes.size()) {
            *why = QStringLiteral("past the end");
            return false;
        }
        *into = m_bytes.mid(offset, length);
        return true;
    }
    void failReadsOf(qint64 start, qint64 end)
    {
        m_badStart = start;
        m_badEnd = end;
    }

private:
    QByteArray m_bytes;
    int m_blockSize;
    qint64 m_badStart = 0;
    qint64 m_badEnd = 0;
};

// Edits a GPT image the way a test needs it and puts its checksums right
// again, so that only the intended fault remains.
struct GptEditor
{
    QByteArray image;
    int blockSize = 512;

    quint64 get64(qint64 at) const { return qFromLittleEndian<quint64>(image.constData() + at); }
    quint32 get32(qint64 at) const { return qFromLittleEndian<quint32>(image.constData() + at); }
    void put64(qint64 at, quint64 value) { qToLittleEndian(value, image.data() + at); }
    void put32(qint64 at, quint32 value) { qToLittleEndian(value, image.data() + at); }

    qint64 header(bool primary) const
    {
        return primary ? blockSize : qint64(get64(blockSize + 32)) * blockSize;
    }
    qint64 entry(bool primary, int index) const
    {
        const qint64 at = header(primary);
        return qint64(get64(at + 72)) * blockSize + qint64(index) * get32(at + 84);
    }
    void setEntryBlocks(int index, quint64 first, quint64 last)
    {
        for (const bool primary : {true, false}) {
            put64(entry(primary, index) + 32, first);
            put64(entry(primary, index) + 40, last);
        }
    }
    static quint32 crc(const char *data, qint64 length)
    {
        return quint32(crc32(0L, reinterpret_cast<const Bytef *>(data), uInt(length)));
    }
    void fixChecksums()
    {
        for (const bool primary : {true, false}) {
            const qint64 at = header(primary);
            const qint64 entries = qint64(get64(at + 72)) * blockSize;
            put32(at + 88,
                  crc(image.constData() + entries, qint64(get32(at + 80)) * get32(at + 84)));
            put32(at + 16, 0);
            put32(at + 16, crc(image.constData() + at, get32(at + 12)));
        }
    }
};

QJsonObject sfdiskView(const QString &path)
{
    QByteArray output;
    QString why;
    if (!run(QStringLiteral("sfdisk"), {QStringLiteral("--json"), path}, &why, {}, &output))
        qWarning() << why;
    return QJsonDocument::fromJson(output)
        .object()
        .value(QStringLiteral("partitiontable"))
        .toObject();
}

// The reader's partitions against sfdisk's own reading of the same map.
void compareWithSfdisk(const HXPartitionMap &map, const QJsonObject &table)
{
    const QJsonArray partitions = table.value(QStringLiteral("partitions")).toArray();
    QCOMPARE(map.partitions.size(), partitions.size());
    for (int i = 0; i < partitions.size(); ++i) {
        const QJsonObject expected = partitions.at(i).toObject();
        const HXPartitionEntry &actual = map.partitions.at(i);
        QVERIFY2(expected.value(QStringLiteral("node"))
                     .toString()
                     .endsWith(QString::number(actual.number)),
                 qPrintable(expected.value(QStringLiteral("node")).toString()));
        QCOMPARE(actual.firstBlock, expected.value(QStringLiteral("start")).toInteger());
        QCOMPARE(actual.blockCount, expected.value(QStringLiteral("size")).toInteger());
        const QString type = expected.value(QStringLiteral("type")).toString();
        if (map.scheme == HXPartitionMap::Scheme::GPT) {
            QCOMPARE(actual.typeGuid, type.toLower());
            QCOMPARE(actual.guid, expected.value(QStringLiteral("uuid")).toString().toLower());
            QCOMPARE(actual.name, expected.value(QStringLiteral("name")).toString());
        } else {
            QCOMPARE(actual.mbrType, type.toInt(nullptr, 16));
        }
    }
    const QString id = table.value(QStringLiteral("id")).toString().toLower();
    QCOMPARE(map.identifier(), id.startsWith(QLatin1String("0x")) ? id.mid(2) : id);
}

HXBlockDisk diskAt(const QString &path, const QString &kernelName)
{
    HXBlockDisk disk;
    disk.kernelName = kernelName;
    disk.devicePath = path;
    disk.sizeBytes = QFileInfo(path).size();
    disk.uuid = QStringLiteral("test-%1").arg(kernelName);
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
    HXPartitionMapTest test;
    return test.run(context);
}

} // namespace

class TestPartitionMap : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void damagedGptOnLoopDevices_data();
    void damagedGptOnLoopDevices();
    void mbrOnLoopDevice();
    void gptWith4KiBBlocks();
    void mbrFaults_data();
    void mbrFaults();
    void everyHeaderByteIsChecked();
    void hostileHeadersAndFailingReads();
    void disksWithoutAMap();

private:
    QString makeGptImage(const QString &name);
    QString makeMbrImage(const QString &name);

    QTemporaryDir m_dir;
};

void TestPartitionMap::initTestCase()
{
    QVERIFY(m_dir.isValid());
    for (const char *tool : {"sgdisk", "sfdisk"}) {
        QString why;
        if (!run(QLatin1String(tool), {QStringLiteral("--version")}, &why))
            QSKIP(qPrintable(why));
    }
}

QString TestPartitionMap::makeGptImage(const QString &name)
{
    const QString path = m_dir.filePath(name);
    QString why;
    if (!makeImage(path, ImageBytes) ||
        !run(QStringLiteral("sgdisk"),
             {QStringLiteral("--clear"), QStringLiteral("--new=1:2048:+1M"),
              QStringLiteral("--change-name=1:EFI system"), QStringLiteral("--typecode=1:ef00"),
              QStringLiteral("--new=2:0:+2M"), QStringLiteral("--change-name=2:data"),
              QStringLiteral("--new=3:0:0"), QStringLiteral("--change-name=3:home"), path},
             &why)) {
        qWarning() << why;
        return {};
    }
    return path;
}

QString TestPartitionMap::makeMbrImage(const QString &name)
{
    const QString path = m_dir.filePath(name);
    const QByteArray script = "label: dos\nlabel-id: 0x5eed1e55\n"
                              "size=1MiB, type=83, bootable\nsize=2MiB, type=7\ntype=5\n"
                              "size=1MiB, type=83\nsize=1MiB, type=82\n";
    QString why;
    if (!makeImage(path, ImageBytes) ||
        !run(QStringLiteral("sfdisk"), {QStringLiteral("--quiet"), path}, &why, script)) {
        qWarning() << why;
        return {};
    }
    return path;
}

void TestPartitionMap::damagedGptOnLoopDevices_data()
{
    QTest::addColumn<QString>("damage");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("evidence");

    QTest::newRow("intact")
        << "" << HXDTestResultSuccessType
        << "GPT with 3 partitions; both headers and their partition entries are intact";
    QTest::newRow("primary header") << "primary header" << HXDTestResultErrorType
                                    << "the primary GPT header is damaged (its checksum is wrong)";
    QTest::newRow("primary entries") << "primary entries" << HXDTestResultErrorType
                                     << "the primary GPT header has damaged partition entries";
    QTest::newRow("no protective MBR")
        << "mbr" << HXDTestResultErrorType << "holds no protective MBR";
    QTest::newRow("backup header") << "backup header" << HXDTestResultWarningType
                                   << "the backup GPT header is damaged (its checksum is wrong)";
    QTest::newRow("backup entries") << "backup entries" << HXDTestResultWarningType
                                    << "the backup GPT header has damaged partition entries";
    QTest::newRow("grown disk")
        << "grown" << HXDTestResultWarningType
        << "the backup GPT header is not at the disk's last block (the disk was "
           "probably enlarged)";
    QTest::newRow("shrunk disk")
        << "shrunk" << HXDTestResultErrorType
        << "the primary GPT header describes a usable area (blocks 34 to 16350) that "
           "does not fit a disk of 14336 blocks";
    QTest::newRow("overlapping entries")
        << "overlap" << HXDTestResultErrorType
        << "partition 2 (blocks 3000 to 8191) overlaps partition 1 (blocks 2048 "
           "to 4095)";
    QTest::newRow("entry outside")
        << "outside" << HXDTestResultErrorType
        << "partition 3 (blocks 8192 to 16383) lies outside the disk's usable area "
           "(blocks 34 to 16350)";
}

void TestPartitionMap::damagedGptOnLoopDevices()
{
    QFETCH(QString, damage);
    QFETCH(QString, type);
    QFETCH(QString, evidence);
    const QString image = makeGptImage(QStringLiteral("gpt-%1.img")
                                           .arg(QLatin1String(QTest::currentDataTag()))
                                           .replace(QLatin1Char(' '), QLatin1Char('-')));
    QVERIFY(!image.isEmpty());
    const QJsonObject madeBySfdisk = sfdiskView(image);

    GptEditor gpt{readFile(image)};
    const qint64 backup = gpt.header(false);
    QCOMPARE(backup, ImageBytes - 512);
    if (damage == QLatin1String("primary header"))
        QVERIFY(writeAt(image, 512 + 48, "\x01"));
    else if (damage == QLatin1String("primary entries"))
        QVERIFY(writeAt(image, gpt.entry(true, 1) + 60, "x"));
    else if (damage == QLatin1String("mbr"))
        QVERIFY(writeAt(image, 0, QByteArray(512, '\0')));
    else if (damage == QLatin1String("backup header"))
        QVERIFY(writeAt(image, backup + 48, "\x01"));
    else if (damage == QLatin1String("backup entries"))
        QVERIFY(writeAt(image, gpt.entry(false, 0) + 60, "x"));
    else if (damage == QLatin1String("grown"))
        QVERIFY(resize(image, ImageBytes + (qint64(4) << 20)));
    else if (damage == QLatin1String("shrunk"))
        QVERIFY(resize(image, ImageBytes - (qint64(1) << 20)));
    else if (damage == QLatin1String("overlap") || damage == QLatin1String("outside")) {
        if (damage == QLatin1String("overlap"))
            gpt.setEntryBlocks(1, 3000, 8191);
        else
            gpt.setEntryBlocks(2, 8192, 16383);
        gpt.fixChecksums();
        QVERIFY(writeAt(image, 0, gpt.image));
    }

    // The image file itself, then the same bytes as a block device.
    const std::optional<HXPartitionMap> fromFile = HXPartitionMapReader::readPath(image, nullptr);
    QVERIFY(fromFile);
    QCOMPARE(fromFile->scheme, HXPartitionMap::Scheme::GPT);
    if (damage != QLatin1String("overlap") && damage != QLatin1String("outside") &&
        damage != QLatin1String("shrunk"))
        compareWithSfdisk(*fromFile, madeBySfdisk); // from whichever copy is sound

    const LoopDevice loop(image);
    if (!loop.isAttached())
        QSKIP(qPrintable(
            QStringLiteral("the map was checked in the image only: %1").arg(loop.error())));
    QStringList said;
    const QList<HXTestFinding> findings = runTest({diskAt(loop.path(), loop.kernelName())}, &said);
    QCOMPARE(findings.size(), 1);
    const HXTestFinding &finding = findings.first();
    QCOMPARE(finding.type, type);
    QVERIFY2(finding.log.contains(evidence), qPrintable(finding.log));
    QVERIFY2(finding.log.contains(QStringLiteral(" on %1: ").arg(loop.kernelName())),
             qPrintable(finding.log));
    QCOMPARE(finding.testInfo.value(HXDTestResultPartitionMapIsValidKey).toBool(),
             type != HXDTestResultErrorType);
    QCOMPARE(finding.testInfo.value(HXDiskKey).toMap().value(HXBSDNameKey).toString(),
             loop.kernelName());
    QVERIFY(said.isEmpty());
}

void TestPartitionMap::mbrOnLoopDevice()
{
    const QString image = makeMbrImage(QStringLiteral("mbr.img"));
    QVERIFY(!image.isEmpty());
    const std::optional<HXPartitionMap> fromFile = HXPartitionMapReader::readPath(image, nullptr);
    QVERIFY(fromFile);
    QCOMPARE(fromFile->scheme, HXPartitionMap::Scheme::MBR);
    QVERIFY(fromFile->problems.isEmpty());
    compareWithSfdisk(*fromFile, sfdiskView(image));
    QCOMPARE(HXPartitionMapReader::diskIdentifier(image), QStringLiteral("5eed1e55"));

    const LoopDevice loop(image);
    if (!loop.isAttached())
        QSKIP(qPrintable(loop.error()));
    QCOMPARE(HXPartitionMapReader::diskIdentifier(loop.path()), QStringLiteral("5eed1e55"));
    const QList<HXTestFinding> findings = runTest({diskAt(loop.path(), loop.kernelName())});
    QCOMPARE(findings.size(), 1);
    QCOMPARE(findings.first().type, HXDTestResultSuccessType);
    QCOMPARE(findings.first().log,
             QStringLiteral("Partition Map test passed on %1: MBR with 5 partitions, all "
                            "inside the disk and none overlapping.")
                 .arg(loop.kernelName()));
}

void TestPartitionMap::gptWith4KiBBlocks()
{
    // sgdisk sees 512-byte blocks in a file: the map is made through a loop
    // device with 4096-byte blocks, then damaged in the file.
    const QString image = m_dir.filePath(QStringLiteral("gpt-4k.img"));
    QVERIFY(makeImage(image, qint64(16) << 20));
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
    const std::optional<HXPartitionMap> fromFile = HXPartitionMapReader::readPath(image, nullptr);
    QVERIFY(fromFile);
    QCOMPARE(fromFile->blockSize, 4096);
    QVERIFY(fromFile->problems.isEmpty());
    QCOMPARE(fromFile->partitions.size(), 2);
    QCOMPARE(fromFile->partitions.at(0).blockCount, qint64(1024)); // 4 MiB in 4 KiB blocks

    QVERIFY(writeAt(image, (qint64(16) << 20) - 4096 + 48, "\x01")); // the backup header
    const LoopDevice loop(image, {true, 4096, false});
    QVERIFY2(loop.isAttached(), qPrintable(loop.error()));
    const QList<HXTestFinding> findings = runTest({diskAt(loop.path(), loop.kernelName())});
    QCOMPARE(findings.size(), 1);
    QCOMPARE(findings.first().type, HXDTestResultWarningType);
    QVERIFY2(findings.first().log.contains(QLatin1String("the backup GPT header is damaged")),
             qPrintable(findings.first().log));
}

void TestPartitionMap::mbrFaults_data()
{
    QTest::addColumn<int>("slot");
    QTest::addColumn<quint32>("start");
    QTest::addColumn<quint32>("count");
    QTest::addColumn<QString>("evidence");

    // The made map: 1: 2048+2048, 2: 4096+4096, 3 (extended): 8192+8192.
    QTest::newRow("overlap")
        << 2 << 3000u << 4096u
        << "partition 2 (blocks 3000 to 7095) overlaps partition 1 (blocks 2048 to 4095)";
    QTest::newRow("past the end")
        << 2 << 4096u << 20000u
        << "partition 2 (blocks 4096 to 24095) runs past the disk's end (the disk has "
           "16384 blocks)";
    QTest::newRow("logical chain broken")
        << 3 << 8200u << 8184u << "the logical partition table at block 8200 is damaged";
}

void TestPartitionMap::mbrFaults()
{
    QFETCH(int, slot);
    QFETCH(quint32, start);
    QFETCH(quint32, count);
    QFETCH(QString, evidence);
    const QString image = makeMbrImage(QStringLiteral("mbr-%1.img")
                                           .arg(QLatin1String(QTest::currentDataTag()))
                                           .replace(QLatin1Char(' '), QLatin1Char('-')));
    QVERIFY(!image.isEmpty());
    QByteArray fields(8, '\0');
    qToLittleEndian(start, fields.data());
    qToLittleEndian(count, fields.data() + 4);
    QVERIFY(writeAt(image, 446 + 16 * (slot - 1) + 8, fields));

    QStringList said;
    const QList<HXTestFinding> findings = runTest({diskAt(image, QStringLiteral("image"))}, &said);
    QCOMPARE(findings.size(), 1);
    QCOMPARE(findings.first().type, HXDTestResultErrorType);
    QVERIFY2(findings.first().log.contains(evidence), qPrintable(findings.first().log));
    QCOMPARE(findings.first().testInfo.value(HXDTestResultPartitionMapIsValidKey).toBool(), false);
}

void TestPartitionMap::everyHeaderByteIsChecked()
{
    // Any change to any byte a header's checksum covers makes that copy
    // unusable, and only that copy.
    const QString image = makeGptImage(QStringLiteral("gpt-bytes.img"));
    QVERIFY(!image.isEmpty());
    const QByteArray bytes = readFile(image);
    for (const bool primary : {true, false}) {
        const qint64 header = primary ? 512 : bytes.size() - 512;
        for (int offset = 0; offset < 92; ++offset) {
            QByteArray damaged = bytes;
            damaged[header + offset] = char(damaged.at(header + offset) ^ 0x10);
            MemorySource source(damaged, 512);
            const HXPartitionMap map = HXPartitionMapReader::read(source);
            QVERIFY2(map.scheme == HXPartitionMap::Scheme::GPT,
                     qPrintable(QString::number(offset)));
            QVERIFY2(map.primaryIsSound() != primary,
                     qPrintable(QStringLiteral("byte %1").arg(offset)));
            QVERIFY2(map.backupIsSound() == primary,
                     qPrintable(QStringLiteral("byte %1").arg(offset)));
            QCOMPARE(map.partitions.size(), 3); // still read from the other copy
        }
    }
}

void TestPartitionMap::hostileHeadersAndFailingReads()
{
    const QString image = makeGptImage(QStringLiteral("gpt-hostile.img"));
    QVERIFY(!image.isEmpty());
    GptEditor gpt{readFile(image)};

    // Headers whose checksums are right but whose numbers are not believable.
    struct Case
    {
        int offset;
        quint32 value;
        const char *evidence;
    };
    const Case cases[] = {
        {80, 0x40000000u,
         "the primary GPT header is damaged (it claims 1073741824 partition entries of 128 bytes)"},
        {84, 100u,
         "the primary GPT header is damaged (it claims 128 partition entries of 100 bytes)"},
        {12, 600u, "the primary GPT header is damaged (it claims to be 600 bytes long)"},
        {72, 40u, "the primary GPT header places its partition entries at blocks 40 to 71"},
        {24, 7u,
         "the primary GPT header is out of place (it says it lies at block 7, but lies at block "
         "1)"},
    };
    for (const Case &c : cases) {
        GptEditor edited = gpt;
        if (c.offset == 24 || c.offset == 72)
            edited.put64(512 + c.offset, c.value);
        else
            edited.put32(512 + c.offset, c.value);
        edited.put32(512 + 16, 0);
        edited.put32(512 + 16, GptEditor::crc(edited.image.constData() + 512,
                                              qMin(edited.get32(512 + 12), 512u)));
        MemorySource source(edited.image, 512);
        const HXPartitionMap map = HXPartitionMapReader::read(source);
        QVERIFY(!map.primaryIsSound());
        QVERIFY2(map.problems.first().text.startsWith(QLatin1String(c.evidence)),
                 qPrintable(map.problems.first().text));
        QCOMPARE(map.partitions.size(), 3);
    }

    // A failing sector under the primary entries, then under the first block.
    MemorySource failing(gpt.image, 512);
    failing.failReadsOf(2 * 512, 3 * 512);
    HXPartitionMap map = HXPartitionMapReader::read(failing);
    QCOMPARE(map.problems.size(), 1);
    QCOMPARE(map.problems.first().text,
             QStringLiteral("the primary GPT header has partition entries that could "
                            "not be read (Input/output error)"));
    failing.failReadsOf(0, 512);
    map = HXPartitionMapReader::read(failing);
    QCOMPARE(map.scheme, HXPartitionMap::Scheme::None);
    QCOMPARE(map.problems.size(), 1);
    const HXTestFinding finding =
        HXPartitionMapTest::judge(diskAt(image, QStringLiteral("sdz")), map);
    QCOMPARE(finding.type, HXDTestResultErrorType);
    QCOMPARE(finding.log,
             QStringLiteral("Partition Map test error on sdz: the disk's first block could not be "
                            "read (Input/output error)."));

    // A protective MBR with nothing behind it: both copies are missing.
    QByteArray bare = gpt.image.left(512) + QByteArray(ImageBytes - 512, '\0');
    MemorySource protectiveOnly(bare, 512);
    map = HXPartitionMapReader::read(protectiveOnly);
    QCOMPARE(map.scheme, HXPartitionMap::Scheme::GPT);
    QCOMPARE(map.problems.size(), 2);
    QCOMPARE(map.problems.at(1).text,
             QStringLiteral("the backup GPT header is missing (block 16383 holds no GPT header)"));
    QVERIFY(map.identifier().isEmpty());
}

void TestPartitionMap::disksWithoutAMap()
{
    // Whole-disk file systems: FAT's boot sector ends in 0x55AA as an MBR does.
    const QString vfat = m_dir.filePath(QStringLiteral("whole-vfat.img"));
    const QString ext4 = m_dir.filePath(QStringLiteral("whole-ext4.img"));
    const QString blank = m_dir.filePath(QStringLiteral("blank.img"));
    QVERIFY(makeImage(vfat, ImageBytes) && makeImage(ext4, ImageBytes) &&
            makeImage(blank, ImageBytes));
    QString why;
    if (!run(QStringLiteral("mkfs.vfat"), {vfat}, &why) ||
        !run(QStringLiteral("mkfs.ext4"), {QStringLiteral("-q"), QStringLiteral("-F"), ext4}, &why))
        QSKIP(qPrintable(why));
    QCOMPARE(readFile(vfat).mid(510, 2), QByteArray("\x55\xaa"));

    QStringList said;
    const QList<HXTestFinding> findings =
        runTest({diskAt(vfat, QStringLiteral("vfat")), diskAt(ext4, QStringLiteral("ext4")),
                 diskAt(blank, QStringLiteral("blank")),
                 diskAt(m_dir.filePath(QStringLiteral("gone")), QStringLiteral("gone"))},
                &said);
    QVERIFY(findings.isEmpty());
    QCOMPARE(said.size(), 4);
    QCOMPARE(said.at(0),
             QStringLiteral(
                 "Partition Map test: vfat has no partition map, so there is nothing to check."));
    QCOMPARE(said.at(1),
             QStringLiteral(
                 "Partition Map test: ext4 has no partition map, so there is nothing to check."));
    QVERIFY(said.at(3).startsWith(QLatin1String("Partition Map test: gone was not tested: ")));
    QVERIFY(said.at(3).endsWith(QLatin1String("could not be opened (No such file or directory).")));
    QVERIFY(HXPartitionMapReader::diskIdentifier(vfat).isEmpty());
}

QTEST_GUILESS_MAIN(TestPartitionMap)
#include "tst_partitionmap.moc"
