#pragma once

#include "telemetry/TableSampler.h"
#include "telemetry/TableSource.h"
#include "telemetry/TelemetrySensor.h"
#include "telemetry/TelemetrySimplePair.h"

#include <QAbstractTableModel>
#include <QVector>

// The data table: one column per variable, one row per sampling step (row k at k × period ms), each
// cell the variable's value at that time in its chosen unit, empty where there is none. Columns are
// computed once per rebuild and kept; the same rows feed the CSV and Excel writers.
class DataTableModel : public QAbstractTableModel, public TableSource
{
    Q_OBJECT
public:
    static constexpr int kDefaultPeriodMs = 1000;
    // Faster than the bus delivers, slower than anyone reads; both ends keep a table within memory.
    static constexpr int kMinPeriodMs = 10;
    static constexpr int kMaxPeriodMs = 3600000;

    explicit DataTableModel(QObject *parent = nullptr);

    // The store's device list the variables are looked up in (may be null); rebuilds.
    void setSensors(const QVector<TelemetrySensor> *sensors);
    const QVector<TelemetrySensor> *sensors() const { return m_sensors; }

    QVector<TelemetrySimplePair> variables() const;
    // Appends a column; false when the variable is shown already.
    bool addVariable(const TelemetrySimplePair &variable);
    void removeVariable(int column);
    void removeAll();

    int period() const { return m_period; }
    bool smooth() const { return m_smooth; }
    bool valid() const { return m_valid; }
    // The interpolation mode the two flags select.
    int mode() const;
    // Each changes the table only when the value changes; the period is clamped to its range.
    void setPeriod(int ms);
    void setSmooth(bool smooth);
    void setValid(bool valid);
    // Everything a layout holds, in one rebuild.
    void setSettings(const QVector<TelemetrySimplePair> &variables, int periodMs, bool smooth, bool valid);

    // Recomputes every column.
    void rebuild();
    // Samples were appended to the store: earlier rows keep their values, so only the new rows are
    // computed, and cells of columns that had ended before are filled in.
    void appendNewValues();

    // Rows whose time lies from fromMs to toMs (both included) are shaded: the span between the
    // measuring cursors. clearMarkedSpan() removes the shading.
    void setMarkedSpan(qint64 fromMs, qint64 toMs);
    void clearMarkedSpan();
    bool isMarked(int row) const;

    // Not-a-number for an empty cell.
    double value(int row, int column) const;
    static QString cellText(double value);

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

    int tableColumns() const override { return m_columns.size(); }
    QString columnHeader(int column) const override;
    qint64 tableRows() const override { return m_rows; }
    qint64 rowTimeMs(qint64 row) const override { return row * m_period; }
    void readRow(qint64 row, double *out) override;

private:
    struct Column
    {
        TelemetrySimplePair variable;
        QString header;
        QVector<double> values;      // by row: the value at row × period
        TableSampler::Cursor cursor; // where the forward walk through the samples stands
    };

    const TelemetryVar *findVar(const TelemetrySimplePair &variable) const;
    void fill(Column &column, int from);
    void fillAll();
    static QString headerFor(const TelemetryVar *var, const TelemetrySimplePair &variable);

    const QVector<TelemetrySensor> *m_sensors = nullptr;
    QVector<Column> m_columns;
    int m_rows = 0;
    int m_period = kDefaultPeriodMs;
    bool m_smooth = false;
    bool m_valid = false;
    bool m_marked = false;
    qint64 m_markFrom = 0;
    qint64 m_markTo = 0;
};
