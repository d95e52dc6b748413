#pragma once

#include "telemetry/TelemetrySimplePair.h"

#include <QColor>
#include <QString>

class LayoutJsonValue;
class LayoutJsonWriter;

// One variable plotted in a graph window, with its own Y axis and drawing style.
struct GraphItem
{
    static constexpr int kDefaultAlpha = 128;
    static constexpr double kDefaultLineWidth = 2.0;
    static constexpr double kMinLineWidth = 0.5;
    static constexpr double kMaxLineWidth = 10.0;
    // Elements of one item in the layout's "Sensors" array.
    static constexpr int kLayoutFields = 12;

    quint32 deviceId = 0;
    quint32 param = 0;
    QString unit; // shown unit; empty: the variable's own
    bool showGrid = false;
    bool locked = false;
    bool autoRange = true;
    bool fill = false;
    int fillAlpha = kDefaultAlpha;
    double lineWidth = kDefaultLineWidth;
    double minimum = 0.0;
    double maximum = 0.0;
    QColor color; // invalid until the window gives it one

    TelemetrySimplePair pair() const { return {deviceId, param}; }

    // Reads one "Sensors" element. False when it lacks the device id or the parameter number; any other
    // missing or malformed element keeps its default.
    static bool fromLayout(const LayoutJsonValue &array, GraphItem *item);
    // Writes the 12-element array.
    void toLayout(LayoutJsonWriter &writer) const;
};
