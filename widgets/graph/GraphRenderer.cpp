#include "widgets/graph/GraphRenderer.h"

#include "telemetry/TelemetryUnits.h"
#include "telemetry/TelemetryVar.h"
#include "widgets/graph/GraphTicks.h"

#include <QFontMetrics>
#include <QImage>
#include <QPainter>

#include <algorithm>
#include <cmath>
#include <limits>

// Resources of a static library are registered by hand; outside any namespace, as the macro requires.
static void initGraphResources()
{
    Q_INIT_RESOURCE(resources);
}

namespace {
constexpr int kTick = 4;
constexpr int kGap = 3;
const QColor kAlarmColor(229, 57, 53);

const QImage &icon(bool alarm)
{
    static const QImage images[2] = {
        [] {
            initGraphResources();
            return QImage(QStringLiteral(":/Icons/Program/Resources/help32x32.png"))
                .scaled(GraphRenderer::kIconSize, GraphRenderer::kIconSize, Qt::KeepAspectRatio,
                        Qt::SmoothTransformation);
        }(),
        [] {
            initGraphResources();
            return QImage(QStringLiteral(":/Icons/Program/Resources/alert32x32.png"))
                .scaled(GraphRenderer::kIconSize, GraphRenderer::kIconSize, Qt::KeepAspectRatio,
                        Qt::SmoothTransformation);
        }(),
    };
    return images[alarm ? 1 : 0];
}

// Opaque colour a of strength alpha over b.
QRgb mix(const QColor &a, const QColor &b, double alpha)
{
    const auto channel = [alpha](int x, int y) { return int(std::lround(x * alpha + y * (1 - alpha))); };
    return qRgb(channel(a.red(), b.red()), channel(a.green(), b.green()), channel(a.blue(), b.blue()));
}

// Lines of one pixel, optionally dashed (on pixels drawn, off pixels skipped), clipped to the image.
void hline(QImage *image, int x0, int x1, int y, QRgb color, int on = 1, int off = 0)
{
    if (y < 0 || y >= image->height())
        return;
    x0 = std::max(x0, 0);
    x1 = std::min(x1, image->width() - 1);
    auto *row = reinterpret_cast<QRgb *>(image->scanLine(y));
    for (int x = x0, k = 0; x <= x1; ++x, k = (k + 1) % (on + off)) {
        if (k < on)
            row[x] = color;
    }
}

void vline(QImage *image, int x, int y0, int y1, QRgb color, int on = 1, int off = 0)
{
    if (x < 0 || x >= image->width())
        return;
    y0 = std::max(y0, 0);
    y1 = std::min(y1, image->height() - 1);
    const qsizetype stride = image->bytesPerLine();
    uchar *pixel = image->bits() + y0 * stride + x * qsizetype(sizeof(QRgb));
    for (int y = y0, k = 0; y <= y1; ++y, k = (k + 1) % (on + off), pixel += stride) {
        if (k < on)
            *reinterpret_cast<QRgb *>(pixel) = color;
    }
}

QColor seriesColor(const GraphItem &item)
{
    return item.color.isValid() ? item.color : GraphTheme::itemColor(0);
}
} // namespace

int GraphRenderer::axisWidth(const Axis &axis) const
{
    const QFontMetrics fm(m_font);
    int labels = fm.horizontalAdvance(QStringLiteral("0"));
    for (double v : axis.ticks)
        labels = std::max(labels, fm.horizontalAdvance(GraphTicks::valueText(v, axis.decimals)));
    // In steps of two digits, so the plot does not twitch as live values change the labels a little.
    const int digits = 2 * std::max(1, fm.horizontalAdvance(QStringLiteral("0")));
    labels =
        std::min((labels + digits - 1) / digits * digits, fm.horizontalAdvance(QStringLiteral("-88888.888")));
    return fm.height() + kGap + labels + kGap + kTick + kGap;
}

