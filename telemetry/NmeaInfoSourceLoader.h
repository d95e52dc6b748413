#pragma once

#include <QGeoPositionInfo>
#include <QNmeaPositionInfoSource>

// Qt Positioning's NMEA sentence parser, reached without a device or an event loop: the NMEA log reader
// feeds it one sentence at a time.
class NmeaInfoSourceLoader : public QNmeaPositionInfoSource
{
public:
    // Turns the estimated accuracy (2 x DOP x UERE) into metres; a typical single-frequency receiver.
    static constexpr double kUserEquivalentRangeError = 2.5;

    NmeaInfoSourceLoader();

    // One sentence (from "$" up to and including the checksum). False when Qt does not know the sentence
    // or its checksum is wrong; hasFix is Qt's own opinion and is not trusted for GSA.
    bool parseSentence(const char *data, int size, QGeoPositionInfo *info, bool *hasFix);
};
