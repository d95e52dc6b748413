#include "link/SerialPortWrapper.h"
