#pragma once

#include "telemetry/TelemetrySensor.h"
#include "widgets/layout/SerializableWidget.h"

#include <QHash>
#include <QPointer>
#include <QQuickWidget>
#include <QTimer>

class QMenu;
class QQuickItem;
class TelemetryData;

// What the dial and the values window share: a QML scene in a QQuickWidget, the latest value or the value
// at the shared cursor, and a refresh on a timer of its own while data streams in (never once per sample).
class QuickWindow : public QQuickWidget, public SerializableWidget
{
    Q_OBJECT
public:
    // About 25 refreshes a second while live data arrives.
    static constexpr int kRefreshIntervalMs = 40;

    QuickWindow(TelemetryData *store, QWidget *parent);

    bool displayLatest() const { return m_latest; }
    void setDisplayLatest(bool latest);
    // The scene's root object; null when it failed to load.
    QQuickItem *scene() const;

    // A variable's decimals as it shows them: those of its samples (6 for coordinates, none for text).
    static int decimalsOf(const TelemetryVar &var);
    static QString format(double value, int decimals);

public slots:
    void sensorsUpdated(const QVector<TelemetrySensor> *sensors);
    void dataAdded(const QVector<TelemetrySensor> *sensors);
    void mouseOverTimestampMoved(long timestamp, bool flag);
    void logFileLoaded();

signals:
    void gotFocus();

protected:
    // Loads the scene and connects the signals both scenes have; a failure is said once, in a box.
    bool loadScene(const QUrl &url);
    // Sets the scene's properties from the data as it is now.
    virtual void refresh() = 0;
    virtual void dropped(quint32 deviceId, quint32 param) = 0;

    const QVector<TelemetrySensor> *sensorList() const;
    const TelemetryVar *findVar(const TelemetrySimplePair &pair) const;
    const TelemetrySensor *findSensor(quint32 deviceId) const;
    // The latest value, or the one at the cursor time; false without samples.
    bool currentValue(const TelemetryVar &var, double *value) const;
    // Smallest and largest value over the data (since the start while recording), kept per variable and
    // extended by the new samples only; false without samples.
    bool extremes(const TelemetryVar &var, double *minimum, double *maximum);
    // "Latest values" and "Values under cursor", exclusive.
    void addDisplayModeActions(QMenu *menu);
    void setSceneProperty(const char *name, const QVariant &value);
    void scheduleRefresh();

    void focusInEvent(QFocusEvent *event) override;

private slots:
    void sceneDropped(const QVariant &id, const QVariant &param);

private:
    struct Extremes
    {
        const void *data = nullptr;
        int scanned = 0;
        double minimum = 0;
        double maximum = 0;
        bool any = false;
    };

    QPointer<TelemetryData> m_store;
    const QVector<TelemetrySensor> *m_sensors = nullptr;
    bool m_latest = true;
    qint64 m_cursor = 0;
    bool m_hasCursor = false;
    QHash<quint64, Extremes> m_extremes;
    QTimer m_refreshTimer;
};
