#pragma once

#include "telemetry/TelemetryValue.h"

// Raw samples for tests, in the form a device or a log delivers them.
inline TelemetryValue raw(quint32 type, quint32 decimals, qint32 value, qint32 ts = 0)
{
    TelemetryValue v;
    v.type = type;
    v.decimals = decimals;
    v.value = value;
    v.timestamp = ts;
    return v;
}

// A plain number (type 4) with the given decimals.
inline TelemetryValue sample(qint32 ts, qint32 value, quint32 decimals = 0)
{
    return raw(4, decimals, value, ts);
}
