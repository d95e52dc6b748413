#pragma once

#include <QString>
#include <QtGlobal>

// The transmitter models by hardware id, and the firmware image each one's backups carry under
// "update/". The pairs share an image by design, not by family letter.
namespace TransmitterModels {

// "Unknown Transmitter" for an id not in the table.
QString modelName(quint16 hwId);
// Empty for an id not in the table.
QString firmwareImage(quint16 hwId);

} // namespace TransmitterModels
