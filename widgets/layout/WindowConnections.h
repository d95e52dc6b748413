#pragma once

class QObject;
class TelemetryData;
class TelemetryVar;
class WindowHub;

// The fixed wiring between the data windows and the main window, by window type. Methods are looked up by
// signature, so a window takes part in every connection it implements and a placeholder in none.
class WindowConnections
{
public:
    // Connects the window of this type code to the hub and the store (either may be null).
    static void connect(QObject *window, int typeCode, WindowHub *hub, TelemetryData *store);
    static void disconnect(QObject *window, WindowHub *hub, TelemetryData *store);
    // Hands a new window the store's current state where its type asks for it (graph, sensor list).
    static void handInitialState(QObject *window, int typeCode, TelemetryData *store);
    // Calls a window's addData(const TelemetryVar*) when it has one; false when it has none.
    static bool addData(QObject *window, const TelemetryVar *variable);
};
