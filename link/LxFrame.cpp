#include "link/LxFrame.h"
