#pragma once

#include <QString>
#include <QtGlobal>

#include <functional>

// A sampled table as the CSV and Excel writers read it: a time column and one number column per
// variable, row r standing for rowTimeMs(r). Implemented by the streaming sampler (command line) and by
// the data table window's model, so both export through the same writers.
class TableSource
{
public:
    // Called with the work done so far and the whole (rows, for CSV); returning false cancels the export.
    using Progress = std::function<bool(qint64 done, qint64 total)>;

    virtual ~TableSource() = default;

    virtual int tableColumns() const = 0;
    virtual QString columnHeader(int column) const = 0;
    virtual qint64 tableRows() const = 0;
    virtual qint64 rowTimeMs(qint64 row) const = 0;
    // One number per column into out (not-a-number for an empty cell). Writers ask for the rows in
    // increasing order, which lets a streaming source walk forward through the samples.
    virtual void readRow(qint64 row, double *out) = 0;
};
