#include "HXMachinePass.h"

#include <algorithm>

namespace {

constexpr std::pair<HXTest, const char *> kKeys[] = {
    {HXTest::SMART, "smart"},
    {HXTest::SurfaceScan, "surface"},
    {HXTest::FileStructures, "files"},
    {HXTest::Memory, "memory"},
    {HXTest::VolumeStructures, "volumes"},
    {HXTest::PartitionMap, "partitions"},
    {HXTest::RAID, "raid"},
    {HXTest::Battery, "battery"},
    {HXTest::IO, "io"},
    {HXTest::POST, "post"},
};

} // namespace

HXMachinePass::HXMachinePass(Tests tests)
    : m_tests(std::move(tests))
{
    std::stable_sort(m_tests.begin(), m_tests.end(),
                     [](const auto &a, const auto &b) { return int(a->test()) < int(b->test()); });
}

QString HXMachinePass::commandLineKey(HXTest test)
{
    for (const auto &[value, key] : kKeys) {
        if (value == test)
            return QLatin1String(key);
    }
    return {};
}

std::optional<HXTest> HXMachinePass::testForCommandLineKey(const QString &key)
{
    for (const auto &[value, name] : kKeys) {
        if (key == QLatin1String(name))
            return value;
    }
    return std::nullopt;
}

bool HXMachinePass::run(const HXEngineContext &context, const Observer &observer)
{
    for (const auto &test : m_tests) {
        if (context.isCancelled())
            return false;
        if (observer.testStarted)
            observer.testStarted(test->test());
        const QList<HXTestFinding> findings = test->run(context);
        if (observer.testFinished)
            observer.testFinished(test->test(), findings);
    }
    return !context.isCancelled();
}
