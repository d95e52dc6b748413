#include "telemetry/NmeaInfoSourceLoader.h"

NmeaInfoSourceLoader::NmeaInfoSourceLoader() : QNmeaPositionInfoSource(SimulationMode)
{
    setUserEquivalentRangeError(kUserEquivalentRangeError);
}

bool NmeaInfoSourceLoader::parseSentence(const char *data, int size, QGeoPositionInfo *info, bool *hasFix)
{
    return parsePosInfoFromNmeaData(data, size, info, hasFix);
}
