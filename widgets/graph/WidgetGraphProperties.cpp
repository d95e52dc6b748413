#include "widgets/graph/WidgetGraphProperties.h"

#include "telemetry/SensorTable.h"
#include "telemetry/TelemetryUnits.h"

#include <QCheckBox>
#include <QColorDialog>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QVBoxLayout>

#include <cmath>

namespace {
constexpr double kRangeLimit = 1000000.0;

QDoubleSpinBox *rangeBox(QWidget *parent, double value)
{
    auto *box = new QDoubleSpinBox(parent);
    box->setDecimals(2);
    box->setRange(-kRangeLimit, kRangeLimit);
    box->setValue(value);
    return box;
}
} // namespace

WidgetGraphProperties::WidgetGraphProperties(const GraphItem &item, const QString &name,
                                             const QString &baseUnit, quint8 unitCategory,
                                             SensorTable *sensors, QWidget *parent)
    : QDialog(parent), m_item(item), m_name(name), m_baseUnit(baseUnit), m_unitCategory(unitCategory),
      m_sensors(sensors), m_acceptedColor(item.color)
{
    setWindowTitle(tr("Chart properties: %1").arg(name));

    auto *visual = new QGroupBox(tr("Visual appearance"), this);
    auto *visualForm = new QFormLayout(visual);
    m_colorSwatch = new QLabel(visual);
    m_colorSwatch->setFixedSize(40, 18);
    m_colorSwatch->setFrameShape(QFrame::Box);
    m_colorButton = new QPushButton(tr("Set color..."), visual);
    auto *colorRow = new QHBoxLayout;
    colorRow->addWidget(m_colorSwatch);
    colorRow->addWidget(m_colorButton);
    colorRow->addStretch();
    visualForm->addRow(tr("Color"), colorRow);

    m_lineWidth = new QDoubleSpinBox(visual);
    m_lineWidth->setDecimals(1);
    m_lineWidth->setRange(GraphItem::kMinLineWidth, GraphItem::kMaxLineWidth);
    m_lineWidth->setSingleStep(0.1);
    m_lineWidth->setSuffix(tr("px"));
    m_lineWidth->setValue(item.lineWidth);
    visualForm->addRow(tr("Line width"), m_lineWidth);

    m_fill = new QCheckBox(tr("Fill chart"), visual);
    m_fill->setChecked(item.fill);
    m_transparency = new QSpinBox(visual);
    m_transparency->setRange(0, 100);
    m_transparency->setValue(alphaToPercent(item.fillAlpha));
    m_transparency->setToolTip(tr("Transparency of the filled area"));
    auto *fillRow = new QHBoxLayout;
    fillRow->addWidget(m_fill);
    fillRow->addWidget(m_transparency);
    fillRow->addStretch();
    visualForm->addRow(fillRow);

    m_grid = new QCheckBox(tr("Show grid"), visual);
    m_grid->setToolTip(tr("Shows grid on Y axis"));
    m_grid->setChecked(item.showGrid);
    visualForm->addRow(m_grid);

    auto *axis = new QGroupBox(tr("[Y] axis properties"), this);
    auto *axisForm = new QFormLayout(axis);
    m_lock = new QCheckBox(tr("Lock [Y] axis"), axis);
    m_lock->setToolTip(tr("Lock the range against accidental changes"));
    m_lock->setChecked(item.locked);
    axisForm->addRow(m_lock);
    m_autoRange = new QCheckBox(tr("Automatic range"), axis);
    m_autoRange->setChecked(item.autoRange);
    axisForm->addRow(m_autoRange);
    m_maximum = rangeBox(axis, item.maximum);
    axisForm->addRow(tr("Manual range: Maximum"), m_maximum);
    m_minimum = rangeBox(axis, item.minimum);
    axisForm->addRow(tr("Manual range: Minimum"), m_minimum);

    m_unit = new QComboBox(axis);
    m_unit->setToolTip(tr("Set the units to be displayed"));
    const QStringList units = TelemetryUnits::targetUnits(unitCategory);
    if (units.isEmpty()) {
        m_unit->addItem(baseUnit);
        m_unit->setEnabled(false);
    } else {
        m_unit->addItems(units);
        const int index = units.indexOf(item.unit);
        m_unit->setCurrentIndex(index < 0 ? 0 : index);
    }
    axisForm->addRow(tr("Convert to unit"), m_unit);
    m_defaults = new QPushButton(tr("Set as default sensor properties"), axis);
    m_defaults->setEnabled(sensors != nullptr);
    axisForm->addRow(m_defaults);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(visual);
    layout->addWidget(axis);
    layout->addWidget(buttons);
    showColor();
    updateEnabled();

    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(m_colorButton, &QPushButton::clicked, this, &WidgetGraphProperties::chooseColor);
    connect(m_defaults, &QPushButton::clicked, this, &WidgetGraphProperties::saveAsDefault);
    connect(m_lineWidth, QOverload<double>::of(&QDoubleSpinBox::valueChanged), this, [this](double v) {
        m_item.lineWidth = v;
        emit lineWidthChanged(v);
        changed();
    });
    connect(m_fill, &QCheckBox::toggled, this, [this](bool on) {
        m_item.fill = on;
        emit fillChartChanged(on);
        changed();
    });
    connect(m_transparency, QOverload<int>::of(&QSpinBox::valueChanged), this, [this](int percent) {
        m_item.fillAlpha = percentToAlpha(percent);
        emit transparencyChanged(m_item.fillAlpha);
        changed();
    });
    connect(m_grid, &QCheckBox::toggled, this, [this](bool on) {
        m_item.showGrid = on;
        emit showGridChanged(on);
        changed();
    });
    connect(m_lock, &QCheckBox::toggled, this, [this](bool on) {
        m_item.locked = on;
        emit fixedRangeChanged(on);
        changed();
    });
    connect(m_autoRange, &QCheckBox::toggled, this, [this](bool on) {
        m_item.autoRange = on;
        emit autoRangeChanged(on);
        changed();
    });
    connect(m_maximum, QOverload<double>::of(&QDoubleSpinBox::valueChanged), this, [this](double v) {
        m_item.maximum = v;
        emit maxChanged(v);
        changed();
    });
    connect(m_minimum, QOverload<double>::of(&QDoubleSpinBox::valueChanged), this, [this](double v) {
        m_item.minimum = v;
        emit minChanged(v);
        changed();
    });
    connect(m_unit, QOverload<int>::of(&QComboBox::currentIndexChanged), this, [this](int) {
        if (!m_unit->isEnabled())
            return;
        m_item.unit = m_unit->currentText();
        emit unitChanged(m_item.unit);
        changed();
    });
}

