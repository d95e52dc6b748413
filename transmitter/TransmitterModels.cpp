#include "transmitter/TransmitterModels.h"

#include <QCoreApplication>

namespace {
struct Model
{
    quint16 hwId;
    const char *name;
    const char *image;
};
const Model kModels[] = {
    {674, "Vexo HC-6", "HC6.BIN"}, {675, "Vexo HS-6", "HC6.BIN"}, {676, "Vexo HS-4", "HS4.BIN"},
    {677, "Vexo HC-4", "HS4.BIN"}, {678, "Vexo HC-8", "HC8.BIN"}, {679, "Vexo HS-8", "HC8.BIN"},
};

const Model *find(quint16 hwId)
{
    for (const Model &m : kModels)
        if (m.hwId == hwId)
            return &m;
    return nullptr;
}
} // namespace

QString TransmitterModels::modelName(quint16 hwId)
{
    const Model *m = find(hwId);
    return m ? QString::fromLatin1(m->name)
             : QCoreApplication::translate("TransmitterModels", "Unknown Transmitter");
}

QString TransmitterModels::firmwareImage(quint16 hwId)
{
    const Model *m = find(hwId);
    return m ? QString::fromLatin1(m->image) : QString();
}