void GraphRenderer::layout(const Scene &scene, const QSize &size)
{
    m_scene = scene;
    m_scene.window = std::max<qint64>(1, scene.window);
    m_size = size;
    const QFontMetrics fm(m_font);
    const int n = m_scene.series.size();
    const int top = fm.height() / 2 + kGap + (m_scene.markers ? kIconSize + kGap : 0);
    const int bottom = kTick + fm.height() + 2 * kGap;
    const int plotHeight = std::max(0, size.height() - top - bottom);
    const int yTicks = std::max(2, plotHeight / (3 * fm.height()));

    // Ranges first: they decide the labels, the labels the axes' widths, and those the plot's width.
    m_axes.clear();
    m_axes.reserve(n);
    const auto requestFor = [this](const Series &s, int width) {
        GraphDecimator::Request request;
        request.from = m_scene.from;
        request.span = m_scene.window;
        request.width = std::max(1, width);
        request.unitCategory = s.unitCategory;
        request.unitTarget = s.unitTarget;
        return request;
    };
    const auto jobsFor = [&](int width, bool ranges) {
        QVector<GraphDecimator::Job> jobs;
        for (const Series &s : qAsConst(m_scene.series)) {
            if (s.var && (!ranges || s.item.autoRange))
                jobs.append({s.item.pair().key(), s.var, requestFor(s, width)});
        }
        return jobs;
    };
    m_decimator->prepareRanges(jobsFor(1, true));
    for (const Series &s : qAsConst(m_scene.series)) {
        Axis axis;
        if (s.item.autoRange) {
            double lo = std::numeric_limits<double>::quiet_NaN();
            double hi = lo;
            if (s.var)
                m_decimator->valueRange(s.item.pair().key(), *s.var, requestFor(s, 1), &lo, &hi);
            GraphTicks::autoRange(lo, hi, yTicks, &axis.low, &axis.high);
        } else {
            axis.low = s.item.minimum;
            axis.high = s.item.maximum > s.item.minimum ? s.item.maximum : s.item.minimum + 1.0;
        }
        axis.step = GraphTicks::niceStep(axis.high - axis.low, yTicks);
        axis.ticks = GraphTicks::values(axis.low, axis.high, axis.step);
        axis.decimals = GraphTicks::decimalsFor(axis.step);
        m_axes.append(axis);
    }

    // Even items on the left, odd ones on the right, the first of each side next to the plot.
    const int timeLabel = fm.horizontalAdvance(QStringLiteral("00:00:00")) / 2 + kGap;
    int left = 0;
    int right = 0;
    QVector<int> widths(n);
    for (int i = 0; i < n; ++i) {
        widths[i] = axisWidth(m_axes.at(i));
        (i % 2 == 0 ? left : right) += widths.at(i);
    }
    left = std::max(left, timeLabel);
    right = std::max(right, timeLabel);
    m_plot = QRect(left, top, std::max(0, size.width() - left - right), plotHeight);
    int leftEdge = m_plot.left();
    int rightEdge = m_plot.right() + 1;
    for (int i = 0; i < n; ++i) {
        Axis &axis = m_axes[i];
        axis.left = i % 2 == 0;
        if (axis.left) {
            leftEdge -= widths.at(i);
            axis.rect = QRect(leftEdge, m_plot.top(), widths.at(i), m_plot.height());
        } else {
            axis.rect = QRect(rightEdge, m_plot.top(), widths.at(i), m_plot.height());
            rightEdge += widths.at(i);
        }
    }

    m_results.clear();
    m_results.reserve(n);
    m_traces.resize(n);
    if (m_plot.width() > 0)
        m_decimator->prepareColumns(jobsFor(m_plot.width(), false));
    for (const Series &s : qAsConst(m_scene.series)) {
        if (s.var && m_plot.width() > 0)
            m_results.append(
                m_decimator->columns(s.item.pair().key(), *s.var, requestFor(s, m_plot.width())));
        else
            m_results.append(GraphDecimator::Result());
    }

    const int labelWidth = fm.horizontalAdvance(QStringLiteral("00:00:00.00")) + 4 * kGap;
    m_timeStep = GraphTicks::timeStep(m_scene.window, std::max(1, m_plot.width() / labelWidth));
    m_timeTicks.clear();
    const qint64 first = m_scene.from >= 0 ? (m_scene.from + m_timeStep - 1) / m_timeStep * m_timeStep
                                           : -((-m_scene.from) / m_timeStep * m_timeStep);
    for (qint64 t = first; t <= m_scene.from + m_scene.window && m_timeTicks.size() < 1000; t += m_timeStep)
        m_timeTicks.append(t);
}

