#pragma once

#include "link/JoystickReader.h"

#include <QDialog>

class AppSettings;
class QCheckBox;
class QComboBox;
class SerialComboBox;
class SerialPortWrapper;

// "Configuration...": serial port, the update check at start and the game controller. The choices are
// written to the settings; the main window applies them on the serial thread.
class DialogConfig : public QDialog
{
    Q_OBJECT
public:
    DialogConfig(AppSettings *settings, SerialPortWrapper *wrapper, QWidget *parent = nullptr);

    void accept() override;

private:
    void joysticksDetected(const JoystickVector &joysticks);

    AppSettings *m_settings;
    SerialComboBox *m_port;
    QCheckBox *m_autoUpdate;
    QComboBox *m_joystick;
};
