#pragma once

#include "telemetry/TelemetrySensor.h"
#include "widgets/map/MapSettings.h"

#include <QDialog>

#include <array>

class QCheckBox;
class QComboBox;
class QPushButton;
class QSpinBox;

// "Map properties": the variables the map is bound to, how much of the route it shows and how the
// track is coloured. Edits a copy; the window takes settings() when the dialog is accepted.
class WidgetMapsProperties : public QDialog
{
    Q_OBJECT
public:
    // sensors may be null (then only "Not set" and the bound variables are offered).
    WidgetMapsProperties(const QVector<TelemetrySensor> *sensors, const MapSettings &settings,
                         QWidget *parent = nullptr);

    // The values chosen; what the dialog does not show is passed through unchanged.
    MapSettings settings() const;

    // Colour of stop 0 (minimum), 1 (middle) or 2 (maximum); the colour buttons end here too.
    void setStopColor(int stop, const QColor &color);
    QColor stopColor(int stop) const;

    static QString entryText(const TelemetrySensor &sensor, const TelemetryVar &var);

private:
    QComboBox *variableBox(const QString &name, const TelemetrySimplePair &bound, QWidget *parent) const;
    void chooseColor(int stop);
    void updateEnabled();

    const QVector<TelemetrySensor> *m_sensors;
    MapSettings m_settings;

    QComboBox *m_latitude = nullptr;
    QComboBox *m_longitude = nullptr;
    QCheckBox *m_restrict = nullptr;
    QSpinBox *m_seconds = nullptr;
    QCheckBox *m_customColor = nullptr;
    QComboBox *m_colorSensor = nullptr;
    std::array<QPushButton *, 3> m_colorButtons{};
    std::array<QSpinBox *, 3> m_values{};
};
