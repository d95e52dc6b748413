#include "link/JoystickReader.h"

// Placeholder until the SDL2 implementation lands.
struct JoystickReader::Private
{
};
JoystickReader::JoystickReader() : d(new Private) {}
JoystickReader::~JoystickReader() { delete d; }
JoystickVector JoystickReader::detect() { return {}; }
bool JoystickReader::select(const QString &guid) { return guid.isEmpty(); }
bool JoystickReader::hasJoystick() const { return false; }
QString JoystickReader::selectedGuid() const { return {}; }
bool JoystickReader::poll(JoystickAxisMap *) { return false; }
