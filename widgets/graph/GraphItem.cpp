#include "widgets/graph/GraphItem.h"

#include "widgets/layout/LayoutJsonValue.h"
#include "widgets/layout/LayoutJsonWriter.h"

#include <QtMath>

#include <cmath>

namespace {
enum Field
{
    DeviceId = 0,
    Param,
    AutoRange,
    Locked,
    ShowGrid,
    Minimum,
    Maximum,
    Color,
    Unit,
    Fill,
    FillAlpha,
    LineWidth
};

bool number(const LayoutJsonValue &array, int index, double *out)
{
    if (index >= array.size())
        return false;
    const LayoutJsonValue &v = array.at(index);
    if (v.isBool()) {
        *out = v.toBool() ? 1 : 0;
        return true;
    }
    if (!v.isNumber() || !std::isfinite(v.toDouble()))
        return false;
    *out = v.toDouble();
    return true;
}

// Ids are unsigned 32-bit; older writers stored them as signed integers.
quint32 toId(double value)
{
    if (value < 0)
        return quint32(qint32(qBound(-2147483648.0, value, -1.0)));
    return quint32(qint64(qMin(value, 4294967295.0)));
}
} // namespace

bool GraphItem::fromLayout(const LayoutJsonValue &array, GraphItem *item)
{
    double id = 0;
    double param = 0;
    if (!array.isArray() || !number(array, DeviceId, &id) || !number(array, Param, &param))
        return false;
    GraphItem result;
    result.deviceId = toId(id);
    result.param = toId(param);
    double v = 0;
    if (number(array, AutoRange, &v))
        result.autoRange = v != 0;
    if (number(array, Locked, &v))
        result.locked = v != 0;
    if (number(array, ShowGrid, &v))
        result.showGrid = v != 0;
    if (number(array, Minimum, &v))
        result.minimum = v / 100.0;
    if (number(array, Maximum, &v))
        result.maximum = v / 100.0;
    // Colours written with their alpha byte arrive as large or, signed, negative numbers.
    if (number(array, Color, &v) && v >= -2147483648.0 && v <= 4294967295.0 && v == std::floor(v))
        result.color = QColor::fromRgb((v < 0 ? quint32(qint32(v)) : quint32(qint64(v))) | 0xFF000000u);
    if (Unit < array.size() && array.at(Unit).isString())
        result.unit = array.at(Unit).toString();
    if (number(array, Fill, &v))
        result.fill = v != 0;
    if (number(array, FillAlpha, &v))
        result.fillAlpha = qBound(0, qRound(v), 255);
    if (number(array, LineWidth, &v))
        result.lineWidth = qBound(kMinLineWidth, v / 10.0, kMaxLineWidth);
    *item = result;
    return true;
}

void GraphItem::toLayout(LayoutJsonWriter &writer) const
{
    writer.beginArray();
    writer.writeInt(qint64(deviceId));
    writer.writeInt(qint64(param));
    writer.writeInt(autoRange ? 1 : 0);
    writer.writeInt(locked ? 1 : 0);
    writer.writeInt(showGrid ? 1 : 0);
    writer.writeInt(qRound64(minimum * 100.0));
    writer.writeInt(qRound64(maximum * 100.0));
    writer.writeInt(color.isValid() ? qint64(color.rgb() & 0xFFFFFFu) : 0);
    writer.writeString(unit);
    writer.writeInt(fill ? 1 : 0);
    writer.writeInt(fillAlpha);
    writer.writeInt(qRound64(lineWidth * 10.0));
    writer.endArray();
}
