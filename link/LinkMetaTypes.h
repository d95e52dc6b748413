#pragma once

#include "link/Device.h"
#include "link/Vector.h"

#include <QMetaType>

Q_DECLARE_METATYPE(const Vector<Device> *)

// Registers the link's types for queued connections; safe to call repeatedly.
void registerLinkMetaTypes();
