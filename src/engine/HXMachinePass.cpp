#include "HXMachinePass.h"

#include <algorithm>

HXMachinePass::HXMachinePass(Tests tests)
    : m_tests(std::move(tests))
{
    std::stable_sort(m_tests.begin(), m_tests.end(),
                     [](const auto &a, const auto &b) { return int(a->test()) < int(b->test()); });
}

QString HXMachinePass::commandLineKey(HXTest test)
{
    return HXTestInfo(test).key;
}

std::optional<HXTest> HXMachinePass::testForCommandLineKey(const QString &key)
{
    for (const HXTestDescriptor &descriptor : HXTestTable()) {
        if (key == descriptor.key)
            return descriptor.test;
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
        const auto &report = context.isCancelled() ? observer.testStopped : observer.testFinished;
        if (report)
            report(test->test(), findings);
    }
    return !context.isCancelled();
}
