#include "HXTestingPass.h"

#include "HXConstants.h"
#include "HXProductPaths.h"
#include "HXStatusReporter.h"

#include <QFileInfo>

bool HXTestingPass::failuresForced()
{
    return QFileInfo::exists(HXProductPaths::forceFailuresMarker());
}

void HXTestingPass::recordResult(HXStatusReporter *reporter, const HXTestResultRef &result,
                                 bool announceErrors)
{
    reporter->recordTestResult(result);
    if (announceErrors && result->type() == HXDTestResultErrorType)
        reporter->postErrorNotificationWithTestResult(result);
}
