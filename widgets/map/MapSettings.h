#pragma once

#include "telemetry/TelemetrySimplePair.h"
#include "tools/MapTrack.h"

// What the map window draws from: the variables it is bound to and how the track is shown. The
// properties dialog edits a copy; the window's layout keeps it.
struct MapSettings
{
    static constexpr int kMaxRestrictedSeconds = 999;
    static constexpr int kStopValueLimit = 1000000;

    // Each a device id and parameter number; a device id of 0 is "Not set".
    TelemetrySimplePair latitude;
    TelemetrySimplePair longitude;
    TelemetrySimplePair validity;
    TelemetrySimplePair altitude;
    TelemetrySimplePair azimuth;

    // Only the last restrictedSeconds up to the cursor.
    bool restrictRoute = false;
    int restrictedSeconds = 0;

    // Each segment coloured from the colour variable through the three stops.
    bool customLineColor = false;
    TelemetrySimplePair colorSensor;
    MapTrack::ColorStops stops;

    static bool isSet(const TelemetrySimplePair &pair) { return pair.deviceId != 0; }
};
