#include "link/LxBusProtocol.h"
