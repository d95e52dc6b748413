#include "app/DialogConfig.h"

#include "app/AppSettings.h"
#include "app/SerialComboBox.h"
#include "link/SerialPortWrapper.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QFormLayout>

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
    QDialog::accept();
}
