#pragma once

#include <QMap>
#include <QMetaType>
#include <QString>
#include <QVector>

// One game controller found by SDL.
struct JoystickInfo
{
    QString guid; // SDL's GUID string, the key the settings keep
    QString name;
    int axes = 0;
    bool isGameController = false;
};
using JoystickVector = QVector<JoystickInfo>;
// Axis values (signed 16-bit, as SDL reports them) by axis key; the master frame takes them in the
// map's key order, one per channel.
using JoystickAxisMap = QMap<int, qint16>;
Q_DECLARE_METATYPE(JoystickInfo)
Q_DECLARE_METATYPE(JoystickVector)
Q_DECLARE_METATYPE(JoystickAxisMap)

// Game controllers through SDL2, GUI-free, used from the serial thread. Not thread-safe: one thread
// owns the reader and makes every call.
class JoystickReader
{
public:
    JoystickReader();
    ~JoystickReader();
    JoystickReader(const JoystickReader &) = delete;
    JoystickReader &operator=(const JoystickReader &) = delete;

    // Lists the controllers present now (initialises SDL's joystick subsystem on first use).
    JoystickVector detect();
    // Opens the controller with this GUID (closing any other); an empty GUID closes. False when absent.
    bool select(const QString &guid);
    bool hasJoystick() const;
    QString selectedGuid() const;
    // Reads the selected controller's axes (at most eight, keyed by axis index); true when they
    // changed since the last poll. Without a controller it returns false at once. An unplugged
    // controller is closed and the call returns false.
    bool poll(JoystickAxisMap *axes);
    // Why SDL could not be initialised or the controller could not be opened; empty otherwise.
    QString lastError() const;

private:
    struct Private;
    Private *d;
};
