#include "HXBlockIOErrors.h"
#include "HXFileSystemErrors.h"
#include "HXHardwareErrors.h"

#include <QtTest>

using namespace Qt::StringLiterals;

// The kernel's wording, message by message, as its drivers print it.
class tst_KernelMessages : public QObject
{
    Q_OBJECT

private slots:
    void blockIOErrors_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("found"); // "device: location", or empty
        // clang-format off
        QTest::newRow("block layer") << "I/O error, dev sda, sector 123456 op 0x0:(READ) flags 0x0 phys_seg 1 prio class 0" << "sda: sector 123456";
        QTest::newRow("medium error") << "print_req_error: critical medium error, dev sdc, sector 9 flags 0" << "sdc: sector 9";
        QTest::newRow("buffer") << "Buffer I/O error on dev sda1, logical block 7, async page read" << "sda1: logical block 7 of sda1";
        QTest::newRow("nvme, no names") << "nvme0n1: I/O Cmd(0x2) @ LBA 1234, 8 blocks, I/O Error (sct 0x2 / sc 0x81)" << "nvme0n1: LBA 1234";
        QTest::newRow("nvme path") << "nvme1c1n1: Write(0x1) @ LBA 5, 1 blocks, Access Denied (sct 0x2 / sc 0x86) DNR" << "nvme1c1n1: LBA 5";
        QTest::newRow("discard not supported") << "operation not supported error, dev sda, sector 0 op 0x9:(WRITE_ZEROES) flags 0x800" << "";
        QTest::newRow("sense data") << "sd 0:0:0:0: [sda] tag#1 Add. Sense: Unrecovered read error" << "";
        QTest::newRow("ext4's view") << "EXT4-fs warning (device sda1): ext4_end_bio:343: I/O error 10 writing to inode 12" << "";
        // clang-format on
    }
    void blockIOErrors()
    {
        QFETCH(QString, text);
        QFETCH(QString, found);
        const std::optional<HXBlockIOError> error = HXBlockIOErrors::parse(text);
        QCOMPARE(error ? error->device + u": "_s + error->location : QString(), found);
    }

    // "device disk 1" when the device's errors count for the disk ("-": none).
    void partitionsCountForTheirDisk()
    {
        for (const char *c :
             {"sda1 sda 1", "sdaa1 sda 0", "nvme0n1p2 nvme0n1 1", "nvme0n10 nvme0n1 0",
              "nvme0c1n1p3 nvme0n1 1", "loop3p1 loop3 1", "sda - 0"}) {
            const QStringList w = QString::fromLatin1(c).split(u' ');
            const QString disk = w[1] == u"-"_s ? QString() : w[1];
            QVERIFY2(HXBlockIOErrors::belongsToDisk(w[0], disk) == (w[2] == u"1"_s), c);
        }
    }

    void fileSystemErrors_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("found"); // "device inode", or empty
        // clang-format off
        QTest::newRow("ext4 inode") << "EXT4-fs error (device sda1): ext4_lookup:1234: inode #1234: comm ls: deleted inode referenced: 5678" << "sda1 1234";
        QTest::newRow("ext4 journal") << "EXT4-fs error (device dm-0) in ext4_reserve_inode_write:5765: Journal has aborted" << "dm-0 0";
        QTest::newRow("ext4 warning") << "EXT4-fs warning (device sda1): ext4_dx_add_entry:2531: Directory index full!" << "";
        QTest::newRow("xfs verifier") << "XFS (sda1): Metadata corruption detected at xfs_dinode_verify+0x1a4/0x5d0 [xfs], inode 0x1a2b dinode" << "sda1 6699";
        QTest::newRow("xfs clean") << "XFS (sda1): Ending clean mount" << "";
        QTest::newRow("btrfs with state") << "BTRFS error (device loop0 state EA): parent transid verify failed on logical 30425088 mirror 1" << "loop0 0";
        QTest::newRow("btrfs checksum") << "BTRFS warning (device sda1): csum failed root 5 ino 257 off 0 csum 0x8941f998 expected csum 0x1c3e4a2b mirror 1" << "sda1 257";
        QTest::newRow("btrfs repaired") << "BTRFS info (device sda1): read error corrected: ino 257 off 0 (dev /dev/sda1 sector 2048)" << "";
        QTest::newRow("fat") << "FAT-fs (sdb1): error, fat_get_cluster: invalid cluster chain (i_pos 0)" << "sdb1 0";
        // clang-format on
    }
    void fileSystemErrors()
    {
        QFETCH(QString, text);
        QFETCH(QString, found);
        const std::optional<HXFileSystemLogError> error = HXFileSystemErrors::parseLogLine(text);
        QCOMPARE(error ? u"%1 %2"_s.arg(error->device).arg(error->inode) : QString(), found);
    }

    void btrfsErrorStats()
    {
        HXBtrfsErrorStats stats;
        QVERIFY(!HXFileSystemErrors::addErrorStats("read_errs lots\nunknown_errs 4\n", &stats));
        QVERIFY(HXFileSystemErrors::addErrorStats("write_errs 0\nread_errs 2\nflush_errs 0\n"
                                                  "corruption_errs 1\ngeneration_errs 0\n",
                                                  &stats));
        QVERIFY(HXFileSystemErrors::addErrorStats("write_errs 1\nread_errs -3\n", &stats));
        QCOMPARE(stats.describe(), u"1 write error, 2 read errors and 1 corruption error"_s);
    }

    // Lines are "priority microseconds text", in the log's order.
    void hardwareErrors_data()
    {
        QTest::addColumn<QString>("lines");
        QTest::addColumn<int>("errors");
        QTest::addColumn<int>("uncorrected");
        QTest::addColumn<int>("firmwareNotes");
        // clang-format off
        QTest::newRow("none") << "6 0 Linux version 6.1.0-21-amd64\n4 10 mce: CPU0: Core temperature above threshold, cpu clock throttled" << 0 << 0 << 0;
        QTest::newRow("corrected machine check and its notice")
            << "3 1000 mce: [Hardware Error]: CPU 2: Machine Check: 0 Bank 5: 9c00004000010090\n3 1001 mce: [Hardware Error]: TSC 0 ADDR 3f3b2c040 MISC 86\n"
               "4 1010 mce: [Hardware Error]: Machine check events logged" << 1 << 0 << 0;
        QTest::newRow("UC bit set") << "3 1000 mce: [Hardware Error]: CPU 3: Machine Check: 0 Bank 1: bd80000000100134" << 1 << 1 << 0;
        QTest::newRow("panic") << "0 1000 mce: [Hardware Error]: CPU 0: Machine Check Exception: 5 Bank 4: be00000000800400\n"
                                  "0 1100 mce: [Hardware Error]: Machine check: Processor context corrupt\n0 1200 Kernel panic - not syncing: Fatal machine check" << 1 << 1 << 0;
        QTest::newRow("AMD decoder") << "0 5 [Hardware Error]: CPU:0 (17:71:0) MC27_STATUS[Over|UE|MiscV|AddrV|-|-|SyndV|UECC|-|-|-]: 0xfe20000000000000\n"
                                        "4 9000000 [Hardware Error]: CPU:1 (17:71:0) MC15_STATUS[-|CE|MiscV|AddrV|-|-|SyndV|CECC|-|-|-]: 0x9c2040000000011b" << 2 << 1 << 0;
        QTest::newRow("corrected AER with its detail") << "3 1000 pcieport 0000:00:1c.0: AER: Corrected error received: 0000:00:1c.0\n"
                                                          "3 1010 pcieport 0000:00:1c.0: PCIe Bus Error: severity=Corrected, type=Physical Layer, (Receiver ID)" << 1 << 0 << 0;
        QTest::newRow("newer wording") << "3 1000 pcieport 0000:00:1c.0: AER: Multiple Uncorrectable (Non-Fatal) error message received from 0000:73:00.1" << 1 << 1 << 0;
        QTest::newRow("detail raises") << "3 1000 pcieport 0000:00:01.0: AER: Corrected error received: 0000:00:01.0\n"
                                          "3 1010 pcieport 0000:00:01.0: PCIe Bus Error: severity=Uncorrected (Fatal), type=Transaction Layer" << 1 << 1 << 0;
        QTest::newRow("detail much later") << "3 1000 pcieport 0000:00:1c.0: AER: Corrected error received: 0000:00:1c.0\n"
                                              "3 9000000 pcieport 0000:00:1c.0: PCIe Bus Error: severity=Correctable, type=Data Link Layer" << 2 << 0 << 0;
        QTest::newRow("APEI fatal") << "0 50 {1}[Hardware Error]: Hardware error from APEI Generic Hardware Error Source: 0\n0 51 {1}[Hardware Error]: event severity: fatal" << 1 << 1 << 0;
        QTest::newRow("APEI corrected") << "4 50 {3}[Hardware Error]: Hardware error from APEI Generic Hardware Error Source: 1\n4 51 {3}[Hardware Error]: event severity: corrected" << 1 << 0 << 0;
        QTest::newRow("firmware errors") << "3 70 ACPI BIOS Error (bug): Could not resolve symbol [\\_SB.PCI0.GPP0.SWUS], AE_NOT_FOUND (20220331/dswload2-162)\n"
                                            "3 71 ACPI Error: AE_NOT_FOUND, While resolving a named reference package element (20220331/dspkginit-438)" << 2 << 0 << 0;
        QTest::newRow("firmware quirks") << "4 0 [Firmware Bug]: TSC doesn't count with P0 frequency!\n6 80 ACPI: [Firmware Bug]: BIOS _OSI(Linux) query ignored" << 0 << 0 << 2;
        // clang-format on
    }
    void hardwareErrors()
    {
        QFETCH(QString, lines);
        QFETCH(int, errors);
        QFETCH(int, uncorrected);
        QFETCH(int, firmwareNotes);
        HXHardwareErrors tally;
        for (const QString &line : lines.split(u'\n')) {
            HXKernelRecord record;
            record.priority = line.section(u' ', 0, 0).toInt();
            record.monotonicUsec = line.section(u' ', 1, 1).toLongLong();
            record.text = line.section(u' ', 2);
            tally.add(record);
        }
        QCOMPARE(tally.errors(), errors);
        QCOMPARE(tally.uncorrected(), uncorrected);
        QCOMPARE(tally.firmwareNotes(), firmwareNotes);
        QCOMPARE(tally.details().isEmpty(), errors == 0);
    }
};

QTEST_GUILESS_MAIN(tst_KernelMessages)
#include "tst_kernelmessages.moc"
