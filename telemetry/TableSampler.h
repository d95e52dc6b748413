#pragma once

#include "telemetry/TableSource.h"

#include <QCoreApplication>
#include <QString>
#include <QVector>

class TelemetryVar;

// Samples variables on a fixed time grid: row k stands for k × period milliseconds from the start of
// the recording, one column per variable. Streams the rows, so a table of any length costs only its
// columns' search positions; the data table window's model fills its columns with the same functions.
class TableSampler : public TableSource
{
    Q_DECLARE_TR_FUNCTIONS(TableSampler)
public:
    static constexpr int kMinPeriodMs = 1;
    static constexpr int kMaxPeriodMs = 3600000;

    // The interpolation mode (TelemetryVar::Interpolation) of the window's two check boxes: "Smooth"
    // interpolates linearly, else "Valid" holds values but leaves gaps empty, else values are held.
    static int modeFor(bool smooth, bool valid);
    // "%1 [%2]": the label and the unit the values are shown in.
    static QString headerText(const TelemetryVar &var);
    // Rows a variable covers: from time 0 up to the first step at or after its last sample; 0 without
    // samples or when it ends before time 0.
    static qint64 rowsFor(const TelemetryVar &var, int periodMs);
    // Where a walk through one variable's samples stands: the search position, and the numbers of the
    // samples around it, which the rows between two samples share.
    struct Cursor
    {
        int index = -1;
        int numberIndex = -1;
        double number = 0;
        int nextIndex = -1;
        double next = 0;
    };
    // The variable's number at a whole millisecond, in its chosen unit, by the value-at-time rules.
    // Callers walking forward in time carry one cursor along and step through the samples once instead
    // of searching for every row; a fresh cursor works for any time. The samples must not change
    // while a cursor is used, apart from new ones appended.
    static double valueAt(const TelemetryVar &var, qint64 ms, int mode, Cursor *cursor);

    TableSampler(int periodMs, int mode);

    int periodMs() const { return m_periodMs; }
    int mode() const { return m_mode; }
    // var may be null: a variable the recording lacks gives an empty column. The variable must stay
    // unchanged while the sampler reads it.
    void addColumn(const TelemetryVar *var, const QString &header);
    void addColumn(const TelemetryVar &var);

    int tableColumns() const override { return m_columns.size(); }
    QString columnHeader(int column) const override { return m_columns.at(column).header; }
    qint64 tableRows() const override { return m_rows; }
    qint64 rowTimeMs(qint64 row) const override { return row * m_periodMs; }
    void readRow(qint64 row, double *out) override;

private:
    struct Column
    {
        const TelemetryVar *var = nullptr;
        QString header;
        qint64 rows = 0;
        Cursor cursor;
    };

    int m_periodMs;
    int m_mode;
    qint64 m_rows = 0;
    QVector<Column> m_columns;
};
