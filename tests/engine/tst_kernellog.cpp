#include "HXKernelLog.h"
#include "KernelFixtures.h"

#include <QElapsedTimer>
#include <QtTest>

using Source = HXKernelLogReading::Source;

class tst_KernelLog : public QObject
{
    Q_OBJECT

private slots:
    void parsesKmsg()
    {
        int malformed = 0;
        QList<HXKernelRecord> records = HXKernelLog::parseKmsg(
            TestSupport::readFile(KernelMachine::fixture(QStringLiteral("sysroot/dev/kmsg"))),
            &malformed);
        QCOMPARE(malformed, 0);
        // 42 records; the last, written by a program (user facility), is not
        // the kernel's; dictionary lines are no records.
        QCOMPARE(records.size(), 41);
        QCOMPARE(records.constLast().sequence, 40);
        const HXKernelRecord &bios = records.at(4);
        QCOMPARE(bios.cursor, QStringLiteral("4"));
        QCOMPARE(bios.monotonicUsec, 312456);
        QCOMPARE(bios.priority, 3);
        // kmsg writes a backslash as "\x5c".
        QVERIFY(bios.text.contains(QLatin1String("symbol [\\_SB.PCI0.XHC")));

        records = HXKernelLog::parseKmsg("garbage\n6,1;few fields\n6,x,2,-;not a number\n"
                                         "6,1,-2,-;negative\n6,5,2,-,caller=T1;extra field\n"
                                         " SUBSYSTEM=pci\n6,6,3;",
                                         &malformed);
        QCOMPARE(malformed, 4);
        QCOMPARE(records.size(), 2);
        QCOMPARE(records.at(0).text, QStringLiteral("extra field"));
        QCOMPARE(records.at(1).text, QString());
    }

    void parsesJournalJson()
    {
        QByteArray output = TestSupport::readFile(
            KernelMachine::fixture(QStringLiteral("journal/kernel-boot.json")));
        output += "not json\n{\"__CURSOR\":\"s=1;i=ff\"}\n{\"MESSAGE\":null}\n\n";
        int malformed = 0;
        const QList<HXKernelRecord> records = HXKernelLog::parseJournalJson(output, &malformed);
        QCOMPARE(malformed, 3);
        QCOMPARE(records.size(), 10);
        const HXKernelRecord &error = records.at(7);
        QVERIFY(
            error.text.startsWith(QLatin1String("I/O error, dev sda, sector 4096 op 0x0:(READ)")));
        QCOMPARE(error.priority, 3);
        QCOMPARE(error.monotonicUsec, 201003330); // the kernel's time, not the journal's receipt
        QVERIFY(
            error.cursor.startsWith(QLatin1String("s=8d3c41f0a2b94e7c9f1d6a5b4c3e2f10;i=4a7;")));
        // A message that is not UTF-8 comes as an array of bytes.
        QCOMPARE(records.at(3).text, QStringLiteral("usb 2-1: Product: USB\uFFFD Flash Disk"));
    }

    // The journal when it holds the kernel's messages, else kmsg, else a reason.
    void readsWhereTheLogIs_data()
    {
        QTest::addColumn<QString>("journal"); // "", "ok", "fails", "no files"
        QTest::addColumn<bool>("kmsg");
        QTest::addColumn<int>("source");
        QTest::addColumn<int>("records");
        QTest::newRow("journal") << "ok" << true << int(Source::Journal) << 10;
        QTest::newRow("journal fails") << "fails" << true << int(Source::Kmsg) << 41;
        QTest::newRow("journal without files") << "no files" << true << int(Source::Kmsg) << 41;
        QTest::newRow("no journalctl") << "" << true << int(Source::Kmsg) << 41;
        QTest::newRow("nothing") << "fails" << false << int(Source::None) << 0;
    }
    void readsWhereTheLogIs()
    {
        QFETCH(QString, journal);
        QFETCH(bool, kmsg);
        QFETCH(int, source);
        QFETCH(int, records);
        KernelMachine machine;
        const QString empty = machine.folder() + QStringLiteral("/empty.json");
        KernelMachine::append(empty, {});
        if (journal == QLatin1String("ok"))
            machine.useJournal(KernelMachine::fixture(QStringLiteral("journal/kernel-boot.json")));
        else if (journal == QLatin1String("fails"))
            machine.useJournal(empty, 1, "Failed to open journal\n");
        else if (journal == QLatin1String("no files"))
            machine.useJournal(empty, 0, "No journal files were found.\n");
        if (!kmsg)
            QVERIFY(QFile::remove(machine.kmsg()));
        const HXKernelLogReading reading = HXKernelLog::read();
        QCOMPARE(int(reading.source), source);
        QCOMPARE(reading.records.size(), records);
        QVERIFY(reading.fromBootStart);
        if (!kmsg)
            QCOMPARE(
                reading.problem,
                QStringLiteral("No kernel log can be read: journalctl failed: Failed to open "
                               "journal; %1/dev/kmsg cannot be read: No such file or directory.")
                    .arg(machine.root()));
    }

