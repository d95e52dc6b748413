#include "widgets/GraphDecimator.h"

#include "telemetry/TelemetryUnits.h"

#include <algorithm>
#include <cstring>

namespace {
quint64 header(const TelemetryValue &v)
{
    quint64 h;
    std::memcpy(&h, &v, sizeof h); // type and decimals, the first 8 bytes
    return h;
}

bool sameSample(const TelemetryValue &a, const TelemetryValue &b)
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// For these types the number grows with the raw value at fixed decimals, so a run of samples with one
// header can be compared as integers and only its extremes converted.
bool isLinear(quint32 type)
{
    return type == 0 || type == 1 || type == 4 || type == 8 || type == 12;
}

void rawMinMax(const TelemetryValue *v, int begin, int end, double *minimum, double *maximum)
{
    int i = begin;
    while (i < end) {
        const TelemetryValue &head = v[i];
        if (isLinear(head.type)) {
            const quint64 h = header(head);
            qint32 lo = head.value;
            qint32 hi = head.value;
            ++i;
            for (; i < end && header(v[i]) == h; ++i) {
                const qint32 x = v[i].value;
                lo = x < lo ? x : lo;
                hi = x > hi ? x : hi;
            }
            TelemetryValue probe = head;
            probe.value = lo;
            *minimum = std::min(*minimum, probe.toNumber());
            probe.value = hi;
            *maximum = std::max(*maximum, probe.toNumber());
        } else {
            const double x = head.toNumber();
            *minimum = std::min(*minimum, x);
            *maximum = std::max(*maximum, x);
            ++i;
        }
    }
}

// First index in [begin, end) whose timestamp is at or after t.
int lowerBound(const TelemetryValue *v, int begin, int end, qint64 t)
{
    // Columns usually hold few samples: look at the next ones before searching.
    for (int probe = 0; probe < 4 && begin < end; ++probe, ++begin) {
        if (v[begin].timestamp >= t)
            return begin;
    }
    if (begin >= end || v[end - 1].timestamp < t)
        return end;
    // Samples come at a fairly steady rate: guess from the density of what is left, then gallop from
    // the guess to a bracket and search it. Memory near the guess is all that is touched.
    const qint64 spanLeft = qint64(v[end - 1].timestamp) - v[begin].timestamp;
    int guess = begin;
    if (spanLeft > 0)
        guess = begin + int(std::clamp<qint64>((t - v[begin].timestamp) * (end - 1 - begin) / spanLeft, 0,
                                               end - 1 - begin));
    int lo = begin;
    int hi = end;
    if (v[guess].timestamp < t) {
        lo = guess + 1;
        for (int step = 1; lo < end; step *= 2) {
            const int probe = std::min(end - 1, guess + step);
            if (v[probe].timestamp >= t) {
                hi = probe;
                break;
            }
            lo = probe + 1;
        }
    } else {
        hi = guess;
        for (int step = 1; hi > begin; step *= 2) {
            const int probe = std::max(begin, guess - step);
            if (v[probe].timestamp < t) {
                lo = probe + 1;
                break;
            }
            hi = probe;
        }
    }
    const TelemetryValue *it = std::lower_bound(
        v + lo, v + hi, t, [](const TelemetryValue &x, qint64 t) { return x.timestamp < t; });
    return int(it - v);
}
} // namespace

GraphDecimator::Entry &GraphDecimator::entryFor(quint64 key, const QVector<TelemetryValue> &values)
{
    Entry &entry = m_entries[key];
    // Live data only appends; anything else (a cut, a new log) makes the summary useless.
    Summary &summary = entry.summary;
    if (summary.covered > values.size() ||
        (summary.covered > 0 && (!sameSample(summary.firstSample, values.at(0)) ||
                                 !sameSample(summary.lastSample, values.at(summary.covered - 1)))))
        summary = Summary();
    return entry;
}

const GraphDecimator::Result &GraphDecimator::columns(quint64 key, const TelemetryVar &var,
                                                      const Request &request)
{
    const QVector<TelemetryValue> &values = var.values();
    Entry &entry = entryFor(key, values);
    const int n = values.size();
    const bool sameData = entry.count == n && entry.data == values.constData() &&
                          (n == 0 || (sameSample(entry.firstSample, values.constFirst()) &&
                                      sameSample(entry.lastSample, values.constLast())));
    if (sameData && entry.request == request) {
        ++m_hits;
        return entry.result;
    }
    ++m_misses;
    compute(var, request, &entry.summary, &entry.result);
    entry.request = request;
    entry.data = values.constData();
    entry.count = n;
    if (n > 0) {
        entry.firstSample = values.constFirst();
        entry.lastSample = values.constLast();
    }
    return entry.result;
}