void GraphRenderer::setVariables(const QVector<const TelemetryVar *> &variables)
{
    for (int i = 0; i < m_scene.series.size() && i < variables.size(); ++i)
        m_scene.series[i].var = variables.at(i);
}

GraphSeriesPainter::Mapping GraphRenderer::mapping(int series) const
{
    GraphSeriesPainter::Mapping m;
    m.plot = m_plot;
    m.low = m_axes.at(series).low;
    m.high = m_axes.at(series).high;
    return m;
}

qint64 GraphRenderer::timeAtX(double x) const
{
    if (m_plot.width() <= 0)
        return m_scene.from;
    return m_scene.from + qRound64((x - m_plot.left()) * double(m_scene.window) / m_plot.width());
}

double GraphRenderer::xAtTime(qint64 t) const
{
    return m_plot.left() + double(t - m_scene.from) * m_plot.width() / double(m_scene.window);
}

void GraphRenderer::render(QImage *image) const
{
    const GraphTheme theme = GraphTheme::forIndex(m_scene.theme);
    image->fill(theme.background);
    if (m_plot.width() <= 0 || m_plot.height() <= 0)
        return;
    // Straight lines are written into the image directly: the raster painter takes longer over one long
    // vertical line than over a whole axis of text.
    const int top = m_plot.top();
    const int bottom = m_plot.bottom();
    if (m_scene.timeGrid) {
        for (qint64 t : m_timeTicks)
            vline(image, int(std::floor(xAtTime(t))), top, bottom, theme.grid.rgb(), 4, 3);
    }
    for (int i = 0; i < m_axes.size(); ++i) {
        if (!m_scene.series.at(i).item.showGrid)
            continue;
        const QRgb color = mix(seriesColor(m_scene.series.at(i).item), theme.background, 0.45);
        const GraphSeriesPainter::Mapping m = mapping(i);
        for (double v : m_axes.at(i).ticks)
            hline(image, m_plot.left(), m_plot.right(), top + int(std::floor(m.rowOf(v) + 0.5)), color, 1, 2);
    }
    // Every fill goes under every line.
    QVector<GraphSeriesPainter::Layer> layers;
    for (int i = 0; i < m_results.size(); ++i) {
        const GraphItem &item = m_scene.series.at(i).item;
        GraphSeriesPainter::Layer layer;
        layer.mapping = mapping(i);
        layer.result = &m_results.at(i);
        layer.style.color = seriesColor(item);
        layer.style.lineWidth = item.lineWidth;
        layer.style.fill = item.fill;
        layer.style.fillAlpha = item.fillAlpha;
        layer.trace = &m_traces[i];
        GraphSeriesPainter::draw(image, layer.mapping, *layer.result, layer.style, GraphSeriesPainter::Fill);
        layers.append(layer);
    }
    GraphSeriesPainter::drawLines(image, layers);
    const QRgb axis = theme.axis.rgb();
    hline(image, m_plot.left(), m_plot.right(), top, axis);
    hline(image, m_plot.left(), m_plot.right(), bottom, axis);
    vline(image, m_plot.left(), top, bottom, axis);
    vline(image, m_plot.right(), top, bottom, axis);
    for (qint64 t : m_timeTicks)
        vline(image, int(std::floor(xAtTime(t))), bottom + 1, bottom + kTick, axis);

    QPainter p(image);
    p.setFont(m_font);
    if (m_scene.markers)
        drawMarkers(image, &p, theme);
    drawTimeAxis(&p, theme);
    for (int i = 0; i < m_axes.size(); ++i)
        drawAxis(image, &p, i);
    if (m_scene.series.isEmpty() && !m_scene.emptyText.isEmpty()) {
        QColor color = theme.text;
        color.setAlpha(150);
        p.setPen(color);
        p.drawText(m_plot, Qt::AlignCenter | Qt::TextWordWrap, m_scene.emptyText);
    }
}

