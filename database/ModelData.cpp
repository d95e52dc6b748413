#include "database/ModelData.h"

void ModelData::registerMetaType()
{
    static const int id = qRegisterMetaType<ModelData>("ModelData");
    Q_UNUSED(id);
}
