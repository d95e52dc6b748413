#include "link/LinkMetaTypes.h"

#include "link/DeviceSettings.h"
#include "link/JoystickReader.h"
#include "link/TransmitterInfo.h"

void registerLinkMetaTypes()
{
    static const bool done = [] {
        qRegisterMetaType<const Vector<Device> *>("const Vector<Device>*");
        qRegisterMetaType<Device>("Device");
        qRegisterMetaType<DevParamVector>("DevParamVector");
        qRegisterMetaType<DeviceSettings>("DeviceSettings");
        qRegisterMetaType<JoystickVector>("JoystickVector");
        qRegisterMetaType<JoystickAxisMap>("JoystickAxisMap");
        qRegisterMetaType<TransmitterInfo>("TransmitterInfo");
        qRegisterMetaType<TransmitterInfoVector>("TransmitterInfoVector");
        return true;
    }();
    Q_UNUSED(done);
}
