#pragma once

#include "telemetry/TelemetryMessage.h"
#include "widgets/graph/GraphDecimator.h"
#include "widgets/graph/GraphItem.h"
#include "widgets/graph/GraphSeriesPainter.h"
#include "widgets/graph/GraphTheme.h"

#include <QCoreApplication>
#include <QFont>
#include <QHash>
#include <QList>
#include <QRect>
#include <QSize>
#include <QStaticText>
#include <QString>
#include <QVector>

#include <vector>

class QImage;
class QPainter;
class TelemetryVar;

// Lays out and draws a graph: the plot area, one Y axis per item (even items on the left, odd ones on the
// right, innermost first), the time axis, grids, the items' lines and the alarm markers; the cursor with
// the items' values is drawn on top separately, so a moving cursor costs no redraw of the rest. Used by
// the window, the image export, the tests and the benchmark alike.
class GraphRenderer
{
    Q_DECLARE_TR_FUNCTIONS(GraphRenderer)
public:
    struct Series
    {
        GraphItem item;
        const TelemetryVar *var = nullptr; // null while the store lacks the variable
        QString label;                     // "name [unit]"
        quint8 unitCategory = 0;
        quint8 unitTarget = 0;
    };

    struct Scene
    {
        qint64 from = 0;
        qint64 window = 30000;
        int theme = GraphTheme::White;
        bool timeGrid = false;
        bool markers = false;
        QVector<Series> series;
        QList<TelemetryMessage> messages;
        QString emptyText; // shown when there is nothing to plot
    };

    // One Y axis after layout.
    struct Axis
    {
        QRect rect;
        bool left = true;
        double low = 0;
        double high = 1;
        double step = 1;
        int decimals = 0;
        QVector<double> ticks;
    };

    static constexpr int kIconSize = 16;

    explicit GraphRenderer(GraphDecimator *decimator) : m_decimator(decimator) {}

    void setFont(const QFont &font)
    {
        if (font != m_font)
            m_texts.clear();
        m_font = font;
    }
    // Lays the scene out for an image of this size and reduces every item's data to the plot's width.
    void layout(const Scene &scene, const QSize &size);
    // Everything but the cursor. image is Format_RGB32 or Format_ARGB32_Premultiplied of the laid-out size.
    void render(QImage *image) const;
    // The cursor line at time t with each item's value there.
    void renderCursor(QPainter *painter, qint64 t) const;

    // Points the laid-out items at their variables again (the store may have moved them); one per item.
    void setVariables(const QVector<const TelemetryVar *> &variables);
    const Scene &scene() const { return m_scene; }
    QSize size() const { return m_size; }
    QRect plotRect() const { return m_plot; }
    const QVector<Axis> &axes() const { return m_axes; }
    const GraphDecimator::Result &result(int series) const { return m_results.at(series); }
    GraphSeriesPainter::Mapping mapping(int series) const;

    // Time at an x position of the image and back (fractional pixels).
    qint64 timeAtX(double x) const;
    double xAtTime(qint64 t) const;
    // The axis under a point, or -1.
    int axisAt(const QPoint &pos) const;
    // The item whose line passes nearest to a point over the plot, or -1.
    int nearestSeries(const QPoint &pos) const;
    // The message whose marker icon is under a point, or -1.
    int markerAt(const QPoint &pos) const;

    // Value of a variable at time t in the given unit: linear between samples, NaN before the first, in
    // a gap of the hold limit or more, and that long after the last.
    static double valueAt(const TelemetryVar &var, qint64 t, quint8 unitCategory, quint8 unitTarget);
    // Decimals to show a variable's values with.
    static int decimalsOf(const TelemetryVar &var, quint8 unitTarget);

private:
    int axisWidth(const Axis &axis) const;
    void drawTimeAxis(QPainter *painter, const GraphTheme &theme) const;
    void drawAxis(QImage *image, QPainter *painter, int index) const;
    void drawMarkers(QImage *image, QPainter *painter, const GraphTheme &theme) const;
    // Text laid out once and drawn many times; centred vertically on y, aligned on x.
    const QStaticText &staticText(const QString &text) const;
    void drawLabel(QPainter *painter, const QString &text, int x, int y, Qt::Alignment align) const;
    QRect markerRect(const TelemetryMessage &message) const;

    GraphDecimator *m_decimator;
    QFont m_font;
    Scene m_scene;
    QSize m_size;
    QRect m_plot;
    QVector<Axis> m_axes;
    QVector<GraphDecimator::Result> m_results;
    // What the items' lines covered last time; a drawing of the same results skips tracing them again.
    mutable std::vector<GraphSeriesPainter::Trace> m_traces;
    qint64 m_timeStep = 1000;
    QVector<qint64> m_timeTicks;
    mutable QHash<QString, QStaticText> m_texts;
};
