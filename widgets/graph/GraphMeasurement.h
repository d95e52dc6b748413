#pragma once

#include "widgets/graph/GraphRenderer.h"
#include "widgets/layout/CursorPair.h"

#include <QCoreApplication>
#include <QVector>

#include <limits>

class QPainter;

// What the measuring cursors A and B read on a graph: per plotted item the values at A and B, their
// difference, and the smallest, largest and mean sample between them with the slope per second. Read
// from the raw records (whole blocks through the decimator's summary), never from the drawn columns.
// Also draws the two cursors and the readout over a laid-out graph, in the window and in the export.
class GraphMeasurement
{
    Q_DECLARE_TR_FUNCTIONS(GraphMeasurement)
public:
    static constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

    struct Row
    {
        QString label;
        QColor color;
        int decimals = 2;
        double atA = kNaN; // as the cursor readout: linear between samples, none in a gap
        double atB = kNaN;
        double delta = kNaN; // atB - atA
        int samples = 0;     // samples from the earlier cursor to the later one, both included
        double minimum = kNaN;
        double maximum = kNaN;
        double mean = kNaN;
        double slope = kNaN; // delta per second of B - A
    };

    CursorPair pair;
    QVector<Row> rows;

    // The readings of every series of a scene; an item whose variable the recording lacks gets an empty row.
    static GraphMeasurement measure(const QVector<GraphRenderer::Series> &series, GraphDecimator *decimator,
                                    const CursorPair &pair);

    // The A and B lines, the span between them shaded, and the readout box, over renderer's plot.
    void paint(QPainter *painter, const GraphRenderer &renderer) const;
    // The readout's first line: the times of A and B and delta t.
    QString title() const;
};
