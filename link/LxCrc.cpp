#include "link/LxCrc.h"
