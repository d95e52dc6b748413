#include "link/DeviceSettings.h"

#include "link/DeviceDefinitions.h"

#include <QCoreApplication>

#include <algorithm>
#include <cmath>

qint64 DevParam::raw() const
{
    if (isSigned || width >= 8)
        return value;
    const quint64 mask = width >= 4 ? 0xFFFFFFFFull : (1ull << (8 * width)) - 1;
    return qint64(quint64(quint32(value)) & mask);
}

double DevParam::floatValue() const
{
    return double(raw()) / std::pow(10.0, decimals);
}

QString DevParam::refusal(qint64 raw) const
{
    if (readOnly)
        return QCoreApplication::translate("DevParam", "it is read-only");
    if (raw < min || raw > max) {
        const double scale = std::pow(10.0, decimals);
        return QCoreApplication::translate("DevParam", "%1 is outside %2 .. %3")
            .arg(QString::number(double(raw) / scale, 'f', decimals))
            .arg(QString::number(double(min) / scale, 'f', decimals))
            .arg(QString::number(double(max) / scale, 'f', decimals));
    }
    return QString();
}

qint32 DevParam::fromBytes(const quint8 *bytes) const
{
    if (width != 1 && width != 2 && width != 4)
        return 0;
    quint32 raw = 0;
    for (int b = width - 1; b >= 0; --b)
        raw = (raw << 8) | bytes[b];
    if (isSigned && width < 4 && (raw & (1u << (8 * width - 1))))
        raw |= ~0u << (8 * width);
    return qint32(raw);
}

int DeviceSettings::indexOf(quint16 address) const
{
    for (int i = 0; i < params.size(); ++i) {
        if (params.at(i).address == address)
            return i;
    }
    return -1;
}

int DeviceSettings::indexOfId(quint16 id) const
{
    for (int i = 0; i < params.size(); ++i) {
        if (params.at(i).id == id)
            return i;
    }
    return -1;
}

DeviceSettings DeviceSettings::fromDefinition(quint32 deviceId, const DeviceDefinition &definition)
{
    DeviceSettings s;
    s.deviceId = deviceId;
    for (const DeviceParameter &d : definition.parameters) {
        DevParam p;
        p.id = quint16(d.id);
        p.address = d.address;
        p.width = quint8(d.size);
        p.isSigned = d.isSigned;
        p.readOnly = d.readOnly;
        p.decimals = quint8(d.decimals);
        p.min = d.min;
        p.max = d.max;
        p.value = qint32(d.defaultValue);
        s.params.append(p);
    }
    std::sort(s.params.begin(), s.params.end(),
              [](const DevParam &a, const DevParam &b) { return a.address < b.address; });
    return s;
}

int DeviceSettings::loadedPercent() const
{
    if (params.isEmpty())
        return 100;
    const auto loaded =
        std::count_if(params.begin(), params.end(), [](const DevParam &p) { return p.loaded; });
    return int(loaded * 100 / params.size());
}
