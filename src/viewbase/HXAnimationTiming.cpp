#include "HXAnimationTiming.h"

#include <algorithm>
#include <atomic>
#include <cmath>

namespace {
std::atomic<double> g_scale{1.0};
}

double HXAnimationTiming::scale()
{
    return g_scale.load();
}

void HXAnimationTiming::setScale(double scale)
{
    g_scale.store(std::max(scale, 0.0));
}

int HXAnimationTiming::milliseconds(double nominalMilliseconds)
{
    // Qt's animations need at least a millisecond to run at all.
    return std::max(1, int(std::lround(nominalMilliseconds * scale())));
}

long long HXAnimationTiming::microseconds(long long nominalMicroseconds)
{
    return std::llround(double(nominalMicroseconds) * scale());
}
