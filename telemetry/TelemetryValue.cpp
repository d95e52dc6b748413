#include "telemetry/TelemetryValue.h"

#include <array>
#include <cmath>

// Exact powers of ten up to 1e22; dividing by them keeps 123 at 1 decimal reading exactly 12.3.
const double *TelemetryValue::powersOfTen()
{
    static const std::array<double, 256> table = [] {
        std::array<double, 256> t{};
        for (int i = 0; i < 256; ++i)
            t[size_t(i)] = std::pow(10.0, i);
        return t;
    }();
    return table.data();
}

double TelemetryValue::toNumber() const
{
    switch (type) {
    case 0:
    case 1:
    case 4:
    case 8:
    case 12:
        return double(value) / powersOfTen()[decimals & 0xFF];
    case TelemetryTypes::TimeOrDate: {
        const quint32 v = quint32(value);
        if (decimals & 1) {
            const int day = int((v >> 16) & 0x1F);
            const int month = int((v >> 8) & 0xFF);
            return month + day / 100.0;
        }
        const int hours = int((v >> 16) & 0x1F);
        const int minutes = int((v >> 8) & 0xFF);
        const int seconds = int(v & 0xFF);
        return hours * 3600.0 + minutes * 60.0 + seconds;
    }
    case TelemetryTypes::GpsCoordinate: {
        const quint32 v = quint32(value);
        const double degrees = double((v >> 16) & 0xFF);
        const double minutes = double(v & 0xFFFF) / 1000.0;
        const double result = degrees + minutes / 60.0;
        return (decimals & 2) ? -result : result;
    }
    default:
        return 0.0;
    }
}