const QStaticText &GraphRenderer::staticText(const QString &text) const
{
    auto it = m_texts.find(text);
    if (it == m_texts.end()) {
        // Labels repeat from one drawing to the next; the cache only needs a bound, not an order.
        if (m_texts.size() > 4000)
            m_texts.clear();
        QStaticText label(text);
        label.setTextFormat(Qt::PlainText);
        label.prepare(QTransform(), m_font);
        it = m_texts.insert(text, label);
    }
    return *it;
}

void GraphRenderer::drawLabel(QPainter *painter, const QString &text, int x, int y, Qt::Alignment align) const
{
    const QStaticText &label = staticText(text);
    const QSizeF size = label.size();
    double left = x;
    if (align & Qt::AlignRight)
        left = x - size.width();
    else if (align & Qt::AlignHCenter)
        left = x - size.width() / 2;
    painter->drawStaticText(QPointF(std::round(left), std::round(y - size.height() / 2)), label);
}

void GraphRenderer::drawTimeAxis(QPainter *painter, const GraphTheme &theme) const
{
    const QFontMetrics fm(m_font);
    painter->setPen(theme.text);
    const int y = m_plot.bottom() + kTick + kGap + fm.height() / 2;
    for (qint64 t : m_timeTicks)
        drawLabel(painter, GraphTicks::timeText(t, m_timeStep), int(std::floor(xAtTime(t))), y,
                  Qt::AlignHCenter);
}

void GraphRenderer::drawAxis(QImage *image, QPainter *painter, int index) const
{
    const Axis &axis = m_axes.at(index);
    const Series &series = m_scene.series.at(index);
    // The axis of a variable the recording lacks is greyed: there is nothing on it to read.
    const GraphTheme theme = GraphTheme::forIndex(m_scene.theme);
    const QColor color =
        series.var ? seriesColor(series.item) : QColor(mix(theme.text, theme.background, 0.45));
    const QFontMetrics fm(m_font);
    const GraphSeriesPainter::Mapping m = mapping(index);
    const int lineX = axis.left ? axis.rect.right() : axis.rect.left();
    const int dir = axis.left ? -1 : 1;
    // A locked axis is drawn twice as thick.
    vline(image, lineX, axis.rect.top(), axis.rect.bottom(), color.rgb());
    if (series.item.locked)
        vline(image, lineX + dir, axis.rect.top(), axis.rect.bottom(), color.rgb());
    painter->setPen(color);
    const int labelWidth = axis.rect.width() - fm.height() - 3 * kGap - kTick;
    for (double v : axis.ticks) {
        const int y = m_plot.top() + int(std::floor(m.rowOf(v) + 0.5));
        hline(image, std::min(lineX, lineX + dir * kTick), std::max(lineX, lineX + dir * kTick), y,
              color.rgb());
        // Labels nearly always fit; measuring the prepared text is far cheaper than eliding.
        QString text = GraphTicks::valueText(v, axis.decimals);
        if (staticText(text).size().width() > labelWidth)
            text = fm.elidedText(text, Qt::ElideRight, labelWidth);
        drawLabel(painter, text, lineX + dir * (kTick + kGap), y, axis.left ? Qt::AlignRight : Qt::AlignLeft);
    }
    // The title reads along the axis, on its outer side.
    const QString title = fm.elidedText(series.label, Qt::ElideRight, axis.rect.height());
    painter->save();
    const int band = axis.left ? axis.rect.left() : axis.rect.right() - fm.height();
    painter->translate(band + fm.height() / 2.0, axis.rect.center().y());
    painter->rotate(axis.left ? -90 : 90);
    painter->drawText(QRectF(-axis.rect.height() / 2.0, -fm.height() / 2.0, axis.rect.height(), fm.height()),
                      Qt::AlignCenter, title);
    painter->restore();
}

