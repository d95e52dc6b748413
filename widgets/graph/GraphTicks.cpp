#include "widgets/graph/GraphTicks.h"

#include <QtMath>

#include <array>
#include <cmath>

double GraphTicks::niceStep(double span, int count)
{
    if (!(span > 0) || !std::isfinite(span) || count < 1)
        return 1.0;
    const double raw = span / count;
    const double power = std::pow(10.0, std::floor(std::log10(raw)));
    const double fraction = raw / power;
    const double nice = fraction <= 1.0 ? 1.0 : fraction <= 2.0 ? 2.0 : fraction <= 5.0 ? 5.0 : 10.0;
    return nice * power;
}

QVector<double> GraphTicks::values(double low, double high, double step)
{
    QVector<double> ticks;
    if (!(step > 0) || !std::isfinite(low) || !std::isfinite(high) || high < low)
        return ticks;
    const double first = std::ceil(low / step - 1e-9);
    const double last = std::floor(high / step + 1e-9);
    if (last - first > 1000)
        return ticks;
    for (double k = first; k <= last; k += 1.0) {
        const double v = k * step;
        ticks.append(std::abs(v) < step * 1e-9 ? 0.0 : v); // no "-0"
    }
    return ticks;
}

int GraphTicks::decimalsFor(double step)
{
    if (!(step > 0) || step >= 1.0)
        return 0;
    return qBound(0, int(std::ceil(-std::log10(step) - 1e-9)), 9);
}

void GraphTicks::autoRange(double low, double high, int count, double *outLow, double *outHigh)
{
    if (!std::isfinite(low) || !std::isfinite(high)) {
        *outLow = 0.0;
        *outHigh = 1.0;
        return;
    }
    if (high - low <= std::abs(high) * 1e-12) {
        const double pad = low == 0.0 ? 1.0 : std::abs(low) * 0.1;
        low -= pad;
        high += pad;
    }
    const double step = niceStep(high - low, count);
    *outLow = std::floor(low / step + 1e-9) * step;
    *outHigh = std::ceil(high / step - 1e-9) * step;
    if (*outHigh <= *outLow)
        *outHigh = *outLow + step;
}

QString GraphTicks::valueText(double value, int decimals)
{
    if (!std::isfinite(value))
        return QStringLiteral("-");
    return QString::number(value, 'f', decimals);
}

qint64 GraphTicks::timeStep(qint64 span, int count)
{
    static const std::array<qint64, 31> steps = {
        1,        2,        5,        10,        20,        50,        100,       200,
        500,      1000,     2000,     5000,      10000,     15000,     30000,     60000,
        120000,   300000,   600000,   900000,    1800000,   3600000,   7200000,   10800000,
        21600000, 43200000, 86400000, 172800000, 432000000, 864000000, 1728000000};
    if (count < 1)
        count = 1;
    for (qint64 s : steps) {
        if (span / s <= count)
            return s;
    }
    return steps.back();
}

QString GraphTicks::timeText(qint64 ms, qint64 step)
{
    const QString sign = ms < 0 ? QStringLiteral("-") : QString();
    const qint64 a = ms < 0 ? -ms : ms;
    const qint64 hours = a / 3600000;
    const qint64 minutes = (a / 60000) % 60;
    const qint64 seconds = (a / 1000) % 60;
    const qint64 millis = a % 1000;
    QString text =
        hours > 0 ? QStringLiteral("%1%2:%3:%4")
                        .arg(sign)
                        .arg(hours)
                        .arg(minutes, 2, 10, QLatin1Char('0'))
                        .arg(seconds, 2, 10, QLatin1Char('0'))
                  : QStringLiteral("%1%2:%3").arg(sign).arg(minutes).arg(seconds, 2, 10, QLatin1Char('0'));
    const int decimals = step >= 1000 ? 0 : step >= 100 ? 1 : step >= 10 ? 2 : 3;
    if (decimals > 0)
        text += QStringLiteral(".%1").arg(millis, 3, 10, QLatin1Char('0')).left(decimals + 1);
    return text;
}

QString GraphTicks::cursorTimeText(qint64 ms)
{
    return timeText(ms, 1);
}