    // kmsg by sequence number: a second reading sees only the records added
    // since the first; a new boot starts over.
    void kmsgPositionReadsOnlyNewRecords()
    {
        KernelMachine machine;
        const HXKernelLogReading first = HXKernelLog::read();
        QCOMPARE(first.end.bootId, QStringLiteral("3f5c2a9e-7d41-4b8a-9c06-1e2f3a4b5c6d"));
        QCOMPARE(first.end.kmsgSequence, 40);
        QCOMPARE(first.end.monotonicUsec, 270123500);

        const QString path = machine.stateFolder() + QStringLiteral("/position.json");
        QVERIFY(first.end.save(path, nullptr));
        const HXKernelLogPosition kept = HXKernelLogPosition::load(path);
        const HXKernelLogReading nothingNew = HXKernelLog::read(kept);
        QCOMPARE(nothingNew.records.size(), 0);
        QVERIFY(!nothingNew.fromBootStart);
        QCOMPARE(nothingNew.end.kmsgSequence, 40);

        // An earlier time, but a later sequence number: the number decides.
        KernelMachine::append(machine.kmsg(), "3,43,100,-;I/O error, dev sda, sector 77\n"
                                              " SUBSYSTEM=block\n");
        const HXKernelLogReading next = HXKernelLog::read(kept);
        QCOMPARE(next.records.size(), 1);
        QCOMPARE(next.end.kmsgSequence, 43);

        machine.setBootId("0a1b2c3d-0000-4000-8000-000000000000");
        const HXKernelLogReading newBoot = HXKernelLog::read(next.end);
        QCOMPARE(newBoot.records.size(), 42);
        QVERIFY(newBoot.fromBootStart);

        KernelMachine::append(path, "{\"bootId\": 7, trailing");
        QVERIFY(!HXKernelLogPosition::load(path).isValid());
    }

    void journalPositionUsesTheCursor()
    {
        KernelMachine machine;
        machine.useJournal(KernelMachine::fixture(QStringLiteral("journal/kernel-boot.json")));
        const HXKernelLogReading first = HXKernelLog::read();
        QCOMPARE(first.end.journalCursor, first.records.constLast().cursor);

        KernelMachine::append(
            machine.journalCopy(),
            R"js({"__CURSOR":"s=8d3c;i=4b0","_SOURCE_MONOTONIC_TIMESTAMP":"301000000",)js"
            R"js("MESSAGE":"I/O error, dev sda, sector 99"})js"
            "\n");
        const HXKernelLogReading next = HXKernelLog::read(first.end);
        QCOMPARE(machine.journalCalls().value(1),
                 QStringLiteral("-k -b -o json --no-pager --after-cursor=") +
                     first.end.journalCursor);
        QCOMPARE(next.records.size(), 1);
        QCOMPARE(next.end.journalCursor, QStringLiteral("s=8d3c;i=4b0"));

        // A journal that refuses the cursor is read whole, and the time decides.
        const QString fake = machine.bin() + QStringLiteral("/journalctl");
        QFile::rename(fake, machine.bin() + QStringLiteral("/real"));
        KernelMachine::append(fake, "#!/bin/sh\ncase \"$*\" in *--after-cursor*) exit 1;; esac\n"
                                    "exec '" +
                                        QFile::encodeName(machine.bin()) + "/real' \"$@\"\n");
        QFile::setPermissions(fake, QFile::ReadOwner | QFile::ExeOwner);
        const HXKernelLogReading byTime = HXKernelLog::read(first.end);
        QCOMPARE(byTime.source, Source::Journal);
        QCOMPARE(byTime.records.size(), 1);
        QCOMPARE(byTime.records.at(0).monotonicUsec, 301000000);
    }

    // A position taken from kmsg carries over to the journal, and back, by time.
    void positionFollowsTimeWhenTheSourceChanges()
    {
        KernelMachine machine;
        QFile::resize(machine.kmsg(), 0);
        KernelMachine::append(machine.kmsg(), "6,900,201003340,-;between the two sda errors\n");
        const HXKernelLogReading fromKmsg = HXKernelLog::read();

        machine.useJournal(KernelMachine::fixture(QStringLiteral("journal/kernel-boot.json")));
        const HXKernelLogReading fromJournal = HXKernelLog::read(fromKmsg.end);
        QCOMPARE(fromJournal.source, Source::Journal);
        QCOMPARE(fromJournal.records.size(), 2);
        QCOMPARE(fromJournal.records.at(0).monotonicUsec, 201003344);

        QFile::remove(machine.bin() + QStringLiteral("/journalctl"));
        KernelMachine::append(machine.kmsg(), "6,901,201600000,-;later\n");
        const HXKernelLogReading backToKmsg = HXKernelLog::read(fromJournal.end);
        QCOMPARE(backToKmsg.records.size(), 1);
        QCOMPARE(backToKmsg.records.at(0).text, QStringLiteral("later"));
    }

    // The real /dev/kmsg never ends: the reading must stop at its last record.
    void readsTheRealKmsgWithoutWaiting()
    {
        if (!QFileInfo(QStringLiteral("/dev/kmsg")).isReadable())
            QSKIP("/dev/kmsg cannot be read by this user");
        KernelMachine machine; // PATH without journalctl
        qunsetenv("ORVEX_SYSROOT");
        QElapsedTimer clock;
        clock.start();
        const HXKernelLogReading reading = HXKernelLog::read();
        QVERIFY2(reading.source == Source::Kmsg, qPrintable(reading.problem));
        QVERIFY(!reading.records.isEmpty());
        QVERIFY(clock.elapsed() < 5000);
    }
};

QTEST_GUILESS_MAIN(tst_KernelLog)
#include "tst_kernellog.moc"
