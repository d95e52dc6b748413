#include "widgets/layout/SensorDragData.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QMimeData>

#include <cmath>

namespace {
// JSON numbers are doubles: only whole, non-negative values that fit 32 bits name a variable.
bool toId(const QJsonValue &v, quint32 *out)
{
    if (!v.isDouble())
        return false;
    const double d = v.toDouble();
    if (d < 0 || d > 4294967295.0 || std::floor(d) != d)
        return false;
    *out = quint32(d);
    return true;
}
} // namespace

QMimeData *SensorDragData::forVariable(const TelemetrySimplePair &variable)
{
    auto *data = new QMimeData;
    const QByteArray text = variable.toJsonText().toUtf8();
    // The same text under the application type: small, readable in a debugger, and parsed by one
    // function for all three types.
    data->setData(sensorMimeType(), text);
    data->setData(jsonMimeType(), text);
    data->setText(QString::fromUtf8(text));
    return data;
}

QMimeData *SensorDragData::forGpsDevice(quint32 deviceId)
{
    auto *data = new QMimeData;
    data->setData(gpsMimeType(), TelemetrySimplePair(deviceId, 0).toJsonText().toUtf8());
    return data;
}

bool SensorDragData::variable(const QMimeData *data, TelemetrySimplePair *variable)
{
    if (!data)
        return false;
    for (const QString &type : {sensorMimeType(), jsonMimeType()}) {
        if (data->hasFormat(type))
            return parseJsonText(data->data(type), variable);
    }
    return false;
}

bool SensorDragData::gpsDevice(const QMimeData *data, quint32 *deviceId)
{
    TelemetrySimplePair pair;
    if (!data || !data->hasFormat(gpsMimeType()) || !parseJsonText(data->data(gpsMimeType()), &pair))
        return false;
    *deviceId = pair.deviceId;
    return true;
}

bool SensorDragData::parseJsonText(const QByteArray &text, TelemetrySimplePair *pair)
{
    const QJsonDocument doc = QJsonDocument::fromJson(text);
    if (!doc.isObject())
        return false;
    const QJsonObject o = doc.object();
    TelemetrySimplePair p;
    if (!toId(o.value(QLatin1String("Sensor")), &p.deviceId) ||
        !toId(o.value(QLatin1String("Param")), &p.param))
        return false;
    *pair = p;
    return true;
}
