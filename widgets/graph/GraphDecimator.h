#pragma once

#include "telemetry/TelemetryVar.h"

#include <QHash>
#include <QPair>
#include <QVector>

#include <limits>
#include <vector>

// Reduces a variable's samples in a time span to what a given number of pixel columns can show: per
// column the first, last, smallest and largest sample, read from the raw records and converted on the
// fly. The cost follows the number of columns, not the number of samples: a summary of the smallest and
// largest value per block of samples (in levels of 32, 1024, ... samples) is built once per variable and
// extended as live data arrives. Results are cached per key until the data, the span, the width or the
// unit change. No GUI; interface thread only.
class GraphDecimator
{
public:
    static constexpr int kBlock = 32;  // samples per first-level block
    static constexpr int kFanOut = 32; // blocks of one level per block of the next
    static constexpr qint32 kGapLimitMs = TelemetryVar::kGapLimitMs;
    // Spans with fewer samples are read straight from the records.
    static constexpr int kSummaryThreshold = 8192;
    // Work (first-level blocks, or samples in a batch) from which it is shared among the cores.
    static constexpr int kParallelBlocks = 8192;
    static constexpr qint64 kParallelSamples = 1 << 20;

    struct Request
    {
        qint64 from = 0; // ms
        qint64 span = 1; // ms, > 0
        int width = 1;   // columns, > 0
        quint8 unitCategory = 0;
        quint8 unitTarget = 0;

        bool operator==(const Request &o) const
        {
            return from == o.from && span == o.span && width == o.width && unitCategory == o.unitCategory &&
                   unitTarget == o.unitTarget;
        }
    };

    // One pixel column holding at least one sample. x positions are in columns from the span's start,
    // fractional, exact for the first and last sample of the column.
    struct Column
    {
        int x = 0;
        int count = 0;
        double xFirst = 0;
        double xLast = 0;
        double first = 0;
        double minimum = 0;
        double maximum = 0;
        double last = 0;
        bool gapBefore = false; // the previous sample is at least the hold limit earlier
    };

    // The nearest sample outside the span on one side, so the line runs on to the border.
    struct Edge
    {
        bool valid = false;
        double x = 0;
        double value = 0;
        bool gap = false; // no line between it and the nearest sample inside (or across) the span
    };

    struct Result
    {
        QVector<Column> columns;
        Edge before;
        Edge after;
        int samples = 0;                                           // inside the span
        double minimum = std::numeric_limits<double>::quiet_NaN(); // over the span, NaN when empty
        double maximum = std::numeric_limits<double>::quiet_NaN();
        quint64 generation = 0; // differs for every computed result, so what is drawn from it can be kept
    };

    // One variable's share of a drawing, for the batch calls below.
    struct Job
    {
        quint64 key = 0;
        const TelemetryVar *var = nullptr;
        Request request;
    };

    // The cached result for key, recomputed when needed.
    const Result &columns(quint64 key, const TelemetryVar &var, const Request &request);
    // The smallest and largest value in [from, from + span) in the requested unit, whatever the width;
    // for a span without samples, of the samples either side of it. False when there are none at all.
    bool valueRange(quint64 key, const TelemetryVar &var, const Request &request, double *low, double *high);
    // Samples from `from` to `to` (both included) in the requested unit (the request's from and span are
    // ignored): how many, their smallest, largest and mean value. Reads the raw records, the whole blocks
    // through the summary, so its cost follows the number of blocks, not of samples.
    struct SpanStats
    {
        int samples = 0;
        double minimum = std::numeric_limits<double>::quiet_NaN();
        double maximum = std::numeric_limits<double>::quiet_NaN();
        double mean = std::numeric_limits<double>::quiet_NaN();
    };
    SpanStats spanStats(quint64 key, const TelemetryVar &var, qint64 from, qint64 to, quint8 unitCategory,
                        quint8 unitTarget);
    // What valueRange() and columns() would do for each job, with the variables spread over the cores; the
    // calls that follow answer from what is ready. A key is prepared for its first job only.
    void prepareRanges(const QVector<Job> &jobs);
    void prepareColumns(const QVector<Job> &jobs);
    // Extends the block summary of key by up to maxSamples samples, so that a later wide span is quick;
    // true when it covers the variable. For idle time after a load.
    bool summarize(quint64 key, const TelemetryVar &var, int maxSamples);
    // Forget one variable's or every variable's cache and summary (data replaced or cut).
    void remove(quint64 key);
    void clear();

    // Counters for tests and benchmarks.
    int hits() const { return m_hits; }
    int misses() const { return m_misses; }
    // Samples covered by the block summary of key.
    int summarized(quint64 key) const;

private:
    // Smallest and largest number (before unit conversion) per block, per level.
    struct Summary
    {
        std::vector<std::vector<double>> minimum;
        std::vector<std::vector<double>> maximum;
        std::vector<double> prefixSum; // sum of the numbers of first-level blocks [0, k), k = 0 .. blocks
        int covered = 0;               // samples: whole first-level blocks
        TelemetryValue firstSample;
        TelemetryValue lastSample; // the last covered one
    };

    struct Entry
    {
        Summary summary;
        Result result;
        Request request;
        const TelemetryValue *data = nullptr;
        int count = -1;
        TelemetryValue firstSample;
        TelemetryValue lastSample;
    };

    Entry &entryFor(quint64 key, const QVector<TelemetryValue> &values);
    static bool isCurrent(const Entry &entry, const QVector<TelemetryValue> &values, const Request &request);
    static void keep(Entry *entry, const QVector<TelemetryValue> &values, const Request &request);
    // Entries of the jobs' first-seen keys, each with its job; the hash must not change while they are used.
    QVector<QPair<Entry *, const Job *>> entriesFor(const QVector<Job> &jobs);
    // share: the summary may split its work over the cores (false when the caller already does).
    static void compute(const TelemetryVar &var, const Request &request, Summary *summary, Result *result,
                        bool share = true);
    static void extendSummary(const QVector<TelemetryValue> &values, int upTo, Summary *summary,
                              bool share = true);
    // The last sample index + 1 that a span's summary must cover, or 0 when the span is read directly.
    static int summaryEnd(const QVector<TelemetryValue> &values, const Request &request);
    static void rangeMinMax(const QVector<TelemetryValue> &values, const Summary &summary, int begin, int end,
                            double *minimum, double *maximum);
    static void levelMinMax(const Summary &summary, int level, int begin, int end, double *minimum,
                            double *maximum);

    QHash<quint64, Entry> m_entries;
    int m_hits = 0;
    int m_misses = 0;
};