int WidgetGraphProperties::alphaToPercent(int alpha)
{
    return int(std::lround(qBound(0, alpha, 255) * 100.0 / 255.0));
}

int WidgetGraphProperties::percentToAlpha(int percent)
{
    return int(std::lround(qBound(0, percent, 100) * 255.0 / 100.0));
}

void WidgetGraphProperties::setDisplayedRange(double low, double high)
{
    if (m_item.minimum != 0.0 || m_item.maximum != 0.0 || !(high > low))
        return;
    // Only the boxes: the item keeps its range until the user takes the manual one.
    const QSignalBlocker a(m_minimum);
    const QSignalBlocker b(m_maximum);
    m_minimum->setValue(low);
    m_maximum->setValue(high);
    if (!m_item.autoRange) {
        m_item.minimum = m_minimum->value();
        m_item.maximum = m_maximum->value();
    }
}

void WidgetGraphProperties::changed()
{
    // Taking the manual range takes what the boxes show.
    if (!m_item.autoRange) {
        m_item.minimum = m_minimum->value();
        m_item.maximum = m_maximum->value();
    }
    updateEnabled();
    m_defaults->setEnabled(m_sensors != nullptr);
    emit itemChanged(m_item);
}

void WidgetGraphProperties::updateEnabled()
{
    m_transparency->setEnabled(m_item.fill);
    m_minimum->setEnabled(!m_item.autoRange);
    m_maximum->setEnabled(!m_item.autoRange);
}

void WidgetGraphProperties::showColor()
{
    const QColor color = m_item.color.isValid() ? m_item.color : QColor(Qt::black);
    m_colorSwatch->setStyleSheet(QStringLiteral("background-color: %1;").arg(color.name()));
}

void WidgetGraphProperties::chooseColor()
{
    QColorDialog dialog(m_item.color, this);
    connect(&dialog, &QColorDialog::currentColorChanged, this, &WidgetGraphProperties::setColor);
    connect(&dialog, &QColorDialog::colorSelected, this, &WidgetGraphProperties::acceptColor);
    connect(&dialog, &QColorDialog::rejected, this, &WidgetGraphProperties::rejectColor);
    dialog.exec();
}

void WidgetGraphProperties::setColor(const QColor &color)
{
    if (!color.isValid() || color == m_item.color)
        return;
    m_item.color = color;
    showColor();
    emit colorChanged(color);
    changed();
}

void WidgetGraphProperties::rejectColor()
{
    const QColor kept = m_acceptedColor;
    if (kept.isValid())
        setColor(kept);
}

void WidgetGraphProperties::acceptColor(const QColor &color)
{
    m_acceptedColor = color;
    setColor(color);
}

bool WidgetGraphProperties::saveAsDefault()
{
    if (!m_sensors)
        return false;
    SensorRow row;
    bool ok = true;
    if (!m_sensors->findSensor(m_item.deviceId, m_item.param, &row)) {
        row.id = m_item.deviceId;
        row.param = m_item.param;
        row.label = m_name;
        row.unit = m_baseUnit;
        ok = m_sensors->insertDefaultSensor(row);
    }
    const int unit = TelemetryUnits::targetIndex(m_unitCategory, m_item.unit);
    row.unitConversion = QString::number(unit < 0 ? 0 : unit);
    // An automatic axis is stored as an empty range, which new items read as "automatic".
    row.defaultMin = m_item.autoRange ? 0.0 : m_item.minimum;
    row.defaultMax = m_item.autoRange ? 0.0 : m_item.maximum;
    row.defaultColor = m_item.color.isValid() ? int(m_item.color.rgb() & 0xFFFFFFu) : 0;
    ok = ok && m_sensors->updateSensorSettings(row);
    if (!ok) {
        prompter()->error(this, tr("Error"), tr("<b>Unable to save default sensor properties</b>"));
        return false;
    }
    // Done until something changes again.
    m_defaults->setEnabled(false);
    return true;
}
