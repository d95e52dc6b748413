#include "link/TelemetryDecoder.h"

// Placeholder until the decoder lands.
TelemetryDecoder::TelemetryDecoder(TelemetryData *store, SensorTable *sensors, QObject *parent)
    : QObject(parent), m_store(store), m_sensors(sensors)
{
}
void TelemetryDecoder::setSessionStart(qint64 epochMs) { m_sessionStart = epochMs; }
void TelemetryDecoder::setBatchInterval(int ms) { m_flushTimer.setInterval(ms); }
void TelemetryDecoder::flush() {}
void TelemetryDecoder::decode(const QByteArray &) { ++m_records; }
