#include "telemetry/TelemetryUnits.h"

#include <array>

namespace {
struct CategoryInfo
{
    const char *base;
    std::array<const char *, 5> names;
    std::array<double, 5> factors;
    int count;
};

// Index 0 is always the base unit itself.
const std::array<CategoryInfo, 7> kCategories = {{
    {"", {}, {}, 0},
    {"m", {"m", "km", "ft.", "yd.", "mi."}, {1, 0.001, 3.28084, 1.09361, 0.000621}, 5},
    {"m/s", {"m/s", "km/h", "ft/s", "mph", "kt."}, {1, 3.6, 3.28084, 2.23694, 1.94384}, 5},
    {"\u00B0C", {"\u00B0C", "\u00B0F"}, {1, 1}, 2},
    {"kPa", {"kPa", "hPa", "psi", "atm", "b"}, {1, 10, 0.145038, 0.009869, 0.01}, 5},
    {"ml", {"ml", "l", "hl", "floz", "gal"}, {1, 0.001, 0.00001, 0.033814, 0.000264}, 5},
    {"mlM", {"ml/m", "l/m", "oz/m", "gpm"}, {1, 0.001, 0.03381, 0.000264}, 4},
}};
} // namespace

quint8 TelemetryUnits::categoryOf(const QString &baseUnit)
{
    for (quint8 c = Length; c < CategoryCount; ++c) {
        if (baseUnit == QString::fromUtf8(kCategories[c].base))
            return c;
    }
    return None;
}

QStringList TelemetryUnits::targetUnits(quint8 category)
{
    QStringList list;
    if (category == None || category >= CategoryCount)
        return list;
    const CategoryInfo &info = kCategories[category];
    for (int i = 0; i < info.count; ++i)
        list << QString::fromUtf8(info.names[size_t(i)]);
    return list;
}

int TelemetryUnits::targetIndex(quint8 category, const QString &unitName)
{
    return targetUnits(category).indexOf(unitName);
}

QString TelemetryUnits::targetName(quint8 category, quint8 target, const QString &baseUnit)
{
    const QStringList names = targetUnits(category);
    return target < names.size() ? names.at(target) : baseUnit;
}

double TelemetryUnits::convert(double value, quint8 category, quint8 target)
{
    if (category == None || category >= CategoryCount || target == 0)
        return value;
    if (category == Temperature)
        return target == 1 ? value * 9.0 / 5.0 + 32.0 : value;
    const CategoryInfo &info = kCategories[category];
    if (target >= info.count)
        return value;
    return value * info.factors[target];
}
