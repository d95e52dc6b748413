#include "link/LxReceiver.h"
