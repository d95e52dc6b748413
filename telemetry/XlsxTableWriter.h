#pragma once

#include "telemetry/TableSource.h"

#include <QCoreApplication>
#include <QString>

// Writes a sampled table as an Excel workbook: a header row ("Time" and the column headers) in a bold
// header format, then per row the time as a time value and each number as a double; an empty cell
// gets no cell at all. Rows are streamed to disk as they are made, so memory stays the same for any
// row count.
class XlsxTableWriter
{
    Q_DECLARE_TR_FUNCTIONS(XlsxTableWriter)
public:
    // The most data rows one sheet holds, below its header row.
    static constexpr qint64 kMaxRows = 1048575;
    static constexpr int kMaxColumns = 16383;
    // The number format of the time column.
    static constexpr const char *kTimeFormat = "h:mm:ss.000";

    // Replaces path only when the whole workbook is written; a failure or a cancel leaves whatever was
    // there before and no partial file. Progress counts the rows, then packing the workbook as half as
    // many rows again.
    bool write(TableSource &table, const QString &path, const TableSource::Progress &progress = {});

    bool wasCancelled() const { return m_cancelled; }
    QString errorString() const { return m_error; }

private:
    bool fail(const QString &error);

    QString m_error;
    bool m_cancelled = false;
};
