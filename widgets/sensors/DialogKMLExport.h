#pragma once

#include "telemetry/TelemetrySensor.h"

#include <QDialog>

class Prompter;
class QComboBox;
class QDialogButtonBox;

// "KML Export Properties": which variables give latitude, longitude and altitude of the exported
// track. OK is enabled only once latitude and longitude are chosen; altitude is optional.
class DialogKMLExport : public QDialog
{
    Q_OBJECT
public:
    explicit DialogKMLExport(const QVector<TelemetrySensor> *sensors, QWidget *parent = nullptr);

    QComboBox *latitudeCombo() const { return m_comboLat; }
    QComboBox *longitudeCombo() const { return m_comboLon; }
    QComboBox *altitudeCombo() const { return m_comboAlt; }
    QDialogButtonBox *buttons() const { return m_buttons; }

    // The chosen variables; null when the combo is empty.
    const TelemetryVar *latitude() const;
    const TelemetryVar *longitude() const;
    const TelemetryVar *altitude() const;

    // "GPS modul 1. Latitude\t[°]": device name, the param right-aligned in 2, label and unit.
    static QString itemText(const TelemetrySensor &sensor, const TelemetryVar &var);

    // The whole export from the sensor list: this dialog, then the file name, then the file. Tells
    // the user through prompter (null: real dialogs) when nothing could be written. True when a file
    // was written.
    static bool exportTrack(const QVector<TelemetrySensor> *sensors, QWidget *parent,
                            Prompter *prompter = nullptr);

public slots:
    void checkEnabled();

private:
    const TelemetryVar *selected(const QComboBox *combo) const;

    const QVector<TelemetrySensor> *m_sensors = nullptr;
    QComboBox *m_comboLat = nullptr;
    QComboBox *m_comboLon = nullptr;
    QComboBox *m_comboAlt = nullptr;
    QDialogButtonBox *m_buttons = nullptr;
};
