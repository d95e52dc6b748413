#include "widgets/sensors/DialogKMLExport.h"

#include "telemetry/KmlWriter.h"
#include "widgets/layout/Prompter.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileInfo>
#include <QFormLayout>
#include <QGroupBox>
#include <QPushButton>
#include <QVBoxLayout>

DialogKMLExport::DialogKMLExport(const QVector<TelemetrySensor> *sensors, QWidget *parent)
    : QDialog(parent), m_sensors(sensors)
{
    setWindowTitle(tr("KML Export Properties"));
    auto *group = new QGroupBox(tr("Coordinate properties"), this);
    auto *form = new QFormLayout(group);
    m_comboLat = new QComboBox(group);
    m_comboLat->setObjectName(QStringLiteral("comboLat"));
    m_comboLon = new QComboBox(group);
    m_comboLon->setObjectName(QStringLiteral("comboLon"));
    m_comboAlt = new QComboBox(group);
    m_comboAlt->setObjectName(QStringLiteral("comboAlt"));
    form->addRow(tr("GPS Latitude"), m_comboLat);
    form->addRow(tr("GPS Longitude"), m_comboLon);
    form->addRow(tr("Altitude"), m_comboAlt);

    m_buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(m_buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(m_buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(group);
    layout->addWidget(m_buttons);

    if (m_sensors) {
        for (const TelemetrySensor &sensor : *m_sensors) {
            for (const TelemetryVar &var : sensor.vars()) {
                const QString text = itemText(sensor, var);
                const QVariant pair = QVariant::fromValue(var.pair());
                if (KmlWriter::isLatitude(var))
                    m_comboLat->addItem(text, pair);
                if (KmlWriter::isLongitude(var))
                    m_comboLon->addItem(text, pair);
                if (KmlWriter::isAltitude(var))
                    m_comboAlt->addItem(text, pair);
            }
        }
    }
    for (QComboBox *combo : {m_comboLat, m_comboLon, m_comboAlt})
        connect(combo, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
                &DialogKMLExport::checkEnabled);
    checkEnabled();
}

QString DialogKMLExport::itemText(const TelemetrySensor &sensor, const TelemetryVar &var)
{
    // One multi-argument arg(): a device name holding "%2" must not take the param's place.
    const QString param = QStringLiteral("%1").arg(var.param(), 2);
    if (var.label().isEmpty())
        return tr("%1%2. Param").arg(sensor.displayName(), param);
    // The unit as delivered: the file holds raw metres whatever unit the graphs show.
    return tr("%1%2. %3\t[%4]").arg(sensor.displayName(), param, var.label(), var.unit());
}

void DialogKMLExport::checkEnabled()
{
    m_buttons->button(QDialogButtonBox::Ok)->setEnabled(latitude() && longitude());
}

const TelemetryVar *DialogKMLExport::selected(const QComboBox *combo) const
{
    if (!m_sensors || combo->currentIndex() < 0)
        return nullptr;
    const TelemetrySimplePair pair = combo->currentData().value<TelemetrySimplePair>();
    for (const TelemetrySensor &sensor : *m_sensors) {
        if (sensor.id() == pair.deviceId)
            return sensor.var(pair.param);
    }
    return nullptr;
}

const TelemetryVar *DialogKMLExport::latitude() const
{
    return selected(m_comboLat);
}

const TelemetryVar *DialogKMLExport::longitude() const
{
    return selected(m_comboLon);
}

const TelemetryVar *DialogKMLExport::altitude() const
{
    return selected(m_comboAlt);
}

bool DialogKMLExport::exportTrack(const QVector<TelemetrySensor> *sensors, QWidget *parent,
                                  Prompter *prompter)
{
    if (!prompter)
        prompter = Prompter::standard();
    DialogKMLExport dialog(sensors, parent);
    if (dialog.exec() != QDialog::Accepted || !dialog.latitude() || !dialog.longitude())
        return false;
    const QVector<KmlWriter::Point> points =
        KmlWriter::points(*dialog.latitude(), *dialog.longitude(), dialog.altitude());
    if (points.isEmpty()) {
        prompter->information(parent, tr("Info"),
                              tr("<b>Unable to export KML file:</b><ul><li>%1</li></ul>")
                                  .arg(tr("The chosen variables hold no GPS position.")));
        return false;
    }

    QString path =
        prompter->saveFile(parent, tr("Export to KML"), QString(), tr("KML files (*.kml);;All files(*.*)"));
    if (path.isEmpty())
        return false;
    if (QFileInfo(path).suffix().isEmpty())
        path += QStringLiteral(".kml");
    QString error;
    if (!KmlWriter::save(path, KmlWriter::document(points), &error)) {
        prompter->error(
            parent, tr("Error"),
            tr("<b>Unable to export KML file:</b><ul><li>%1</li></ul>").arg(error.toHtmlEscaped()));
        return false;
    }
    return true;
}
