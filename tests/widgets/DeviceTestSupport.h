#pragma once

#include "link/DeviceDefinitions.h"
#include "widgets/devices/DeviceParamLink.h"

#include <QtTest>

// A receiver kind for the device windows: a read-only identifier, a signed value with one decimal, a choice
// and a plain limit; firmware 1.3 or newer.
inline DeviceDefinitions testDefinitions()
{
    const QByteArray source = R"({"name": "Rx", "hardware": [5], "firmware": "1.3", "parameters": [
    {"id": 1, "address": 16, "size": 4, "min": 0, "max": 2147483647, "readOnly": true, "name": "Serial"},
    {"id": 2, "address": 24, "size": 2, "signed": true, "decimals": 1, "min": -100, "max": 500, "name": "Gain",
     "description": "Input gain"},
    {"id": 3, "address": 26, "size": 1, "min": 0, "max": 2, "name": "Mode",
     "choices": [[0, "Off"], [1, "Slow"], [2, "Fast"]]},
    {"id": 4, "address": 27, "size": 1, "min": 10, "max": 200, "name": "Limit"}],
  "pages": [{"id": 0, "title": "P", "elements": [{"kind": "Int", "pParam": 2}]}]})";
    DeviceDefinitions d;
    QString error;
    if (!d.addSource(source, QStringLiteral("rx.json"), &error))
        qFatal("%s", qPrintable(error));
    return d;
}

inline Device testDevice(quint32 identifier, const QString &name, int major = 1, int minor = 4,
                         quint16 hardware = 5)
{
    Device d;
    d.identifier = identifier;
    d.hardware = hardware;
    d.name = name;
    d.extra1 = quint8(major);
    d.extra2 = quint8(minor);
    return d;
}

// Stands in for the parameter engine: records the calls, and the test answers with the signals.
class FakeParamLink : public DeviceParamLink
{
public:
    QVector<DeviceSettings> activated;
    QVector<DevParamVector> written;
    int reads = 0;

    void setActiveDevice(const DeviceSettings &settings) override { activated.append(settings); }
    void read() override { ++reads; }
    void write(const DevParamVector &params) override { written.append(params); }
};
