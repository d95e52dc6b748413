#pragma once

#include <QString>
#include <QStringList>

// The six unit categories a variable can be shown in, keyed by the base unit text it arrives with.
class TelemetryUnits
{
public:
    enum Category : quint8
    {
        None = 0,
        Length,
        Speed,
        Temperature,
        Pressure,
        Volume,
        Flow,
        CategoryCount
    };

    static quint8 categoryOf(const QString &baseUnit);
    static QStringList targetUnits(quint8 category);
    // Index of a target unit name within its category, or -1.
    static int targetIndex(quint8 category, const QString &unitName);
    static QString targetName(quint8 category, quint8 target, const QString &baseUnit);
    static double convert(double value, quint8 category, quint8 target);
};
