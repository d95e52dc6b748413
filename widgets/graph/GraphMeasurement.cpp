#include "widgets/graph/GraphMeasurement.h"

#include "widgets/graph/GraphTicks.h"

#include <QFontMetrics>
#include <QPainter>

#include <algorithm>
#include <cmath>

namespace {
constexpr int kGap = 3;

QString number(double value, int decimals)
{
    return std::isfinite(value) ? GraphTicks::valueText(value, decimals) : QStringLiteral("\u2013");
}

QString seconds(qint64 ms)
{
    return QStringLiteral("%1 s").arg(double(ms) / 1000.0, 0, 'f', 3);
}
} // namespace

GraphMeasurement GraphMeasurement::measure(const QVector<GraphRenderer::Series> &series,
                                           GraphDecimator *decimator, const CursorPair &pair)
{
    GraphMeasurement m;
    m.pair = pair;
    m.rows.reserve(series.size());
    for (const GraphRenderer::Series &s : series) {
        Row row;
        row.label = s.label;
        row.color = s.item.color;
        if (s.var) {
            const TelemetryVar &var = *s.var;
            row.decimals = GraphRenderer::decimalsOf(var, s.unitTarget);
            if (pair.hasA)
                row.atA = GraphRenderer::valueAt(var, pair.a, s.unitCategory, s.unitTarget);
            if (pair.hasB)
                row.atB = GraphRenderer::valueAt(var, pair.b, s.unitCategory, s.unitTarget);
            if (pair.isComplete()) {
                row.delta = row.atB - row.atA;
                if (pair.b != pair.a)
                    row.slope = row.delta * 1000.0 / double(pair.b - pair.a);
                const GraphDecimator::SpanStats stats = decimator->spanStats(
                    s.item.pair().key(), var, pair.low(), pair.high(), s.unitCategory, s.unitTarget);
                row.samples = stats.samples;
                row.minimum = stats.minimum;
                row.maximum = stats.maximum;
                row.mean = stats.mean;
            }
        }
        m.rows.append(row);
    }
    return m;
}

QString GraphMeasurement::title() const
{
    QStringList parts;
    if (pair.hasA)
        parts << tr("A %1").arg(GraphTicks::cursorTimeText(pair.a));
    if (pair.hasB)
        parts << tr("B %1").arg(GraphTicks::cursorTimeText(pair.b));
    if (pair.isComplete())
        parts << tr("\u0394t %1").arg(seconds(pair.b - pair.a));
    return parts.join(QStringLiteral("   "));
}

void GraphMeasurement::paint(QPainter *painter, const GraphRenderer &renderer) const
{
    const QRect plot = renderer.plotRect();
    if (plot.width() <= 0 || pair.isEmpty())
        return;
    const GraphTheme theme = GraphTheme::forIndex(renderer.scene().theme);
    const QFontMetrics fm(painter->font());
    painter->save();
    painter->setClipRect(plot);
    const auto xOf = [&](qint64 t) { return int(std::floor(renderer.xAtTime(t))); };
    QColor line = theme.text;
    if (pair.isComplete()) {
        QColor shade = theme.text;
        shade.setAlpha(28);
        const int x0 = std::max(plot.left(), xOf(pair.low()));
        const int x1 = std::min(plot.right() + 1, xOf(pair.high()) + 1);
        if (x1 > x0)
            painter->fillRect(QRect(x0, plot.top(), x1 - x0, plot.height()), shade);
    }
    const auto cursor = [&](bool has, qint64 t, const QString &name) {
        if (!has)
            return;
        const int x = xOf(t);
        painter->fillRect(QRect(x, plot.top(), 1, plot.height()), line);
        const QRect tag(x - fm.horizontalAdvance(name) / 2 - kGap, plot.bottom() - fm.height() - 2 * kGap + 1,
                        fm.horizontalAdvance(name) + 2 * kGap, fm.height() + 2 * kGap);
        painter->fillRect(tag, line);
        painter->setPen(theme.background);
        painter->drawText(tag, Qt::AlignCenter, name);
    };
    cursor(pair.hasA, pair.a, QStringLiteral("A"));
    cursor(pair.hasB, pair.b, QStringLiteral("B"));

    // The readout: a small table, one line per item in its colour, columns right-aligned.
    QStringList header{QString()};
    QVector<QStringList> cells;
    if (pair.isComplete())
        header << tr("A") << tr("B") << tr("\u0394") << tr("min") << tr("max") << tr("mean") << tr("slope/s");
    else
        header << (pair.hasA ? tr("A") : tr("B"));
    for (const Row &r : rows) {
        QStringList c{r.label};
        if (pair.isComplete())
            c << number(r.atA, r.decimals) << number(r.atB, r.decimals) << number(r.delta, r.decimals)
              << number(r.minimum, r.decimals) << number(r.maximum, r.decimals)
              << number(r.mean, r.decimals + 1) << number(r.slope, r.decimals + 1);
        else
            c << number(pair.hasA ? r.atA : r.atB, r.decimals);
        cells << c;
    }
    QVector<int> widths(header.size(), 0);
    const auto widen = [&](const QStringList &c) {
        for (int i = 0; i < c.size(); ++i)
            widths[i] = std::max(widths[i], fm.horizontalAdvance(c.at(i)));
    };
    widen(header);
    for (const QStringList &c : qAsConst(cells))
        widen(c);
    const QString heading = title();
    int width = 0;
    for (int w : qAsConst(widths))
        width += w + 3 * kGap;
    width = std::max(width, fm.horizontalAdvance(heading)) + 2 * kGap;
    const int lines = 2 + cells.size();
    const QRect box(plot.left() + kGap, plot.top() + kGap, std::min(width, plot.width() - 2 * kGap),
                    std::min(lines * fm.height() + 2 * kGap, plot.height() - 2 * kGap));
    QColor back = theme.background;
    back.setAlpha(230);
    painter->setRenderHint(QPainter::Antialiasing, true);
    painter->setPen(theme.axis);
    painter->setBrush(back);
    painter->drawRoundedRect(QRectF(box).adjusted(0.5, 0.5, -0.5, -0.5), 3, 3);
    painter->setRenderHint(QPainter::Antialiasing, false);
    painter->setClipRect(box.adjusted(1, 1, -1, -1));
    int y = box.top() + kGap;
    painter->setPen(theme.text);
    painter->drawText(QRect(box.left() + 2 * kGap, y, box.width(), fm.height()),
                      Qt::AlignLeft | Qt::AlignVCenter, heading);
    const auto drawLine = [&](const QStringList &c, const QColor &color) {
        y += fm.height();
        painter->setPen(color);
        int x = box.left() + 2 * kGap;
        for (int i = 0; i < c.size(); ++i) {
            const Qt::Alignment align = (i == 0 ? Qt::AlignLeft : Qt::AlignRight) | Qt::AlignVCenter;
            painter->drawText(QRect(x, y, widths.at(i), fm.height()), align, c.at(i));
            x += widths.at(i) + 3 * kGap;
        }
    };
    drawLine(header, theme.text);
    for (int i = 0; i < cells.size(); ++i)
        drawLine(cells.at(i), rows.at(i).color.isValid() ? rows.at(i).color : theme.text);
    painter->restore();
}
