#include "widgets/quick/WidgetDial.h"

#include "telemetry/TelemetryData.h"
#include "widgets/layout/LayoutJsonValue.h"
#include "widgets/layout/LayoutJsonWriter.h"
#include "widgets/layout/WindowHub.h"
#include "widgets/layout/WindowTypes.h"
#include "widgets/quick/ActionSpinbox.h"
#include "widgets/quick/WidgetDialProperties.h"

#include <QCursor>
#include <QMenu>
#include <QQuickItem>

#include <cmath>

WidgetDial::WidgetDial(TelemetryData *store, QWidget *parent) : QuickWindow(store, parent)
{
    setWindowTitle(tr("Dial"));
    if (loadScene(QUrl(QStringLiteral("qrc:///Qml/Qml/Dial.qml"))))
        connect(scene(), SIGNAL(popupMenu()), this, SLOT(popupMenu()));
    refresh();
}

void WidgetDial::wire(WidgetDial *window, WindowHub *hub, TelemetryData *store)
{
    if (hub) {
        connect(hub, &WindowHub::updateSensorsRequest, window, &WidgetDial::sensorsUpdated);
        connect(hub, &WindowHub::valueAddedRequest, window, &WidgetDial::dataAdded);
        connect(hub, &WindowHub::mouseOverTimestampRequest, window, &WidgetDial::mouseOverTimestampMoved);
        connect(hub, &WindowHub::logFileLoadedRequest, window, &WidgetDial::logFileLoaded);
    }
    if (store)
        window->sensorsUpdated(store->sensors());
}

int WidgetDial::load(const LayoutJsonValue &object)
{
    if (!object.isObject())
        return 1;
    const LayoutJsonValue &sensor = object.value(QStringLiteral("Sensor"));
    const LayoutJsonValue &param = object.value(QStringLiteral("Param"));
    if (sensor.isNumber() && param.isNumber() && sensor.toDouble() >= 0 &&
        sensor.toDouble() <= 4294967295.0 && param.toDouble() >= 0 && param.toDouble() <= 4294967295.0)
        m_pair = TelemetrySimplePair(quint32(sensor.toDouble()), quint32(param.toDouble()));
    const LayoutJsonValue &props = object.value(QStringLiteral("Props"));
    if (props.isArray() && props.size() >= 4) {
        const double limit = WidgetDialProperties::kLimit;
        const auto hundredths = [limit](const LayoutJsonValue &v, double fallback) {
            const double d = v.toDouble(fallback * 100) / 100;
            return std::isfinite(d) ? std::max(-limit, std::min(limit, d)) : fallback;
        };
        m_autoRange = props.at(0).toDouble(1) != 0;
        m_minimum = hundredths(props.at(1), m_minimum);
        m_maximum = hundredths(props.at(2), m_maximum);
        setDisplayLatest(props.at(3).toDouble(1) != 0);
    }
    refresh();
    return 0;
}

int WidgetDial::save(LayoutJsonWriter &writer, quint8 flag)
{
    writer.writeString(QStringLiteral("Type"), WindowTypes::key(WindowTypes::Dial));
    if (flag != kForDatabase)
        return 0;
    writer.writeInt(QStringLiteral("Sensor"), m_pair.deviceId);
    writer.writeInt(QStringLiteral("Param"), m_pair.param);
    writer.key(QStringLiteral("Props"));
    writer.beginArray();
    writer.writeInt(m_autoRange ? 1 : 0);
    writer.writeInt(std::llround(m_minimum * 100));
    writer.writeInt(std::llround(m_maximum * 100));
    writer.writeInt(displayLatest() ? 1 : 0);
    writer.endArray();
    return 0;
}

bool WidgetDial::addVariable(const TelemetryVar *variable)
{
    if (!variable)
        return false;
    setVariable(variable->pair());
    return true;
}

void WidgetDial::setVariable(const TelemetrySimplePair &pair)
{
    m_pair = pair;
    refresh();
}

void WidgetDial::setRange(bool automatic, double minimum, double maximum)
{
    m_autoRange = automatic;
    m_minimum = minimum;
    m_maximum = maximum;
    refresh();
}

void WidgetDial::dropped(quint32 deviceId, quint32 param)
{
    if (findVar({deviceId, param}))
        setVariable({deviceId, param});
}

void WidgetDial::refresh()
{
    const TelemetryVar *var = m_pair.deviceId != 0 ? findVar(m_pair) : nullptr;
    double value = 0;
    const bool has = var && currentValue(*var, &value);
    double low = m_minimum;
    double high = m_maximum;
    if (m_autoRange && !(var && extremes(*var, &low, &high))) {
        low = -1;
        high = 1;
    }
    // The hint goes at once when the first variable arrives; later changes fade it.
    setSceneProperty("firstLoad", m_firstLoad);
    setSceneProperty("autoRange", m_autoRange);
    setSceneProperty("min", low);
    setSceneProperty("max", high);
    setSceneProperty("value", has ? value : low);
    setSceneProperty("name", var ? var->label() : QString());
    setSceneProperty("unit", var ? var->displayUnit() : QString());
    setSceneProperty("sensorLoaded", has);
    if (has)
        m_firstLoad = false;
}

QMenu *WidgetDial::createContextMenu()
{
    auto *menu = new QMenu(this);
    addDisplayModeActions(menu);
    menu->addSeparator();
    menu->addAction(tr("Properties..."), this, &WidgetDial::showProperties);
    // The manual range straight from the menu: entering a number switches the automatic range off.
    const double limit = WidgetDialProperties::kLimit;
    auto *minimum =
        new ActionSpinbox(tr("Minimum"), -limit, limit, WidgetDialProperties::kDecimals, m_minimum, menu);
    auto *maximum =
        new ActionSpinbox(tr("Maximum"), -limit, limit, WidgetDialProperties::kDecimals, m_maximum, menu);
    connect(minimum, &ActionSpinbox::valueChosen, this, [this](double v) { setRange(false, v, m_maximum); });
    connect(maximum, &ActionSpinbox::valueChosen, this, [this](double v) { setRange(false, m_minimum, v); });
    menu->addAction(minimum);
    menu->addAction(maximum);
    menu->addSeparator();
    QAction *remove = menu->addAction(tr("Remove sensor"), this, &WidgetDial::removeSensor);
    remove->setEnabled(m_pair.deviceId != 0);
    return menu;
}

void WidgetDial::popupMenu()
{
    QMenu *menu = createContextMenu();
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->popup(QCursor::pos());
}

void WidgetDial::showProperties()
{
    WidgetDialProperties dialog(m_autoRange, m_minimum, m_maximum, this);
    if (dialog.exec() == QDialog::Accepted)
        setRange(dialog.autoRange(), dialog.minimum(), dialog.maximum());
}

void WidgetDial::removeSensor()
{
    setVariable(TelemetrySimplePair());
}
