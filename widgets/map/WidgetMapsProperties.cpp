#include "widgets/map/WidgetMapsProperties.h"

#include <QCheckBox>
#include <QColorDialog>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include <cmath>

namespace {
TelemetrySimplePair pairAt(const QComboBox *combo, int index)
{
    return combo->itemData(index).value<TelemetrySimplePair>();
}

TelemetrySimplePair selectedPair(const QComboBox *combo)
{
    return pairAt(combo, combo->currentIndex());
}
} // namespace

WidgetMapsProperties::WidgetMapsProperties(const QVector<TelemetrySensor> *sensors,
                                           const MapSettings &settings, QWidget *parent)
    : QDialog(parent), m_sensors(sensors), m_settings(settings)
{
    setWindowTitle(tr("Map properties"));

    auto *position = new QGroupBox(tr("Position sensor"), this);
    auto *positionForm = new QFormLayout(position);
    m_latitude = variableBox(QStringLiteral("latitude"), settings.latitude, position);
    m_latitude->setMinimumWidth(80);
    positionForm->addRow(tr("Latitude"), m_latitude);
    m_longitude = variableBox(QStringLiteral("longitude"), settings.longitude, position);
    m_longitude->setMinimumWidth(80);
    positionForm->addRow(tr("Longitude"), m_longitude);

    m_restrict = new QCheckBox(tr("Restrict displayed route"), this);
    m_restrict->setObjectName(QStringLiteral("restrictRoute"));
    m_restrict->setChecked(settings.restrictRoute);
    m_seconds = new QSpinBox(this);
    m_seconds->setObjectName(QStringLiteral("restrictedSeconds"));
    m_seconds->setSuffix(tr("s"));
    m_seconds->setRange(0, MapSettings::kMaxRestrictedSeconds);
    m_seconds->setValue(settings.restrictedSeconds);
    auto *routeForm = new QFormLayout;
    routeForm->addRow(m_restrict);
    routeForm->addRow(tr("Display only last"), m_seconds);

    auto *line = new QGroupBox(tr("Line color"), this);
    auto *lineLayout = new QVBoxLayout(line);
    m_customColor = new QCheckBox(tr("Change line color"), line);
    m_customColor->setObjectName(QStringLiteral("customLineColor"));
    m_customColor->setChecked(settings.customLineColor);
    lineLayout->addWidget(m_customColor);
    auto *sensorForm = new QFormLayout;
    m_colorSensor = variableBox(QStringLiteral("colorSensor"), settings.colorSensor, line);
    sensorForm->addRow(tr("Sensor"), m_colorSensor);
    lineLayout->addLayout(sensorForm);

    const QString tips[3] = {tr("Minimum"), tr("Middle"), tr("Maximum")};
    auto *stops = new QGridLayout;
    for (int i = 0; i < 3; ++i) {
        auto *button = new QPushButton(line);
        button->setObjectName(QStringLiteral("stopColor%1").arg(i));
        button->setMinimumHeight(20);
        button->setToolTip(tips[i]);
        m_colorButtons[size_t(i)] = button;
        auto *value = new QSpinBox(line);
        value->setObjectName(QStringLiteral("stopValue%1").arg(i));
        value->setMinimumWidth(100);
        value->setRange(-MapSettings::kStopValueLimit, MapSettings::kStopValueLimit);
        // The layout keeps whole numbers.
        const double stored = settings.stops.values[size_t(i)];
        const double limit = MapSettings::kStopValueLimit;
        value->setValue(std::isfinite(stored) ? int(std::lround(qBound(-limit, stored, limit))) : 0);
        value->setToolTip(tips[i]);
        m_values[size_t(i)] = value;
        stops->addWidget(new QLabel(tr("Color"), line), i, 0);
        stops->addWidget(button, i, 1);
        stops->addWidget(new QLabel(tr("Value"), line), i, 2);
        stops->addWidget(value, i, 3);
        setStopColor(i, settings.stops.colors[size_t(i)]);
        connect(button, &QPushButton::clicked, this, [this, i] { chooseColor(i); });
    }
    stops->setColumnStretch(1, 1);
    lineLayout->addLayout(stops);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(position);
    layout->addLayout(routeForm);
    layout->addWidget(line);
    layout->addWidget(buttons);

    connect(m_restrict, &QCheckBox::toggled, this, &WidgetMapsProperties::updateEnabled);
    connect(m_customColor, &QCheckBox::toggled, this, &WidgetMapsProperties::updateEnabled);
    updateEnabled();
}

QString WidgetMapsProperties::entryText(const TelemetrySensor &sensor, const TelemetryVar &var)
{
    // One multi-argument arg(): a sensor name holding "%2" must not take the variable's place.
    return tr("%1: %2").arg(sensor.name(), var.label());
}

QComboBox *WidgetMapsProperties::variableBox(const QString &name, const TelemetrySimplePair &bound,
                                             QWidget *parent) const
{
    auto *combo = new QComboBox(parent);
    combo->setObjectName(name);
    combo->addItem(tr("Not set"), QVariant::fromValue(TelemetrySimplePair()));
    if (m_sensors) {
        for (const TelemetrySensor &sensor : *m_sensors) {
            for (const TelemetryVar &var : sensor.vars())
                combo->addItem(entryText(sensor, var), QVariant::fromValue(var.pair()));
        }
    }
    if (!MapSettings::isSet(bound))
        return combo;
    int index = combo->count() - 1;
    while (index > 0 && pairAt(combo, index) != bound)
        --index;
    if (index == 0) {
        // A layout opened with another log keeps its binding unless the user picks another.
        combo->addItem(tr("%1:%2 (not in this log)").arg(bound.deviceId).arg(bound.param),
                       QVariant::fromValue(bound));
        index = combo->count() - 1;
    }
    combo->setCurrentIndex(index);
    return combo;
}

MapSettings WidgetMapsProperties::settings() const
{
    MapSettings s = m_settings;
    s.latitude = selectedPair(m_latitude);
    s.longitude = selectedPair(m_longitude);
    s.restrictRoute = m_restrict->isChecked();
    s.restrictedSeconds = m_seconds->value();
    s.customLineColor = m_customColor->isChecked();
    s.colorSensor = selectedPair(m_colorSensor);
    for (size_t i = 0; i < 3; ++i)
        s.stops.values[i] = m_values[i]->value();
    return s;
}

void WidgetMapsProperties::setStopColor(int stop, const QColor &color)
{
    if (stop < 0 || stop > 2 || !color.isValid())
        return;
    m_settings.stops.colors[size_t(stop)] = color;
    m_colorButtons[size_t(stop)]->setStyleSheet(
        QStringLiteral("background-color: %1; border-style: none;").arg(color.name()));
}

QColor WidgetMapsProperties::stopColor(int stop) const
{
    return stop < 0 || stop > 2 ? QColor() : m_settings.stops.colors[size_t(stop)];
}

void WidgetMapsProperties::chooseColor(int stop)
{
    // An invalid colour means the colour dialog was cancelled: the stop keeps its colour.
    setStopColor(stop, QColorDialog::getColor(stopColor(stop), this, tr("Color")));
}

void WidgetMapsProperties::updateEnabled()
{
    m_seconds->setEnabled(m_restrict->isChecked());
    const bool custom = m_customColor->isChecked();
    m_colorSensor->setEnabled(custom);
    for (size_t i = 0; i < 3; ++i) {
        m_colorButtons[i]->setEnabled(custom);
        m_values[i]->setEnabled(custom);
    }
}
