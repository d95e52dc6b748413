#include "widgets/graph/GraphDecimator.h"

#include "telemetry/TelemetryUnits.h"

#include <QThread>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <system_error>
#include <thread>

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

// Helper threads besides the caller's for work split over the cores.
int helperThreads()
{
    return std::clamp(QThread::idealThreadCount() - 1, 0, 3);
}

// Runs work(i) for every i in [0, n), spread over the calling thread and helpers or on the caller alone,
// and returns when all are done. Each i must touch only its own data.
template <typename Work> void runShared(int n, bool spread, const Work &work)
{
    std::atomic<int> next{0};
    const auto loop = [&] {
        for (int i = next++; i < n; i = next++)
            work(i);
    };
    std::vector<std::thread> helpers;
    for (int h = spread ? std::min(helperThreads(), n - 1) : 0; h > 0; --h) {
        try {
            helpers.emplace_back(loop);
        } catch (const std::system_error &) {
            break; // no thread to be had: the caller does the rest
        }
    }
    loop();
    for (std::thread &t : helpers)
        t.join();
}

// Smallest, largest and sum of the numbers of one first-level block. Blocks are nearly always one device's
// plain numbers with fixed decimals: those are compared and added as integers without branches, and only
// the results are converted.
void blockSummary(const TelemetryValue *v, const double *powersOfTen, double *minimum, double *maximum,
                  double *sum)
{
    constexpr int n = GraphDecimator::kBlock;
    const quint64 h = header(v[0]);
    quint64 differs = 0;
    qint32 lo = v[0].value;
    qint32 hi = v[0].value;
    qint64 total = v[0].value;
    for (int k = 1; k < n; ++k) {
        differs |= header(v[k]) ^ h;
        const qint32 x = v[k].value;
        lo = x < lo ? x : lo;
        hi = x > hi ? x : hi;
        total += x;
    }
    if (differs == 0 && isLinear(v[0].type)) {
        const double scale = powersOfTen[v[0].decimals & 0xFF];
        *minimum = double(lo) / scale;
        *maximum = double(hi) / scale;
        *sum = double(total) / scale;
        return;
    }
    *minimum = std::numeric_limits<double>::infinity();
    *maximum = -std::numeric_limits<double>::infinity();
    rawMinMax(v, 0, n, minimum, maximum);
    double s = 0;
    for (int k = 0; k < n; ++k)
        s += v[k].toNumber();
    *sum = s;
}

void summarizeBlocks(const TelemetryValue *v, int begin, int end, double *mins, double *maxs, double *sums)
{
    const double *powersOfTen = TelemetryValue::powersOfTen();
    for (int b = begin; b < end; ++b)
        blockSummary(v + qint64(b) * GraphDecimator::kBlock, powersOfTen, &mins[b], &maxs[b], &sums[b]);
}