bool GraphDecimator::valueRange(quint64 key, const TelemetryVar &var, const Request &request, double *low,
                                double *high)
{
    const QVector<TelemetryValue> &values = var.values();
    const int n = values.size();
    if (n == 0 || request.span <= 0)
        return false;
    Entry &entry = entryFor(key, values);
    const TelemetryValue *v = values.constData();
    const int i0 = lowerBound(v, 0, n, request.from);
    const int i1 = lowerBound(v, i0, n, request.from + request.span);
    double mn = std::numeric_limits<double>::infinity();
    double mx = -std::numeric_limits<double>::infinity();
    if (i1 > i0) {
        if (i1 - i0 > kSummaryThreshold)
            extendSummary(values, i1, &entry.summary);
        rangeMinMax(values, entry.summary, i0, i1, &mn, &mx);
    } else {
        // Zoomed in between two samples: the line between them sets the range.
        for (int i : {i0 - 1, i1}) {
            if (i >= 0 && i < n) {
                mn = std::min(mn, v[i].toNumber());
                mx = std::max(mx, v[i].toNumber());
            }
        }
    }
    *low = TelemetryUnits::convert(mn, request.unitCategory, request.unitTarget);
    *high = TelemetryUnits::convert(mx, request.unitCategory, request.unitTarget);
    return true;
}

bool GraphDecimator::summarize(quint64 key, const TelemetryVar &var, int maxSamples)
{
    const QVector<TelemetryValue> &values = var.values();
    if (values.size() <= kSummaryThreshold)
        return true;
    Entry &entry = entryFor(key, values);
    const int target = int(std::min<qint64>(values.size(), qint64(entry.summary.covered) + maxSamples));
    extendSummary(values, target, &entry.summary);
    return entry.summary.covered >= values.size() / kBlock * kBlock;
}

void GraphDecimator::remove(quint64 key)
{
    m_entries.remove(key);
}

void GraphDecimator::clear()
{
    m_entries.clear();
}

int GraphDecimator::summarized(quint64 key) const
{
    const auto it = m_entries.constFind(key);
    return it == m_entries.constEnd() ? 0 : it->summary.covered;
}

void GraphDecimator::compute(const TelemetryVar &var, const Request &request, Summary *summary,
                             Result *result)
{
    *result = Result();
    const QVector<TelemetryValue> &values = var.values();
    const int n = values.size();
    if (n == 0 || request.span <= 0 || request.width <= 0)
        return;
    const TelemetryValue *v = values.constData();
    const qint64 from = request.from;
    const qint64 span = request.span;
    const qint64 width = request.width;
    const qint64 to = from + span;
    const auto convert = [&request](double x) {
        return TelemetryUnits::convert(x, request.unitCategory, request.unitTarget);
    };
    const auto xOf = [from, span, width](qint64 t) {
        return double(t - from) * double(width) / double(span);
    };
    const auto gapAt = [v](int i) { return qint64(v[i].timestamp) - v[i - 1].timestamp >= kGapLimitMs; };

    const int i0 = lowerBound(v, 0, n, from);
    const int i1 = lowerBound(v, i0, n, to);
    if (i0 > 0) {
        result->before.valid = true;
        result->before.x = xOf(v[i0 - 1].timestamp);
        result->before.value = convert(v[i0 - 1].toNumber());
        result->before.gap = i0 >= n || gapAt(i0);
    }
    if (i1 < n) {
        result->after.valid = true;
        result->after.x = xOf(v[i1].timestamp);
        result->after.value = convert(v[i1].toNumber());
        result->after.gap = i1 == 0 || gapAt(i1);
    }
    result->samples = i1 - i0;
    if (i1 <= i0)
        return;
    if (i1 - i0 > kSummaryThreshold)
        extendSummary(values, i1, summary);

    result->columns.reserve(int(std::min<qint64>(width, i1 - i0)));
    double lo = std::numeric_limits<double>::infinity();
    double hi = -std::numeric_limits<double>::infinity();
    int i = i0;
    while (i < i1) {
        // Column of sample i, and the first time of the next column.
        const qint64 c = (qint64(v[i].timestamp) - from) * width / span;
        const qint64 boundary = from + ((c + 1) * span + width - 1) / width;
        const int j = lowerBound(v, i + 1, i1, boundary);
        Column column;
        column.x = int(c);
        column.count = j - i;
        column.xFirst = xOf(v[i].timestamp);
        column.xLast = xOf(v[j - 1].timestamp);
        column.first = convert(v[i].toNumber());
        column.last = convert(v[j - 1].toNumber());
        double mn = std::numeric_limits<double>::infinity();
        double mx = -std::numeric_limits<double>::infinity();
        rangeMinMax(values, *summary, i, j, &mn, &mx);
        // Unit conversions keep the order of values, so converting the extremes is enough.
        column.minimum = convert(mn);
        column.maximum = convert(mx);
        column.gapBefore = i > 0 && gapAt(i);
        lo = std::min(lo, column.minimum);
        hi = std::max(hi, column.maximum);
        result->columns.append(column);
        i = j;
    }
    result->minimum = lo;
    result->maximum = hi;
}

