#pragma once

#include <QString>

// How a telemetry quantity reads as text, the same wherever the program shows or prints it.
namespace TelemetryFormat {
enum class DurationStyle
{
    Precise, // "h:mm:ss.zzz": as many hour digits as needed (a log's length in vexo-log)
    Clock,   // "hh:mm:ss": at least two hour digits, the milliseconds dropped (a running recording)
};

// A length of time in milliseconds; hours run on past 24.
QString duration(qint64 ms, DurationStyle style = DurationStyle::Precise);
} // namespace TelemetryFormat