double rawSum(const TelemetryValue *v, int begin, int end)
{
    double s = 0;
    for (int i = begin; i < end; ++i)
        s += v[i].toNumber();
    return s;
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

bool GraphDecimator::isCurrent(const Entry &entry, const QVector<TelemetryValue> &values,
                               const Request &request)
{
    const int n = values.size();
    return entry.count == n && entry.data == values.constData() && entry.request == request &&
           (n == 0 || (sameSample(entry.firstSample, values.constFirst()) &&
                       sameSample(entry.lastSample, values.constLast())));
}

void GraphDecimator::keep(Entry *entry, const QVector<TelemetryValue> &values, const Request &request)
{
    entry->request = request;
    entry->data = values.constData();
    entry->count = values.size();
    if (!values.isEmpty()) {
        entry->firstSample = values.constFirst();
        entry->lastSample = values.constLast();
    }
}

const GraphDecimator::Result &GraphDecimator::columns(quint64 key, const TelemetryVar &var,
                                                      const Request &request)
{
    const QVector<TelemetryValue> &values = var.values();
    Entry &entry = entryFor(key, values);
    if (isCurrent(entry, values, request)) {
        ++m_hits;
        return entry.result;
    }
    ++m_misses;
    compute(var, request, &entry.summary, &entry.result);
    keep(&entry, values, request);
    return entry.result;
}

QVector<QPair<GraphDecimator::Entry *, const GraphDecimator::Job *>>
GraphDecimator::entriesFor(const QVector<Job> &jobs)
{
    QVector<const Job *> firsts;
    for (const Job &job : jobs) {
        const auto seen = [&job](const Job *other) { return other->key == job.key; };
        if (job.var && std::none_of(firsts.cbegin(), firsts.cend(), seen)) {
            firsts.append(&job);
            entryFor(job.key, job.var->values());
        }
    }
    // Pointers only once every entry exists: an insert may move the others.
    QVector<QPair<Entry *, const Job *>> entries;
    for (const Job *job : qAsConst(firsts))
        entries.append({&m_entries[job->key], job});
    return entries;
}

void GraphDecimator::prepareRanges(const QVector<Job> &jobs)
{
    QVector<QPair<Entry *, const Job *>> pending;
    qint64 samples = 0;
    for (const auto &entry : entriesFor(jobs)) {
        const int end = summaryEnd(entry.second->var->values(), entry.second->request);
        if (end / kBlock > entry.first->summary.covered / kBlock) {
            pending.append(entry);
            samples += end - entry.first->summary.covered;
        }
    }
    // One variable alone shares its own summary out; several are shared out whole.
    const bool whole = pending.size() > 1 && samples >= kParallelSamples;
    const auto work = [&pending, whole](int i) {
        const Job &job = *pending.at(i).second;
        extendSummary(job.var->values(), summaryEnd(job.var->values(), job.request),
                      &pending.at(i).first->summary, !whole);
    };
    runShared(pending.size(), whole, work);
}

void GraphDecimator::prepareColumns(const QVector<Job> &jobs)
{
    QVector<QPair<Entry *, const Job *>> pending;
    qint64 samples = 0;
    for (const auto &entry : entriesFor(jobs)) {
        const Job &job = *entry.second;
        if (!isCurrent(*entry.first, job.var->values(), job.request)) {
            pending.append(entry);
            samples += job.var->count();
        }
    }
    // Largest first, so that no core is left with a big one at the end.
    std::stable_sort(pending.begin(), pending.end(), [](const auto &a, const auto &b) {
        return a.second->var->count() > b.second->var->count();
    });
    const bool whole = pending.size() > 1 && samples >= kParallelSamples;
    const auto work = [&pending, whole](int i) {
        const Job &job = *pending.at(i).second;
        compute(*job.var, job.request, &pending.at(i).first->summary, &pending.at(i).first->result, !whole);
    };
    runShared(pending.size(), whole, work);
    for (const auto &entry : qAsConst(pending)) {
        ++m_misses;
        keep(entry.first, entry.second->var->values(), entry.second->request);
    }
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

GraphDecimator::SpanStats GraphDecimator::spanStats(quint64 key, const TelemetryVar &var, qint64 from,
                                                    qint64 to, quint8 unitCategory, quint8 unitTarget)
{
    SpanStats stats;
    const QVector<TelemetryValue> &values = var.values();
    const int n = values.size();
    if (n == 0 || to < from)
        return stats;
    const TelemetryValue *v = values.constData();
    const int i0 = lowerBound(v, 0, n, from);
    const int i1 = to == std::numeric_limits<qint64>::max() ? n : lowerBound(v, i0, n, to + 1);
    if (i1 <= i0)
        return stats;
    Entry &entry = entryFor(key, values);
    Summary &summary = entry.summary;
    double mn = std::numeric_limits<double>::infinity();
    double mx = -std::numeric_limits<double>::infinity();
    double sum = 0;
    const int firstBlock = (i0 + kBlock - 1) / kBlock;
    const int lastBlock = i1 / kBlock;
    if (i1 - i0 > kSummaryThreshold) {
        extendSummary(values, i1, &summary);
        rangeMinMax(values, summary, i0, i1, &mn, &mx);
        sum = rawSum(v, i0, firstBlock * kBlock) +
              (summary.prefixSum[size_t(lastBlock)] - summary.prefixSum[size_t(firstBlock)]) +
              rawSum(v, lastBlock * kBlock, i1);
    } else {
        rawMinMax(v, i0, i1, &mn, &mx);
        sum = rawSum(v, i0, i1);
    }
    // Unit conversions are linear (a scale and an offset), so the mean converts like a value.
    const auto convert = [=](double x) { return TelemetryUnits::convert(x, unitCategory, unitTarget); };
    stats.samples = i1 - i0;
    stats.minimum = convert(mn);
    stats.maximum = convert(mx);
    stats.mean = convert(sum / stats.samples);
    return stats;
}

bool GraphDecimator::summarize(quint64 key, const TelemetryVar &var, int maxSamples)
{
    const QVector<TelemetryValue> &values = var.values();
    if (values.size() <= kSummaryThreshold)
        return true;
    Entry &entry = entryFor(key, values);
    const int target = int(std::min<qint64>(values.size(), qint64(entry.summary.covered) + maxSamples));
    extendSummary(values, target, &entry.summary, false); // idle work in small slices stays on this thread
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

int GraphDecimator::summaryEnd(const QVector<TelemetryValue> &values, const Request &request)
{
    const TelemetryValue *v = values.constData();
    const int n = values.size();
    const int i0 = lowerBound(v, 0, n, request.from);
    const int i1 = lowerBound(v, i0, n, request.from + request.span);
    return i1 - i0 > kSummaryThreshold ? i1 : 0;
}

void GraphDecimator::compute(const TelemetryVar &var, const Request &request, Summary *summary,
                             Result *result, bool share)
{
    static std::atomic<quint64> generations{0};
    *result = Result();
    result->generation = ++generations;
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
        extendSummary(values, i1, summary, share);

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

void GraphDecimator::extendSummary(const QVector<TelemetryValue> &values, int upTo, Summary *summary,
                                   bool share)
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
    summary->minimum[0].resize(size_t(blocks));
    summary->maximum[0].resize(size_t(blocks));
    std::vector<double> sums(size_t(blocks - have));
    double *mins = summary->minimum[0].data();
    double *maxs = summary->maximum[0].data();
    double *blockSums = sums.data() - have;
    // A whole recording is read once here, which is more than one core can do within a frame. The records
    // are only read and each share writes its own blocks, so the work splits without locks.
    const int todo = blocks - have;
    const int shares = share && todo >= kParallelBlocks ? helperThreads() + 1 : 1;
    runShared(shares, shares > 1, [=](int k) {
        summarizeBlocks(v, have + int(qint64(todo) * k / shares), have + int(qint64(todo) * (k + 1) / shares),
                        mins, maxs, blockSums);
    });
    // Running sums over whole blocks: the sum of any stretch is two look-ups and its ragged ends.
    if (summary->prefixSum.empty())
        summary->prefixSum.push_back(0.0);
    for (double blockSum : sums)
        summary->prefixSum.push_back(summary->prefixSum.back() + blockSum);
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
