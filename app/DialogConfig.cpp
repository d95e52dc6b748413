#include "app/DialogConfig.h"

#include "app/AppSettings.h"
#include "app/SerialComboBox.h"
#include "link/SerialPortWrapper.h"
#include "tools/GPSMaps.h"
#include "tools/MapKeys.h"
#include "widgets/layout/Prompter.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLineEdit>

DialogConfig::DialogConfig(AppSettings *settings, SerialPortWrapper *wrapper, QWidget *parent)
    : QDialog(parent), m_settings(settings)
{
    setWindowTitle(tr("Configuration"));
    auto *form = new QFormLayout(this);
    m_port = new SerialComboBox(this);
    m_port->refresh(settings->text(AppSettings::kPort));
    m_autoUpdate = new QCheckBox(tr("Check for updates at start"), this);
    m_autoUpdate->setChecked(settings->flag(AppSettings::kAutoUpdate));
    m_joystick = new QComboBox(this);
    m_joystick->addItem(tr("None"), QString());
    const QString guid = settings->text(AppSettings::kJoystick);
    if (!guid.isEmpty())
        m_joystick->addItem(guid, guid);
    m_joystick->setCurrentIndex(guid.isEmpty() ? 0 : 1);
    form->addRow(tr("Serial port:"), m_port);
    form->addRow(tr("Game controller:"), m_joystick);
    form->addRow(QString(), m_autoUpdate);
    QString keys[MapKeys::kProviders];
    MapKeys::load(AppSettings::dataFolder(), keys);
    for (int i = 0; i < MapKeys::kProviders; ++i) {
        m_mapKey[i] = new QLineEdit(keys[i], this);
        m_mapKey[i]->setEchoMode(QLineEdit::PasswordEchoOnEdit);
        // A key in the environment is used when none is entered here.
        const char *variable = MapEndpoints::keyVariable(i);
        m_mapKey[i]->setPlaceholderText(
            qEnvironmentVariableIsEmpty(variable)
                ? tr("none: the map is offered without %1").arg(GPSMaps::providerName(i))
                : tr("from %1").arg(QLatin1String(variable)));
        form->addRow(tr("%1 map key:").arg(GPSMaps::providerName(i)), m_mapKey[i]);
    }
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    form->addRow(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, &DialogConfig::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &DialogConfig::reject);
    if (wrapper) {
        // The controllers are listed on the serial thread, which owns SDL.
        connect(wrapper, &SerialPortWrapper::detectedJoysticks, this, &DialogConfig::joysticksDetected);
        QMetaObject::invokeMethod(wrapper, "detectJoysticks", Qt::QueuedConnection);
    }
}

void DialogConfig::joysticksDetected(const JoystickVector &joysticks)
{
    const QString current = m_joystick->currentData().toString();
    m_joystick->clear();
    m_joystick->addItem(tr("None"), QString());
    for (const JoystickInfo &j : joysticks)
        m_joystick->addItem(tr("%1 (%2 axes)").arg(j.name).arg(j.axes), j.guid);
    const int index = m_joystick->findData(current);
    m_joystick->setCurrentIndex(index < 0 ? 0 : index);
}

void DialogConfig::accept()
{
    m_settings->setValue(AppSettings::kPort, m_port->port());
    m_settings->setValue(AppSettings::kAutoUpdate, m_autoUpdate->isChecked());
    m_settings->setValue(AppSettings::kJoystick, m_joystick->currentData().toString());
    QString keys[MapKeys::kProviders];
    for (int i = 0; i < MapKeys::kProviders; ++i)
        keys[i] = m_mapKey[i]->text().trimmed();
    QString error;
    if (!MapKeys::save(AppSettings::dataFolder(), keys, &error)) {
        Prompter::standard()->error(
            this, tr("Error"),
            tr("<b>Unable to keep the map keys:</b><ul><li>%1</li></ul>").arg(error.toHtmlEscaped()));
        return;
    }
    QDialog::accept();
}