QRect GraphRenderer::markerRect(const TelemetryMessage &message) const
{
    const int x = int(std::floor(xAtTime(message.timestamp)));
    return QRect(x - kIconSize / 2, m_plot.top() - kIconSize - 1, kIconSize, kIconSize);
}

void GraphRenderer::drawMarkers(QImage *image, QPainter *painter, const GraphTheme &theme) const
{
    const qint64 to = m_scene.from + m_scene.window;
    for (const TelemetryMessage &message : m_scene.messages) {
        if (message.timestamp < m_scene.from || message.timestamp > to)
            continue;
        const QRect r = markerRect(message);
        const QRgb line = mix(message.isAlarm() ? kAlarmColor : theme.axis, theme.background, 0.7);
        vline(image, r.left() + kIconSize / 2, m_plot.top() + 1, m_plot.bottom() - 1, line, 3, 3);
        painter->drawImage(r, icon(message.isAlarm()));
    }
}

void GraphRenderer::renderCursor(QPainter *painter, qint64 t) const
{
    const double xf = xAtTime(t);
    if (m_plot.width() <= 0 || xf < m_plot.left() || xf >= m_plot.left() + m_plot.width())
        return;
    const GraphTheme theme = GraphTheme::forIndex(m_scene.theme);
    const QFontMetrics fm(m_font);
    const int x = int(std::floor(xf));
    painter->save();
    painter->setFont(m_font);
    QColor lineColor = theme.text;
    lineColor.setAlpha(170);
    painter->fillRect(QRect(x, m_plot.top(), 1, m_plot.height()), lineColor);

    QStringList texts{GraphTicks::cursorTimeText(t)};
    QVector<QColor> colors{theme.text};
    painter->setRenderHint(QPainter::Antialiasing, true);
    for (int i = 0; i < m_scene.series.size(); ++i) {
        const Series &s = m_scene.series.at(i);
        const QColor color = seriesColor(s.item);
        double value = std::numeric_limits<double>::quiet_NaN();
        int decimals = 2;
        if (s.var) {
            value = valueAt(*s.var, t, s.unitCategory, s.unitTarget);
            decimals = decimalsOf(*s.var, s.unitTarget);
        }
        if (std::isfinite(value)) {
            const double y = m_plot.top() + mapping(i).rowOf(value) + 0.5;
            if (y >= m_plot.top() && y <= m_plot.bottom() + 1) {
                painter->setPen(QPen(theme.background, 1.5));
                painter->setBrush(color);
                painter->drawEllipse(QPointF(x + 0.5, y), 3.5, 3.5);
            }
        }
        texts << tr("%1: %2").arg(s.label, GraphTicks::valueText(value, decimals));
        colors << color;
    }
    int w = 0;
    for (const QString &text : qAsConst(texts))
        w = std::max(w, fm.horizontalAdvance(text));
    const QSize box(w + 4 * kGap, texts.size() * fm.height() + 2 * kGap);
    int left = x + 8;
    if (left + box.width() > m_plot.right())
        left = x - 8 - box.width();
    const QRect frame(QPoint(std::max(m_plot.left() + 1, left), m_plot.top() + kGap), box);
    QColor back = theme.background;
    back.setAlpha(225);
    painter->setPen(theme.axis);
    painter->setBrush(back);
    painter->drawRoundedRect(QRectF(frame).adjusted(0.5, 0.5, -0.5, -0.5), 3, 3);
    painter->setRenderHint(QPainter::Antialiasing, false);
    for (int i = 0; i < texts.size(); ++i) {
        painter->setPen(colors.at(i));
        painter->drawText(
            QRect(frame.left() + 2 * kGap, frame.top() + kGap + i * fm.height(), w, fm.height()),
            Qt::AlignLeft | Qt::AlignVCenter, texts.at(i));
    }
    painter->restore();
}

int GraphRenderer::axisAt(const QPoint &pos) const
{
    for (int i = 0; i < m_axes.size(); ++i) {
        if (m_axes.at(i).rect.contains(pos))
            return i;
    }
    return -1;
}

