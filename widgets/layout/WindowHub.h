#pragma once

#include "link/Device.h"
#include "link/Vector.h"
#include "telemetry/TelemetrySensor.h"
#include "telemetry/TelemetrySimplePair.h"
#include "telemetry/TelemetryVar.h"
#include "widgets/layout/CursorPair.h"

#include <QObject>
#include <QString>
#include <QVector>

#include <cstdint>

// The switchboard between the main window and the data windows. The main window owns one hub and emits
// the requests; WidgetManager connects every window it creates to the hub by the window's type, in both
// directions, and the main window connects the window-side signals to its own slots.
class WindowHub : public QObject
{
    Q_OBJECT
public:
    explicit WindowHub(QObject *parent = nullptr);

    // The measuring cursors as the windows last set them; a window opened later starts from them.
    const CursorPair &cursorPair() const { return m_cursorPair; }

public slots:
    // A window moved, set or cleared the measuring cursors: every window hears of it once.
    void setCursorPair(const CursorPair &pair);

signals:
    // Main window to data windows.
    void addSensorRequest(const TelemetryVar *variable);
    void updateSensorsRequest(const QVector<TelemetrySensor> *sensors);
    void valueAddedRequest(const QVector<TelemetrySensor> *sensors);
    void setLogStatusRequest(bool logging);
    void logFileLoadedRequest();
    void mouseOverTimestampRequest(long timestamp, bool flag);
    void deviceAddedRequest(const Vector<Device> *devices);
    void cursorPairChanged(const CursorPair &pair);

    // Data windows to the main window, each named after the main window's slot it is meant for.
    void focusUpdated();
    void mouseOverTimestampMoved(long timestamp, bool flag);
    void unitChanged(TelemetrySimplePair sensor, QString unit);
    void removeTelemetryBeforeTimestamp(long timestamp);
    void removeTelemetryAfterTimestamp(long timestamp);
    // Take the last cut back (TelemetryData::undoCut).
    void undoCutRequest();
    void GPSExport();
    void sensorsCleared();
    void logStatusChanged(bool logging);
    // Handled by WidgetManager itself: the active window receives the variable.
    void addSensorToActiveWidget(const TelemetryVar *variable);
    void sensorsReset();
    void deviceActivated(uint32_t deviceId, int param);
    void modelActivated(int modelId);
    void modelFolderActivated(int modelId, int folderId);
    void modelFolderDeleted(int, int, int);

private:
    CursorPair m_cursorPair;
};
