#include "widgets/table/DataTableModel.h"

#include <QColor>

#include "telemetry/CsvTableWriter.h"
#include "telemetry/TableSampler.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
}

DataTableModel::DataTableModel(QObject *parent) : QAbstractTableModel(parent) {}

void DataTableModel::setSensors(const QVector<TelemetrySensor> *sensors)
{
    m_sensors = sensors;
    rebuild();
}

QVector<TelemetrySimplePair> DataTableModel::variables() const
{
    QVector<TelemetrySimplePair> list;
    list.reserve(m_columns.size());
    for (const Column &column : m_columns)
        list.append(column.variable);
    return list;
}

bool DataTableModel::addVariable(const TelemetrySimplePair &variable)
{
    if (variables().contains(variable))
        return false;
    beginResetModel();
    Column column;
    column.variable = variable;
    m_columns.append(column);
    fillAll();
    endResetModel();
    return true;
}

void DataTableModel::removeVariable(int column)
{
    if (column < 0 || column >= m_columns.size())
        return;
    beginResetModel();
    m_columns.remove(column);
    fillAll();
    endResetModel();
}

void DataTableModel::removeAll()
{
    beginResetModel();
    m_columns.clear();
    fillAll();
    endResetModel();
}

int DataTableModel::mode() const
{
    return TableSampler::modeFor(m_smooth, m_valid);
}

void DataTableModel::setPeriod(int ms)
{
    ms = std::clamp(ms, kMinPeriodMs, kMaxPeriodMs);
    if (ms == m_period)
        return;
    m_period = ms;
    rebuild();
}

void DataTableModel::setSmooth(bool smooth)
{
    if (smooth == m_smooth)
        return;
    m_smooth = smooth;
    rebuild();
}

void DataTableModel::setValid(bool valid)
{
    if (valid == m_valid)
        return;
    m_valid = valid;
    rebuild();
}

void DataTableModel::setSettings(const QVector<TelemetrySimplePair> &variables, int periodMs, bool smooth,
                                 bool valid)
{
    beginResetModel();
    m_columns.clear();
    for (const TelemetrySimplePair &variable : variables) {
        const bool shown = std::any_of(m_columns.cbegin(), m_columns.cend(),
                                       [&variable](const Column &c) { return c.variable == variable; });
        if (shown)
            continue;
        Column column;
        column.variable = variable;
        m_columns.append(column);
    }
    m_period = std::clamp(periodMs, kMinPeriodMs, kMaxPeriodMs);
    m_smooth = smooth;
    m_valid = valid;
    fillAll();
    endResetModel();
}

void DataTableModel::rebuild()
{
    beginResetModel();
    fillAll();
    endResetModel();
}

const TelemetryVar *DataTableModel::findVar(const TelemetrySimplePair &variable) const
{
    if (!m_sensors)
        return nullptr;
    for (const TelemetrySensor &sensor : *m_sensors) {
        if (sensor.id() == variable.deviceId)
            return sensor.var(variable.param);
    }
    return nullptr;
}

QString DataTableModel::headerFor(const TelemetryVar *var, const TelemetrySimplePair &variable)
{
    if (var)
        return TableSampler::headerText(*var);
    // Kept from a layout until a recording has the variable.
    return tr("%1:%2").arg(variable.deviceId).arg(variable.param);
}

// Computes the column's rows from row `from` up to the first step at or after the variable's last sample.
void DataTableModel::fill(Column &column, int from)
{
    const TelemetryVar *var = findVar(column.variable);
    column.header = headerFor(var, column.variable);
    if (!var) {
        column.values.clear();
        column.cursor = TableSampler::Cursor();
        return;
    }
    const qint64 rows =
        std::min<qint64>(TableSampler::rowsFor(*var, m_period), std::numeric_limits<int>::max());
    from = std::min(from, column.values.size());
    if (rows <= from)
        return;
    column.values.resize(int(rows));
    const int mode = this->mode();
    double *out = column.values.data();
    for (int r = from; r < rows; ++r)
        out[r] = TableSampler::valueAt(*var, qint64(r) * m_period, mode, &column.cursor);
}

void DataTableModel::fillAll()
{
    m_rows = 0;
    for (Column &column : m_columns) {
        column.values.clear();
        column.values.squeeze();
        column.cursor = TableSampler::Cursor();
        fill(column, 0);
        m_rows = std::max(m_rows, column.values.size());
    }
}

void DataTableModel::appendNewValues()
{
    if (m_columns.isEmpty())
        return;
    const int oldRows = m_rows;
    int rows = 0;
    int firstChanged = oldRows;
    for (Column &column : m_columns) {
        // Rows before a column's last one lie before its last sample, and later samples do not move
        // them; the last row lies on or after that sample, so the next one may change it.
        const int from = std::max(0, column.values.size() - 1);
        const int before = column.values.size();
        fill(column, from);
        if (column.values.size() > before || before > 0)
            firstChanged = std::min(firstChanged, from);
        rows = std::max(rows, column.values.size());
    }
    if (rows > oldRows) {
        beginInsertRows(QModelIndex(), oldRows, rows - 1);
        m_rows = rows;
        endInsertRows();
    }
    if (firstChanged < oldRows)
        emit dataChanged(index(firstChanged, 0), index(oldRows - 1, m_columns.size() - 1), {Qt::DisplayRole});
}

double DataTableModel::value(int row, int column) const
{
    if (column < 0 || column >= m_columns.size())
        return kNan;
    const QVector<double> &values = m_columns.at(column).values;
    return row >= 0 && row < values.size() ? values.at(row) : kNan;
}

QString DataTableModel::cellText(double value)
{
    QByteArray text;
    CsvTableWriter::appendNumber(text, value);
    return QString::fromLatin1(text);
}

int DataTableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_rows;
}

int DataTableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_columns.size();
}

QVariant DataTableModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid())
        return QVariant();
    if (role == Qt::DisplayRole)
        return cellText(value(index.row(), index.column()));
    if (role == Qt::TextAlignmentRole)
        return int(Qt::AlignRight | Qt::AlignVCenter);
    if (role == Qt::BackgroundRole && isMarked(index.row()))
        return QColor(255, 214, 102, 90);
    return QVariant();
}

void DataTableModel::setMarkedSpan(qint64 fromMs, qint64 toMs)
{
    if (m_marked && m_markFrom == fromMs && m_markTo == toMs)
        return;
    m_marked = true;
    m_markFrom = std::min(fromMs, toMs);
    m_markTo = std::max(fromMs, toMs);
    if (m_rows > 0 && !m_columns.isEmpty())
        emit dataChanged(index(0, 0), index(m_rows - 1, m_columns.size() - 1), {Qt::BackgroundRole});
}

void DataTableModel::clearMarkedSpan()
{
    if (!m_marked)
        return;
    m_marked = false;
    if (m_rows > 0 && !m_columns.isEmpty())
        emit dataChanged(index(0, 0), index(m_rows - 1, m_columns.size() - 1), {Qt::BackgroundRole});
}

bool DataTableModel::isMarked(int row) const
{
    const qint64 t = rowTimeMs(row);
    return m_marked && t >= m_markFrom && t <= m_markTo;
}

QVariant DataTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    if (orientation == Qt::Horizontal)
        return section >= 0 && section < m_columns.size() ? m_columns.at(section).header : QVariant();
    return CsvTableWriter::timeText(rowTimeMs(section));
}

QString DataTableModel::columnHeader(int column) const
{
    return m_columns.at(column).header;
}

void DataTableModel::readRow(qint64 row, double *out)
{
    for (int c = 0; c < m_columns.size(); ++c)
        *out++ = value(int(row), c);
}
