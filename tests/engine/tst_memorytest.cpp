// The memory test: the pattern kernels on their own, a fault made between a
// pattern's write and its verify, cancelling, and the EDAC counters read from
// fixture trees laid out as the kernel's /sys/devices/system/edac.
#include "HXConstants.h"
#include "HXMemoryTest.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <bit>
#include <vector>

namespace {

QString hex(quint64 v)
{
    return QStringLiteral("0x%1").arg(v, 16, 16, QLatin1Char('0'));
}

struct Run
{
    QList<HXTestFinding> findings;
    QString said; // the lines for the worker's own log, one after another
};

Run runMemoryTest(HXMemoryTest &test, qint64 bytes, const std::atomic_bool *cancelled = nullptr)
{
    Run run;
    HXEngineContext context;
    context.memoryTestBytes = bytes;
    context.cancelled = cancelled;
    context.note = [&](const QString &line) {
        run.said += line + QLatin1Char('\n');
    };
    run.findings = test.run(context);
    return run;
}

} // namespace

class TestMemoryTest : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        // No EDAC unless a case says so: an empty root has none.
        qputenv("ORVEX_SYSROOT", QByteArray(EDAC_FIXTURES "/absent"));
    }

    void patternsReadBackAndCatchAFlippedBit_data()
    {
        QTest::addColumn<HXMemoryPattern>("pattern");
        for (HXMemoryPattern p : HXMemoryPatterns::all)
            QTest::newRow(qPrintable(HXMemoryPatterns::name(p))) << p;
    }

    void patternsReadBackAndCatchAFlippedBit()
    {
        QFETCH(HXMemoryPattern, pattern);
        // An odd length: the last block is a partial one.
        std::vector<quint64> words(4096 + 7);
        for (int pass = 0; pass < HXMemoryPatterns::passes(pattern); ++pass) {
            HXMemoryPatterns::write(pattern, pass, words.data(), words.size(), 0, 42);
            QCOMPARE(
                HXMemoryPatterns::verify(pattern, pass, words.data(), words.size(), 0, 42, nullptr),
                words.size());
            for (std::size_t at : {std::size_t(0), std::size_t(1000), words.size() - 1}) {
                const quint64 original = words[at];
                words[at] ^= quint64(1) << (at % 64);
                quint64 expected = 0;
                QCOMPARE(HXMemoryPatterns::verify(pattern, pass, words.data(), words.size(), 0, 42,
                                                  &expected),
                         at);
                QCOMPARE(expected, original);
                words[at] = original;
            }
        }
    }

    void patternsAreWhatTheySay()
    {
        // A pattern that reads back but stresses nothing (all zeros, say)
        // passes the case above; these are what each one is for.
        std::vector<quint64> w(256);
        quint64 seen = 0; // walking ones: one bit a word, in every place over the passes
        for (int pass = 0; pass < 64; ++pass) {
            HXMemoryPatterns::write(HXMemoryPattern::WalkingOnes, pass, w.data(), w.size(), 0, 0);
            for (quint64 x : w)
                QCOMPARE(std::popcount(x), 1);
            QVERIFY(w[0] != w[1]);
            seen |= w[5];
        }
        QCOMPARE(seen, ~quint64(0));
        // Address in address, complemented on alternate words and passes.
        const auto address = [&w](int i) {
            return quint64(reinterpret_cast<quintptr>(&w[i]));
        };
        HXMemoryPatterns::write(HXMemoryPattern::AddressInAddress, 0, w.data(), w.size(), 0, 0);
        QVERIFY(w[10] == address(10) && w[11] == ~address(11));
        HXMemoryPatterns::write(HXMemoryPattern::AddressInAddress, 1, w.data(), w.size(), 0, 0);
        QCOMPARE(w[10], ~address(10));
        // Random data: about half the bits set, and another seed or another
        // place gives other words.
        const auto random = HXMemoryPattern::RandomData;
        HXMemoryPatterns::write(random, 0, w.data(), w.size(), 0, 1);
        QCOMPARE(HXMemoryPatterns::verify(random, 0, w.data(), w.size(), 0, 2, nullptr),
                 std::size_t(0));
        QCOMPARE(HXMemoryPatterns::verify(random, 0, w.data(), w.size(), 64, 1, nullptr),
                 std::size_t(0));
        int ones = 0;
        for (quint64 x : w)
            ones += std::popcount(x);
        QVERIFY(ones > 256 * 28 && ones < 256 * 36);
    }

    void faultBetweenWriteAndVerifyIsAnErrorNamingTheAddress_data()
    {
        QTest::addColumn<HXMemoryPattern>("pattern");
        QTest::addColumn<int>("pass");
        QTest::addColumn<qint64>("word");
        QTest::newRow("walking ones, pass 17")
            << HXMemoryPattern::WalkingOnes << 17 << qint64(123457);
        QTest::newRow("address in address") << HXMemoryPattern::AddressInAddress << 1 << qint64(3);
        QTest::newRow("random data, last word")
            << HXMemoryPattern::RandomData << 0 << qint64((8 << 20) / 8 - 1);
    }

    void faultBetweenWriteAndVerifyIsAnErrorNamingTheAddress()
    {
        QFETCH(HXMemoryPattern, pattern);
        QFETCH(int, pass);
        QFETCH(qint64, word);
        HXMemoryTest test;
        test.patternCheck().setChunkBytes(1 << 20);
        quint64 *flipped = nullptr;
        quint64 written = 0;
        test.patternCheck().setAfterWrite(
            [&](quint64 *words, std::size_t count, HXMemoryPattern p, int n) {
                if (p == pattern && n == pass && std::size_t(word) < count) {
                    flipped = &words[word];
                    written = *flipped;
                    *flipped ^= quint64(1) << 9;
                }
            });
        const Run run = runMemoryTest(test, 8 << 20);

        QCOMPARE(run.findings.size(), 1);
        const HXTestFinding &f = run.findings.first();
        QCOMPARE(f.type, HXDTestResultErrorType);
        QVERIFY(flipped);
        QVERIFY2(f.log.startsWith(QStringLiteral("Memory test found a fault at address %1")
                                      .arg(hex(reinterpret_cast<quintptr>(flipped)))) &&
                     f.log.contains(QStringLiteral("byte %1 of the 8.4 MB tested").arg(word * 8)) &&
                     f.log.contains(QStringLiteral("the %1 pattern wrote %2 and read back %3")
                                        .arg(HXMemoryPatterns::name(pattern), hex(written),
                                             hex(written ^ (1 << 9)))),
                 qPrintable(f.log));
    }

    void cancelledOrNothingToTestRecordsNothing()
    {
        HXMemoryTest test;
        test.patternCheck().setChunkBytes(1 << 20);
        // Cancelled during the first pass: the patterns after it never run,
        // and with nothing from EDAC there is nothing to record; nor when no
        // memory is to be tested at all.
        std::atomic_bool cancelled{false};
        QList<int> passesRun;
        test.patternCheck().setAfterWrite([&](quint64 *, std::size_t, HXMemoryPattern, int pass) {
            passesRun.append(pass);
            cancelled = true;
        });
        Run run = runMemoryTest(test, 4 << 20, &cancelled);
        QCOMPARE(passesRun, QList<int>{0});
        QVERIFY(run.findings.isEmpty());
        QVERIFY(run.said.contains(QLatin1String("interrupted")));
        run = runMemoryTest(test, 0);
        QVERIFY(run.findings.isEmpty());
        QVERIFY(run.said.contains(QLatin1String("no EDAC driver")));
    }

    void edacCounters_data()
    {
        QTest::addColumn<QString>("root");
        QTest::addColumn<QString>("type");
        QTest::addColumn<QByteArrayList>("evidence");
        QTest::newRow("corrected on one module")
            << "corrected" << HXDTestResultWarningType
            << QByteArrayList{"Memory test found 2 corrected memory errors counted by the memory "
                              "controllers (EDAC); DIMM_B2 (mc1 channel 1 slot 0): 2 corrected; "};
        QTest::newRow("uncorrected")
            << "uncorrected" << HXDTestResultErrorType
            << QByteArrayList{
                   "found 2 uncorrected memory errors", "found 5 corrected memory errors",
                   "DIMM_A1 (mc0 channel 0 slot 0): 1 uncorrected, 5 corrected",
                   "Not placed on a module by the controllers: 1 uncorrected, 0 corrected",
                   "The pattern test found no fault in 1.0 MB of free memory (locked)"};
        QTest::newRow("none") << "none" << HXDTestResultSuccessType
                              << QByteArrayList{"1.0 MB of free memory (locked) held walking ones, "
                                                "address in address and random data without a "
                                                "fault; the memory controllers count no errors"};
        QTest::newRow("older driver, rows and channels")
            << "csrow" << HXDTestResultWarningType
            << QByteArrayList{"found 3 corrected", "DIMM 1B (mc0 csrow1 channel 1): 3 corrected"};
    }

    void edacCounters()
    {
        QFETCH(QString, root);
        QFETCH(QString, type);
        QFETCH(QByteArrayList, evidence);
        qputenv("ORVEX_SYSROOT", QStringLiteral(EDAC_FIXTURES "/%1").arg(root).toUtf8());
        HXMemoryTest test;
        const Run run = runMemoryTest(test, 1 << 20);
        QCOMPARE(run.findings.size(), 1);
        QCOMPARE(run.findings.first().type, type);
        for (const QByteArray &words : evidence)
            QVERIFY2(run.findings.first().log.contains(QLatin1String(words)),
                     qPrintable(run.findings.first().log));
        // The counters alone decide when no memory is to be pattern-tested.
        const Run countersOnly = runMemoryTest(test, 0);
        QCOMPARE(countersOnly.findings.size(), 1);
        QCOMPARE(countersOnly.findings.first().type, type);
    }

    void badCounterFileIsSaid()
    {
        QTemporaryDir dir;
        const QString mc = dir.filePath(QStringLiteral("sys/devices/system/edac/mc/mc0"));
        QFile ce(mc + QStringLiteral("/ce_count"));
        QVERIFY(QDir().mkpath(mc) && ce.open(QIODevice::WriteOnly) && ce.write("garbage\n") > 0);
        ce.close();
        qputenv("ORVEX_SYSROOT", dir.path().toUtf8());
        HXMemoryTest test;
        const Run run = runMemoryTest(test, 0);
        QCOMPARE(run.findings.size(), 1);
        QCOMPARE(run.findings.first().type, HXDTestResultSuccessType);
        // The result does not claim counters it could not read.
        QCOMPARE(run.findings.first().log,
                 QStringLiteral("Memory test passed: the memory controllers' counters that could "
                                "be read count no errors (1 could not be read)"));
        QVERIFY(run.said.contains(
            QStringLiteral("could not read the EDAC counter %1/ce_count").arg(mc)));
    }
};

QTEST_GUILESS_MAIN(TestMemoryTest)
#include "tst_memorytest.moc"
