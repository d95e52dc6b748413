#pragma once

#include "link/JoystickReader.h"

#include <QDialog>

class AppSettings;
class QCheckBox;
class QComboBox;
class QLineEdit;
class SerialComboBox;
class SerialPortWrapper;

// "Configuration...": serial port, the update check at start, the game controller and the keys of the
// keyed map providers. The choices are written to the settings (the keys to a file of their own); the main
// window applies them.
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
    QLineEdit *m_mapKey[2];
};
