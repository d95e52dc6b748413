#pragma once

#include "widgets/quick/QuickWindow.h"

class QMenu;
class WindowHub;

// "Dial": one variable on an analogue gauge (the scene "Dial.qml"), its range found from the data or set
// by hand, showing the latest value or the one at the shared cursor.
class WidgetDial : public QuickWindow
{
    Q_OBJECT
public:
    static void wire(WidgetDial *window, WindowHub *hub, TelemetryData *store);

    explicit WidgetDial(TelemetryData *store, QWidget *parent = nullptr);

    int load(const LayoutJsonValue &object) override;
    int save(LayoutJsonWriter &writer, quint8 flag) override;
    bool addVariable(const TelemetryVar *variable) override;

    TelemetrySimplePair variable() const { return m_pair; }
    void setVariable(const TelemetrySimplePair &pair);
    bool autoRange() const { return m_autoRange; }
    double manualMinimum() const { return m_minimum; }
    double manualMaximum() const { return m_maximum; }
    void setRange(bool automatic, double minimum, double maximum);

    // The dial's menu; the caller owns it.
    QMenu *createContextMenu();

public slots:
    void showProperties();
    void removeSensor();

protected:
    void refresh() override;
    void dropped(quint32 deviceId, quint32 param) override;

private slots:
    void popupMenu();

private:
    TelemetrySimplePair m_pair;
    bool m_autoRange = true;
    double m_minimum = 0;
    double m_maximum = 100;
    bool m_firstLoad = true;
};
