#pragma once

#include "widgets/quick/QuickWindow.h"
#include "widgets/quick/SensorModel.h"

class QMenu;
class WindowHub;

// "Actual values": a list of variables (the scene "Values.qml" over a SensorModel), each with its latest
// value or the one at the shared cursor, and its minimum and maximum over the data (since the start while
// recording). Rows are reordered by dragging one onto another.
class WidgetValuesQuick : public QuickWindow
{
    Q_OBJECT
public:
    static void wire(WidgetValuesQuick *window, WindowHub *hub, TelemetryData *store);

    explicit WidgetValuesQuick(TelemetryData *store, QWidget *parent = nullptr);

    int load(const LayoutJsonValue &object) override;
    int save(LayoutJsonWriter &writer, quint8 flag) override;
    bool addVariable(const TelemetryVar *variable) override;

    SensorModel *model() { return &m_model; }
    // The menu for a row (-1: outside the rows); the caller owns it.
    QMenu *createContextMenu(int row);

public slots:
    void addData(const TelemetryVar *variable);
    void removeRow(int row);
    void removeAll();

protected:
    void refresh() override;
    void dropped(quint32 deviceId, quint32 param) override;

private slots:
    void popupMenu(int index);

private:
    // Appends a row for the variable; a variable the log lacks keeps its row (empty until it is there).
    bool addPair(const TelemetrySimplePair &pair);
    SensorModel::Row rowFor(const TelemetrySimplePair &pair);

    SensorModel m_model;
    bool m_firstLoad = true;
};
