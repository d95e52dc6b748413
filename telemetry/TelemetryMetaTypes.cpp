#include "telemetry/TelemetryMetaTypes.h"

#include "telemetry/TelemetryData.h"
#include "telemetry/TelemetryDataPackage.h"

void registerTelemetryMetaTypes()
{
    static const bool done = [] {
        qRegisterMetaType<TelemetryValue>("TelemetryValue");
        qRegisterMetaType<TelemetryVar>("TelemetryVar");
        qRegisterMetaType<const TelemetryVar *>("const TelemetryVar*");
        qRegisterMetaType<TelemetrySensor>("TelemetrySensor");
        qRegisterMetaType<SensorVector>("SensorVector");
        qRegisterMetaType<const QVector<TelemetrySensor> *>("const QVector<TelemetrySensor>*");
        qRegisterMetaType<TelemetrySimplePair>("TelemetrySimplePair");
        qRegisterMetaType<TelemetryMessage>("TelemetryMessage");
        qRegisterMetaType<TelemetryDataPackage>("TelemetryDataPackage");
        qRegisterMetaType<TelemetrySample>("TelemetrySample");
        qRegisterMetaType<QVector<TelemetrySample>>("QVector<TelemetrySample>");
        return true;
    }();
    Q_UNUSED(done);
}
