// pass_bench [ROUNDS]: the eight tests that do not read a whole disk or lock
// memory (SMART, file structures, volume structures, partition map, RAID,
// battery, disk I/O errors, POST), run as the worker runs them on this
// machine, each timed; the pass should take under a second.
#include "HXBlockDevices.h"
#include "HXMachinePass.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <map>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int rounds = argc > 1 ? std::max(1, atoi(argv[1])) : 5;
    const QList<HXTest> eight{HXTest::SMART,
                              HXTest::FileStructures,
                              HXTest::VolumeStructures,
                              HXTest::PartitionMap,
                              HXTest::RAID,
                              HXTest::Battery,
                              HXTest::IO,
                              HXTest::POST};
    QTemporaryDir state;
    std::map<int, QList<double>> perTest;
    QList<double> totals;
    QList<double> setups;
    for (int round = 0; round < rounds; ++round) {
        QElapsedTimer clock;
        clock.start();
        HXEngineContext context;
        context.disks = HXBlockDevices::machineDisks();
        for (const HXBlockDisk &disk : std::as_const(context.disks))
            context.volumes += HXBlockDevices::volumesOf(disk);
        context.stateFolder = state.path();
        setups.append(clock.nsecsElapsed() / 1e6);
        QElapsedTimer testClock;
        HXMachinePass pass(HXMachinePass::machineTests(eight));
        HXMachinePass::Observer observer;
        observer.testStarted = [&](HXTest) {
            testClock.start();
        };
        observer.testFinished = [&](HXTest test, const QList<HXTestFinding> &findings) {
            perTest[int(test)].append(testClock.nsecsElapsed() / 1e6);
            if (round == 0)
                std::printf("  %-24s %lld finding(s)\n", qPrintable(HXTestInfo(test).testName),
                            qlonglong(findings.size()));
        };
        pass.run(context, observer);
        totals.append(clock.nsecsElapsed() / 1e6);
    }
    auto median = [](QList<double> v) {
        std::sort(v.begin(), v.end());
        return v[v.size() / 2];
    };
    std::printf("\n%d rounds on this machine (%lld disk(s)), median and worst in ms:\n", rounds,
                qlonglong(HXBlockDevices::machineDisks().size()));
    std::printf("  %-24s %8.1f %8.1f\n", "finding disks, volumes", median(setups),
                *std::max_element(setups.begin(), setups.end()));
    for (const auto &[test, times] : perTest)
        std::printf("  %-24s %8.1f %8.1f\n", qPrintable(HXTestInfo(HXTest(test)).testName),
                    median(times), *std::max_element(times.begin(), times.end()));
    std::printf("  %-24s %8.1f %8.1f   (target: under 1000)\n", "whole pass", median(totals),
                *std::max_element(totals.begin(), totals.end()));
    return 0;
}
