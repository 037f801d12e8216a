#include "HXKernelLog.h"
#include "KernelFixtures.h"

#include <QElapsedTimer>
#include <QtTest>

using namespace Qt::StringLiterals;

using Source = HXKernelLogReading::Source;

namespace {

const QString kJournal = KernelMachine::fixture(u"journal/kernel-boot.json"_s);

} // namespace

class tst_KernelLog : public QObject
{
    Q_OBJECT

private slots:
    // What is not a record: malformed lines, dictionary lines, journal
    // objects without a message; and a journal message that is not UTF-8.
    void parsesBothFormats()
    {
        int malformed = 0;
        QList<HXKernelRecord> records = HXKernelLog::parseKmsg(
            "garbage\n6,1;few fields\n6,x,2,-;not a number\n6,1,-2,-;negative\n"
            "6,5,2,-,caller=T1;extra field\n SUBSYSTEM=pci\n6,6,3;",
            &malformed);
        QCOMPARE(malformed, 4);
        QCOMPARE(records.size(), 2);
        QCOMPARE(records.at(0).text, u"extra field"_s);
        QCOMPARE(records.at(1).text, QString());

        malformed = 0;
        records = HXKernelLog::parseJournalJson(
            TestSupport::readFile(kJournal) +
                "not json\n{\"__CURSOR\":\"s=1;i=ff\"}\n{\"MESSAGE\":null}\n\n",
            &malformed);
        QCOMPARE(malformed, 3);
        QCOMPARE(records.size(), 10);
        QCOMPARE(records.at(7).priority, 3);
        QCOMPARE(records.at(7).monotonicUsec, 201003330); // the kernel's time, not the receipt
        // A message that is not UTF-8 comes as an array of bytes.
        QCOMPARE(records.at(3).text, u"usb 2-1: Product: USB\uFFFD Flash Disk"_s);
    }

    // The journal when it holds the kernel's messages, else kmsg (without
    // the record a program wrote, nor dictionary lines), else a reason.
    void readsWhereTheLogIs()
    {
        KernelMachine machine; // no journalctl yet
        HXKernelLogReading reading = HXKernelLog::read();
        QCOMPARE(reading.source, Source::Kmsg);
        QCOMPARE(reading.records.size(), 41);
        QVERIFY(reading.fromBootStart);
        machine.useJournal(kJournal);
        reading = HXKernelLog::read();
        QCOMPARE(reading.source, Source::Journal);
        QCOMPARE(reading.records.size(), 10);

        const QString empty = machine.folder() + u"/empty.json"_s;
        writeFile(empty, {});
        machine.useJournal(empty, 0, u"No journal files were found.\n"_s);
        QCOMPARE(HXKernelLog::read().source, Source::Kmsg);
        machine.useJournal(empty, 1, u"Failed to open journal\n"_s);
        QVERIFY(QFile::remove(machine.kmsg()));
        reading = HXKernelLog::read();
        QCOMPARE(reading.source, Source::None);
        QCOMPARE(reading.problem, u"No kernel log can be read: journalctl failed: Failed to open "
                                  "journal; %1/dev/kmsg cannot be read: No such file or "
                                  "directory."_s.arg(machine.root()));
    }

    // kmsg by sequence number: a second reading sees only the records added
    // since the first; a new boot starts over.
    void kmsgPositionReadsOnlyNewRecords()
    {
        KernelMachine machine;
        const HXKernelLogReading first = HXKernelLog::read();
        QCOMPARE(first.end.kmsgSequence, 40);

        const QString path = machine.stateFolder() + u"/position.json"_s;
        QVERIFY(first.end.save(path, nullptr));
        const HXKernelLogPosition kept = HXKernelLogPosition::load(path);
        const HXKernelLogReading nothingNew = HXKernelLog::read(kept);
        QCOMPARE(nothingNew.records.size(), 0);
        QVERIFY(!nothingNew.fromBootStart);
        QCOMPARE(nothingNew.end.kmsgSequence, 40);

        // An earlier time, but a later sequence number: the number decides.
        writeFile(machine.kmsg(),
                  "3,43,100,-;I/O error, dev sda, sector 77\n"
                  " SUBSYSTEM=block\n",
                  true);
        const HXKernelLogReading next = HXKernelLog::read(kept);
        QCOMPARE(next.records.size(), 1);
        QCOMPARE(next.end.kmsgSequence, 43);

        machine.setBootId("0a1b2c3d-0000-4000-8000-000000000000");
        const HXKernelLogReading newBoot = HXKernelLog::read(next.end);
        QCOMPARE(newBoot.records.size(), 42);
        QVERIFY(newBoot.fromBootStart);

        writeFile(path, "{\"bootId\": 7, trailing", true);
        QVERIFY(!HXKernelLogPosition::load(path).isValid());
    }

    void journalPositionUsesTheCursor()
    {
        KernelMachine machine;
        machine.useJournal(kJournal);
        const HXKernelLogReading first = HXKernelLog::read();
        QCOMPARE(first.end.journalCursor, first.records.constLast().cursor);

        writeFile(machine.journalCopy(),
                  R"js({"__CURSOR":"s=8d3c;i=4b0","_SOURCE_MONOTONIC_TIMESTAMP":)js"
                  R"js("301000000","MESSAGE":"I/O error, dev sda, sector 99"})js"
                  "\n",
                  true);
        const HXKernelLogReading next = HXKernelLog::read(first.end);
        QCOMPARE(machine.journalCalls().value(1),
                 u"-k -b -o json --no-pager --after-cursor="_s + first.end.journalCursor);
        QCOMPARE(next.records.size(), 1);
        QCOMPARE(next.end.journalCursor, u"s=8d3c;i=4b0"_s);

        // A journal that refuses the cursor is read whole, and the time decides.
        const QString fake = machine.bin() + u"/journalctl"_s;
        QFile::rename(fake, machine.bin() + u"/real"_s);
        writeFile(fake, "#!/bin/sh\ncase \"$*\" in *--after-cursor*) exit 1;; esac\n"
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
        writeFile(machine.kmsg(), "6,900,201003340,-;between the two sda errors\n");
        const HXKernelLogReading fromKmsg = HXKernelLog::read();

        machine.useJournal(kJournal);
        const HXKernelLogReading fromJournal = HXKernelLog::read(fromKmsg.end);
        QCOMPARE(fromJournal.source, Source::Journal);
        QCOMPARE(fromJournal.records.size(), 2);
        QCOMPARE(fromJournal.records.at(0).monotonicUsec, 201003344);

        QFile::remove(machine.bin() + u"/journalctl"_s);
        writeFile(machine.kmsg(), "6,901,201600000,-;later\n", true);
        const HXKernelLogReading backToKmsg = HXKernelLog::read(fromJournal.end);
        QCOMPARE(backToKmsg.records.size(), 1);
        QCOMPARE(backToKmsg.records.at(0).text, u"later"_s);
    }

    // The real /dev/kmsg never ends: the reading must stop at its last record.
    void readsTheRealKmsgWithoutWaiting()
    {
        if (!QFileInfo(u"/dev/kmsg"_s).isReadable())
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