int GraphRenderer::nearestSeries(const QPoint &pos) const
{
    if (!m_plot.contains(pos))
        return -1;
    const int column = pos.x() - m_plot.left();
    const double row = pos.y() - m_plot.top();
    const qint64 t = timeAtX(pos.x() + 0.5);
    int best = -1;
    double bestDistance = std::numeric_limits<double>::infinity();
    for (int i = 0; i < m_scene.series.size(); ++i) {
        const Series &s = m_scene.series.at(i);
        if (!s.var)
            continue;
        const GraphSeriesPainter::Mapping m = mapping(i);
        double top = 0;
        double bottom = 0;
        const QVector<GraphDecimator::Column> &columns = m_results.at(i).columns;
        const auto it = std::lower_bound(columns.begin(), columns.end(), column,
                                         [](const GraphDecimator::Column &c, int x) { return c.x < x; });
        if (it != columns.end() && it->x == column && it->count > 1) {
            top = m.rowOf(it->maximum);
            bottom = m.rowOf(it->minimum);
        } else {
            const double v = valueAt(*s.var, t, s.unitCategory, s.unitTarget);
            if (!std::isfinite(v))
                continue;
            top = bottom = m.rowOf(v);
        }
        const double distance = row < top ? top - row : row > bottom ? row - bottom : 0.0;
        if (distance < bestDistance) {
            bestDistance = distance;
            best = i;
        }
    }
    return best;
}

int GraphRenderer::markerAt(const QPoint &pos) const
{
    if (!m_scene.markers)
        return -1;
    const qint64 to = m_scene.from + m_scene.window;
    for (int i = 0; i < m_scene.messages.size(); ++i) {
        const TelemetryMessage &message = m_scene.messages.at(i);
        if (message.timestamp >= m_scene.from && message.timestamp <= to && markerRect(message).contains(pos))
            return i;
    }
    return -1;
}

double GraphRenderer::valueAt(const TelemetryVar &var, qint64 t, quint8 unitCategory, quint8 unitTarget)
{
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    const QVector<TelemetryValue> &values = var.values();
    const int n = values.size();
    if (n == 0 || t < values.constFirst().timestamp)
        return nan;
    const auto it = std::upper_bound(values.cbegin(), values.cend(), t,
                                     [](qint64 t, const TelemetryValue &v) { return t < v.timestamp; });
    const int i = int(it - values.cbegin()) - 1;
    const TelemetryValue &a = values.at(i);
    const auto convert = [=](double x) { return TelemetryUnits::convert(x, unitCategory, unitTarget); };
    if (i == n - 1)
        return t - a.timestamp < TelemetryVar::kGapLimitMs ? convert(a.toNumber()) : nan;
    const TelemetryValue &b = values.at(i + 1);
    if (qint64(b.timestamp) - a.timestamp >= TelemetryVar::kGapLimitMs)
        return t == a.timestamp ? convert(a.toNumber()) : nan;
    const double x = a.toNumber();
    const double y = b.toNumber();
    return convert(x + (y - x) * double(t - a.timestamp) / double(b.timestamp - a.timestamp));
}

int GraphRenderer::decimalsOf(const TelemetryVar &var, quint8 unitTarget)
{
    if (var.values().isEmpty())
        return 2;
    const TelemetryValue &v = var.values().constLast();
    switch (v.type) {
    case TelemetryTypes::GpsCoordinate:
        return 5;
    case TelemetryTypes::TimeOrDate:
        return (v.decimals & 1) ? 2 : 0;
    case 0:
    case 1:
    case 4:
    case 8:
    case 12: {
        int decimals = std::min(6, int(v.decimals & 0xFF));
        if (unitTarget != 0) {
            // A unit smaller in number (m to km) needs more decimals to say the same.
            const double factor = std::abs(TelemetryUnits::convert(1.0, var.unitCategory(), unitTarget) -
                                           TelemetryUnits::convert(0.0, var.unitCategory(), unitTarget));
            if (factor > 0 && factor < 1)
                decimals += int(std::ceil(-std::log10(factor) - 1e-9));
        }
        return std::min(6, decimals);
    }
    default:
        return 2;
    }
}
