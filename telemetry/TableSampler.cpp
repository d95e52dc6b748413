#include "telemetry/TableSampler.h"

#include "telemetry/TelemetryVar.h"

#include <algorithm>
#include <limits>

int TableSampler::modeFor(bool smooth, bool valid)
{
    if (smooth)
        return TelemetryVar::Linear;
    return valid ? TelemetryVar::HoldWithGapLimit : TelemetryVar::Hold;
}

QString TableSampler::headerText(const TelemetryVar &var)
{
    return tr("%1 [%2]").arg(var.label(), var.displayUnit());
}

qint64 TableSampler::rowsFor(const TelemetryVar &var, int periodMs)
{
    if (var.values().isEmpty() || periodMs <= 0)
        return 0;
    const qint64 last = var.values().constLast().timestamp;
    // Up to the first step at or after the last sample: a last sample between two steps still gets the
    // row that holds it, instead of the final part of the flight falling off the table.
    return last < 0 ? 0 : (last + periodMs - 1) / periodMs + 1;
}

namespace {
double numberAt(const TelemetryVar &var, int i, int *cachedIndex, double *cached)
{
    if (*cachedIndex != i) {
        *cached = var.numberAt(i);
        *cachedIndex = i;
    }
    return *cached;
}
} // namespace

// The value-at-time rules of TelemetryVar::valueAtTime, evaluated at an exact millisecond: row times
// such as 1001 ms have no exact double in seconds, and a time a hair early would pick the sample before
// one that lies exactly on the row.
double TableSampler::valueAt(const TelemetryVar &var, qint64 ms, int mode, Cursor *cursor)
{
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    const QVector<TelemetryValue> &values = var.values();
    const int n = values.size();
    if (n == 0)
        return nan;
    if (ms >= values.constLast().timestamp)
        return numberAt(var, n - 1, &cursor->numberIndex, &cursor->number);
    if (ms < 0)
        return numberAt(var, 0, &cursor->numberIndex, &cursor->number);

    const TelemetryValue *v = values.constData();
    const auto later = [](qint64 t, const TelemetryValue &x) { return t < x.timestamp; };
    int i = cursor->index;
    if (i >= n || (i >= 0 && v[i].timestamp > ms)) {
        // Moved backwards: search afresh.
        i = int(std::upper_bound(v, v + n, ms, later) - v) - 1;
    } else {
        // Forward: usually a few steps; a long jump (a sparse variable, a long period) searches.
        int steps = 0;
        while (i + 1 < n && v[i + 1].timestamp <= ms) {
            if (++steps > 32) {
                i = int(std::upper_bound(v + i + 1, v + n, ms, later) - v) - 1;
                break;
            }
            ++i;
        }
    }
    cursor->index = i;
    // Before the first sample (a later neighbour always exists here: ms lies before the last sample).
    if (i < 0)
        return nan;

    const TelemetryValue &a = v[i];
    const TelemetryValue &b = v[i + 1];
    switch (mode) {
    case TelemetryVar::Linear: {
        const double x = numberAt(var, i, &cursor->numberIndex, &cursor->number);
        const double y = numberAt(var, i + 1, &cursor->nextIndex, &cursor->next);
        return x + (y - x) * double(ms - a.timestamp) / double(qint64(b.timestamp) - a.timestamp);
    }
    case TelemetryVar::Hold:
        return numberAt(var, i, &cursor->numberIndex, &cursor->number);
    case TelemetryVar::HoldWithGapLimit:
        if (qint64(b.timestamp) - a.timestamp < TelemetryVar::kGapLimitMs || ms == a.timestamp)
            return numberAt(var, i, &cursor->numberIndex, &cursor->number);
        return nan;
    default:
        return nan;
    }
}

TableSampler::TableSampler(int periodMs, int mode)
    : m_periodMs(std::clamp(periodMs, kMinPeriodMs, kMaxPeriodMs)), m_mode(mode)
{
}

void TableSampler::addColumn(const TelemetryVar *var, const QString &header)
{
    Column column;
    column.var = var;
    column.header = header;
    column.rows = var ? rowsFor(*var, m_periodMs) : 0;
    m_rows = std::max(m_rows, column.rows);
    m_columns.append(column);
}

void TableSampler::addColumn(const TelemetryVar &var)
{
    addColumn(&var, headerText(var));
}

void TableSampler::readRow(qint64 row, double *out)
{
    const qint64 ms = rowTimeMs(row);
    for (Column &column : m_columns) {
        // A variable that ended earlier than the others leaves its cells empty.
        *out++ = row < column.rows ? valueAt(*column.var, ms, m_mode, &column.cursor)
                                   : std::numeric_limits<double>::quiet_NaN();
    }
}
