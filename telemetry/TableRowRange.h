#pragma once

#include "telemetry/TableSource.h"

#include <algorithm>
#include <limits>

// A stretch of consecutive rows of another table, for exporting only part of it (the rows between the
// measuring cursors). The rows keep their times.
class TableRowRange : public TableSource
{
public:
    TableRowRange(TableSource &table, qint64 first, qint64 count)
        : m_table(table), m_first(std::clamp<qint64>(first, 0, table.tableRows())),
          m_count(std::clamp<qint64>(count, 0, table.tableRows() - m_first))
    {
    }

    // The rows whose time lies from fromMs to toMs, both included (row times must grow with the row).
    static TableRowRange between(TableSource &table, qint64 fromMs, qint64 toMs)
    {
        const qint64 first = firstRowAtOrAfter(table, fromMs);
        const qint64 end = toMs == std::numeric_limits<qint64>::max() ? table.tableRows()
                                                                      : firstRowAtOrAfter(table, toMs + 1);
        return TableRowRange(table, first, std::max<qint64>(0, end - first));
    }

    qint64 firstRow() const { return m_first; }
    int tableColumns() const override { return m_table.tableColumns(); }
    QString columnHeader(int column) const override { return m_table.columnHeader(column); }
    qint64 tableRows() const override { return m_count; }
    qint64 rowTimeMs(qint64 row) const override { return m_table.rowTimeMs(m_first + row); }
    void readRow(qint64 row, double *out) override { m_table.readRow(m_first + row, out); }

private:
    static qint64 firstRowAtOrAfter(const TableSource &table, qint64 t)
    {
        qint64 lo = 0;
        qint64 hi = table.tableRows();
        while (lo < hi) {
            const qint64 mid = lo + (hi - lo) / 2;
            if (table.rowTimeMs(mid) < t)
                lo = mid + 1;
            else
                hi = mid;
        }
        return lo;
    }

    TableSource &m_table;
    qint64 m_first;
    qint64 m_count;
};
