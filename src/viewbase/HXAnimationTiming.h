#pragma once

// One process-wide time scale for every animation and hand-over wait, so
// that tests keep the order of the steps while cutting the waits: 1.0 in the
// product, a small value in tests.
class HXAnimationTiming
{
public:
    static double scale();
    static void setScale(double scale);
    // A nominal duration, in milliseconds, as it runs now.
    static int milliseconds(double nominalMilliseconds);
    static long long microseconds(long long nominalMicroseconds);
};