void GraphDecimator::extendSummary(const QVector<TelemetryValue> &values, int upTo, Summary *summary)
{
    const int blocks = upTo / kBlock;
    if (summary->minimum.empty()) {
        summary->minimum.emplace_back();
        summary->maximum.emplace_back();
    }
    const int have = int(summary->minimum[0].size());
    if (blocks <= have)
        return;
    const TelemetryValue *v = values.constData();
    summary->minimum[0].reserve(size_t(blocks));
    summary->maximum[0].reserve(size_t(blocks));
    for (int b = have; b < blocks; ++b) {
        double mn = std::numeric_limits<double>::infinity();
        double mx = -std::numeric_limits<double>::infinity();
        rawMinMax(v, b * kBlock, (b + 1) * kBlock, &mn, &mx);
        summary->minimum[0].push_back(mn);
        summary->maximum[0].push_back(mx);
    }
    // Higher levels over whole blocks of the level below.
    for (size_t level = 1; summary->minimum[level - 1].size() >= size_t(kFanOut); ++level) {
        if (summary->minimum.size() <= level) {
            summary->minimum.emplace_back();
            summary->maximum.emplace_back();
        }
        const std::vector<double> &lowMin = summary->minimum[level - 1];
        const std::vector<double> &lowMax = summary->maximum[level - 1];
        std::vector<double> &upMin = summary->minimum[level];
        std::vector<double> &upMax = summary->maximum[level];
        for (size_t b = upMin.size(); b < lowMin.size() / kFanOut; ++b) {
            const auto first = std::ptrdiff_t(b * kFanOut);
            upMin.push_back(*std::min_element(lowMin.begin() + first, lowMin.begin() + first + kFanOut));
            upMax.push_back(*std::max_element(lowMax.begin() + first, lowMax.begin() + first + kFanOut));
        }
    }
    summary->covered = blocks * kBlock;
    summary->firstSample = v[0];
    summary->lastSample = v[summary->covered - 1];
}

void GraphDecimator::rangeMinMax(const QVector<TelemetryValue> &values, const Summary &summary, int begin,
                                 int end, double *minimum, double *maximum)
{
    const TelemetryValue *v = values.constData();
    const int available = summary.minimum.empty() ? 0 : int(summary.minimum[0].size());
    const int first = (begin + kBlock - 1) / kBlock;
    const int last = std::min(end / kBlock, available);
    if (last - first < 2) {
        rawMinMax(v, begin, end, minimum, maximum);
        return;
    }
    rawMinMax(v, begin, first * kBlock, minimum, maximum);
    rawMinMax(v, last * kBlock, end, minimum, maximum);
    levelMinMax(summary, 0, first, last, minimum, maximum);
}

void GraphDecimator::levelMinMax(const Summary &summary, int level, int begin, int end, double *minimum,
                                 double *maximum)
{
    const auto blocks = [&](int b, int e) {
        const std::vector<double> &mn = summary.minimum[size_t(level)];
        const std::vector<double> &mx = summary.maximum[size_t(level)];
        for (int k = b; k < e; ++k) {
            *minimum = std::min(*minimum, mn[size_t(k)]);
            *maximum = std::max(*maximum, mx[size_t(k)]);
        }
    };
    if (size_t(level + 1) < summary.minimum.size()) {
        const int up = int(summary.minimum[size_t(level + 1)].size());
        const int first = (begin + kFanOut - 1) / kFanOut;
        const int last = std::min(end / kFanOut, up);
        if (last > first) {
            blocks(begin, first * kFanOut);
            blocks(last * kFanOut, end);
            levelMinMax(summary, level + 1, first, last, minimum, maximum);
            return;
        }
    }
    blocks(begin, end);
}
