#pragma once

#include <QString>
#include <QVector>

// Where the ticks of a graph's axes go and how their labels read. No GUI.
class GraphTicks
{
public:
    // A step of 1, 2 or 5 times a power of ten giving about count intervals over span.
    static double niceStep(double span, int count);
    // Multiples of step within [low, high].
    static QVector<double> values(double low, double high, double step);
    // Decimals that tell neighbouring ticks of this step apart.
    static int decimalsFor(double step);
    // The automatic range of [low, high]: widened to whole steps, a flat line centred in a range of its own.
    static void autoRange(double low, double high, int count, double *outLow, double *outHigh);
    static QString valueText(double value, int decimals);

    // Time steps in milliseconds, from 1 ms to days, chosen from the steps a clock reads well in.
    static qint64 timeStep(qint64 span, int count);
    // "m:ss", "h:mm:ss", with as many decimals of the second as the step needs; negative times get "-".
    static QString timeText(qint64 ms, qint64 step);
    // The time under the cursor: always to the millisecond.
    static QString cursorTimeText(qint64 ms);
};
