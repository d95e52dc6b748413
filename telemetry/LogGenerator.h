#pragma once

#include "telemetry/TelemetryDataPackage.h"

// Makes a deterministic flight for samples, tests and benchmarks: every device reads the same
// FlightProfile (as it would on a real model), each with a little noise of its own.
class LogGenerator
{
public:
    struct Options
    {
        int seconds = 60;
        int rate = 10;   // samples per second per device
        int devices = 6; // receiver, GPS, battery, altimeter, speed, temperature, then generic sensors
        quint64 seed = 1;
    };
    static TelemetryDataPackage generate(const Options &options);
};
