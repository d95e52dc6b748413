#pragma once

#include <QMetaType>
#include <QtGlobal>

// One raw sample exactly as the device or the log delivered it; turned into a number only when read.
struct TelemetryValue
{
    quint32 type = 0;
    quint32 decimals = 0; // low byte: decimal places, or flag bits for types 5 and 9
    qint32 value = 0;
    qint32 timestamp = 0; // ms from the start of the recording

    // The number by the type rules; not unit-converted.
    double toNumber() const;
    // The divisors of the plain numeric types, by decimal places (the low byte of decimals), for loops
    // that convert many values of one kind and must give exactly what toNumber() gives.
    static const double *powersOfTen();
};
Q_DECLARE_TYPEINFO(TelemetryValue, Q_PRIMITIVE_TYPE);
Q_DECLARE_METATYPE(TelemetryValue)
static_assert(sizeof(TelemetryValue) == 16, "a sample must stay 16 bytes: memory per sample is a budget");

namespace TelemetryTypes {
constexpr quint32 TimeOrDate = 5;
constexpr quint32 GpsCoordinate = 9;
constexpr quint32 Text = 16;
} // namespace TelemetryTypes
