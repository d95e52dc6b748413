#include "widgets/table/WidgetDataTable.h"

#include "telemetry/CsvTableWriter.h"
#include "telemetry/TableRowRange.h"
#include "telemetry/TelemetryData.h"
#include "telemetry/XlsxTableWriter.h"
#include "widgets/layout/LayoutJsonValue.h"
#include "widgets/layout/LayoutJsonWriter.h"
#include "widgets/layout/SensorDragData.h"
#include "widgets/layout/WidgetManager.h"
#include "widgets/layout/WindowHub.h"
#include "widgets/layout/WindowTypes.h"
#include "widgets/table/DataTableModel.h"

#include <QAction>
#include <QCheckBox>
#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileInfo>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QMimeData>
#include <QProgressDialog>
#include <QPushButton>
#include <QSpinBox>
#include <QTabWidget>
#include <QTableView>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

namespace {
// A JSON number that names a device or a parameter: whole, non-negative, 32 bits.
bool toId(const LayoutJsonValue &value, quint32 *out)
{
    if (!value.isNumber())
        return false;
    const double d = value.toDouble();
    if (d < 0 || d > 4294967295.0 || std::floor(d) != d)
        return false;
    *out = quint32(d);
    return true;
}

// Other windows write their switches as 0/1; either form reads.
bool toFlag(const LayoutJsonValue &value, bool fallback)
{
    if (value.isBool())
        return value.toBool();
    if (value.isNumber())
        return value.toDouble() != 0;
    return fallback;
}
} // namespace

WidgetDataTable::WidgetDataTable(TelemetryData *store, QWidget *parent)
    : QWidget(parent), m_model(new DataTableModel(this))
{
    setWindowTitle(tr("Data table"));
    setAcceptDrops(true);
    setFocusPolicy(Qt::ClickFocus);

    m_view = new QTableView(this);
    m_view->setObjectName(QStringLiteral("dataTable"));
    m_view->setModel(m_model);
    m_view->setSelectionMode(QAbstractItemView::ContiguousSelection);
    m_view->setContextMenuPolicy(Qt::CustomContextMenu);
    m_view->horizontalHeader()->setContextMenuPolicy(Qt::CustomContextMenu);
    // Fixed row heights keep a table of a long flight at a period of 10 ms scrolling smoothly.
    m_view->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    m_view->horizontalHeader()->setSectionResizeMode(QHeaderView::Interactive);
    m_view->horizontalHeader()->setDefaultSectionSize(120);
    m_view->viewport()->installEventFilter(this);

    m_period = new QSpinBox(this);
    m_period->setObjectName(QStringLiteral("samplingPeriod"));
    m_period->setRange(DataTableModel::kMinPeriodMs, DataTableModel::kMaxPeriodMs);
    m_period->setValue(DataTableModel::kDefaultPeriodMs);
    m_period->setSuffix(tr(" ms"));
    // A rebuild per keystroke would redo the table for every digit typed.
    m_period->setKeyboardTracking(false);
    m_smooth = new QCheckBox(tr("Interpolate values"), this);
    m_smooth->setToolTip(tr("Smooths the data table"));
    m_valid = new QCheckBox(tr("Show only valid data"), this);
    m_valid->setToolTip(tr("Only valid values shall be displayed. If not valid, empty cell is shown."));
    m_csvButton = new QPushButton(tr("Export to CSV..."), this);
    m_excelButton = new QPushButton(tr("Export to Excel..."), this);
    m_between = new QCheckBox(tr("Export only the rows between cursors A and B"), this);
    m_between->setToolTip(tr("Place cursors A and B on a chart (Ctrl+click, Shift+click) or from this "
                             "table's menu"));
    m_between->setEnabled(false);

    auto *properties = new QGroupBox(tr("Table properties"), this);
    auto *form = new QFormLayout(properties);
    form->addRow(tr("Sampling period:"), m_period);
    form->addRow(m_smooth);
    form->addRow(m_valid);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_csvButton);
    buttons->addWidget(m_excelButton);
    buttons->addStretch();
    form->addRow(new QLabel(tr("Export options:"), properties));
    form->addRow(m_between);
    form->addRow(buttons);

    auto *settings = new QWidget(this);
    auto *settingsLayout = new QVBoxLayout(settings);
    settingsLayout->addWidget(properties);
    settingsLayout->addStretch();

    m_tabs = new QTabWidget(this);
    m_tabs->addTab(m_view, tr("Data"));
    m_tabs->addTab(settings, tr("Settings"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_tabs);

    connect(m_period, QOverload<int>::of(&QSpinBox::valueChanged), this, &WidgetDataTable::applyPeriod);
    connect(m_period, &QSpinBox::editingFinished, this, &WidgetDataTable::applyPeriod);
    connect(m_smooth, &QCheckBox::toggled, this, &WidgetDataTable::applySmooth);
    connect(m_valid, &QCheckBox::toggled, this, &WidgetDataTable::applyValid);
    connect(m_csvButton, &QPushButton::clicked, this, &WidgetDataTable::exportCsv);
    connect(m_excelButton, &QPushButton::clicked, this, &WidgetDataTable::exportExcel);
    connect(m_view, &QTableView::customContextMenuRequested, this, &WidgetDataTable::showContextMenu);
    connect(m_view->horizontalHeader(), &QHeaderView::customContextMenuRequested, this,
            [this](const QPoint &pos) { showContextMenu(m_view->horizontalHeader()->mapTo(m_view, pos)); });

    // Whoever changes the table, the controls and the column widths follow it.
    connect(m_model, &QAbstractItemModel::modelReset, this, [this] {
        syncControls();
        m_view->resizeColumnsToContents();
    });

    if (store)
        m_model->setSensors(store->sensors());
    syncControls();
}

void WidgetDataTable::registerWith(WidgetManager *manager)
{
    manager->registerWindow(
        WindowTypes::key(WindowTypes::DataTable),
        [](WidgetManager *m) { return new WidgetDataTable(m->telemetry()); }, &WidgetDataTable::wire);
}

int WidgetDataTable::load(const LayoutJsonValue &object)
{
    if (!object.isObject())
        return 1;
    QVector<TelemetrySimplePair> variables;
    const LayoutJsonValue &sensors = object.value(QStringLiteral("Sensors"));
    for (int i = 0; i < sensors.size(); ++i) {
        const LayoutJsonValue &entry = sensors.at(i);
        TelemetrySimplePair pair;
        // An entry that does not name a variable is skipped; the others still load.
        if (entry.isArray() && entry.size() >= 2 && toId(entry.at(0), &pair.deviceId) &&
            toId(entry.at(1), &pair.param))
            variables.append(pair);
    }
    const LayoutJsonValue &period = object.value(QStringLiteral("Period"));
    const int periodMs = period.isNumber()
                             ? int(std::clamp(period.toDouble(), double(DataTableModel::kMinPeriodMs),
                                              double(DataTableModel::kMaxPeriodMs)))
                             : DataTableModel::kDefaultPeriodMs;
    m_model->setSettings(variables, periodMs, toFlag(object.value(QStringLiteral("Smooth")), false),
                         toFlag(object.value(QStringLiteral("Valid")), false));
    syncControls();
    return 0;
}

int WidgetDataTable::save(LayoutJsonWriter &writer, quint8 flag)
{
    writer.writeString(QStringLiteral("Type"), WindowTypes::key(WindowTypes::DataTable));
    if (flag == kForFile)
        return 0;
    writer.key(QStringLiteral("Sensors"));
    writer.beginArray();
    for (const TelemetrySimplePair &pair : m_model->variables()) {
        writer.beginArray();
        writer.writeInt(pair.deviceId);
        writer.writeInt(pair.param);
        writer.endArray();
    }
    writer.endArray();
    writer.writeInt(QStringLiteral("Period"), m_model->period());
    writer.writeBool(QStringLiteral("Smooth"), m_model->smooth());
    writer.writeBool(QStringLiteral("Valid"), m_model->valid());
    return 0;
}

void WidgetDataTable::syncControls()
{
    const QSignalBlocker blockPeriod(m_period);
    const QSignalBlocker blockSmooth(m_smooth);
    const QSignalBlocker blockValid(m_valid);
    // Only a real difference is written back: setting the value would also throw away digits the user
    // is typing while live data rebuilds the table.
    if (m_period->value() != m_model->period())
        m_period->setValue(m_model->period());
    m_smooth->setChecked(m_model->smooth());
    m_valid->setChecked(m_model->valid());
    // Interpolated values have no gaps to hide.
    m_valid->setEnabled(!m_model->smooth());
}

void WidgetDataTable::applyPeriod()
{
    if (m_exporting)
        return;
    m_model->setPeriod(m_period->value());
    syncControls();
}

void WidgetDataTable::applySmooth(bool smooth)
{
    m_model->setSmooth(smooth);
    syncControls();
}

void WidgetDataTable::applyValid(bool valid)
{
    m_model->setValid(valid);
    syncControls();
}

void WidgetDataTable::addData(const TelemetryVar *variable)
{
    if (variable && !m_exporting)
        m_model->addVariable(variable->pair());
}

void WidgetDataTable::sensorsUpdated(const QVector<TelemetrySensor> *data)
{
    if (m_exporting) {
        m_pendingSensors = data;
        m_pendingRebuild = true;
        return;
    }
    m_model->setSensors(data);
}

void WidgetDataTable::dataUpdated(const QVector<TelemetrySensor> *data)
{
    if (m_exporting) {
        if (data != m_model->sensors()) {
            m_pendingSensors = data;
            m_pendingRebuild = true;
        }
        m_pendingAppend = true;
        return;
    }
    if (data != m_model->sensors())
        m_model->setSensors(data);
    else
        m_model->appendNewValues();
}

void WidgetDataTable::removeColumn(int column)
{
    if (!m_exporting)
        m_model->removeVariable(column);
}

void WidgetDataTable::removeAll()
{
    if (!m_exporting)
        m_model->removeAll();
}

QMenu *WidgetDataTable::createContextMenu(QWidget *parent, int row)
{
    auto *menu = new QMenu(parent);
    menu->setTitle(tr("Data table menu"));
    for (int c = 0; c < m_model->tableColumns(); ++c) {
        QAction *remove = menu->addAction(tr("Remove \"%1\"").arg(m_model->columnHeader(c)));
        connect(remove, &QAction::triggered, this, [this, c] { removeColumn(c); });
    }
    if (m_model->tableColumns() > 0)
        menu->addSeparator();
    QAction *all = menu->addAction(tr("Remove all"));
    all->setEnabled(m_model->tableColumns() > 0);
    connect(all, &QAction::triggered, this, &WidgetDataTable::removeAll);

    menu->addSeparator();
    const bool onRow = row >= 0 && row < m_model->rowCount();
    const qint64 t = onRow ? m_model->rowTimeMs(row) : 0;
    const QString at = onRow ? CsvTableWriter::timeText(t) : QString();
    const auto place = [this, t](bool a) {
        CursorPair pair = m_pair;
        (a ? pair.hasA : pair.hasB) = true;
        (a ? pair.a : pair.b) = t;
        setCursorPair(pair);
        emit cursorPairMoved(m_pair);
    };
    QAction *setA = menu->addAction(onRow ? tr("Set cursor A at %1").arg(at) : tr("Set cursor A"));
    setA->setEnabled(onRow);
    connect(setA, &QAction::triggered, this, [place] { place(true); });
    QAction *setB = menu->addAction(onRow ? tr("Set cursor B at %1").arg(at) : tr("Set cursor B"));
    setB->setEnabled(onRow);
    connect(setB, &QAction::triggered, this, [place] { place(false); });
    QAction *clear = menu->addAction(tr("Clear cursors A and B"));
    clear->setEnabled(!m_pair.isEmpty());
    connect(clear, &QAction::triggered, this, [this] {
        setCursorPair(CursorPair());
        emit cursorPairMoved(m_pair);
    });
    return menu;
}

void WidgetDataTable::setCursorPair(const CursorPair &pair)
{
    m_pair = pair;
    if (pair.isComplete())
        m_model->setMarkedSpan(pair.low(), pair.high());
    else
        m_model->clearMarkedSpan();
    m_between->setEnabled(pair.isComplete());
}

void WidgetDataTable::showContextMenu(const QPoint &pos)
{
    QMenu *menu = createContextMenu(this, m_view->rowAt(pos.y()));
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->popup(m_view->viewport()->mapToGlobal(pos));
}

void WidgetDataTable::dragEnterEvent(QDragEnterEvent *event)
{
    TelemetrySimplePair pair;
    if (SensorDragData::variable(event->mimeData(), &pair))
        event->acceptProposedAction();
    else
        event->ignore();
}

void WidgetDataTable::dragMoveEvent(QDragMoveEvent *event)
{
    TelemetrySimplePair pair;
    if (SensorDragData::variable(event->mimeData(), &pair))
        event->acceptProposedAction();
    else
        event->ignore();
}

void WidgetDataTable::dropEvent(QDropEvent *event)
{
    TelemetrySimplePair pair;
    if (m_exporting || !SensorDragData::variable(event->mimeData(), &pair)) {
        event->ignore();
        return;
    }
    event->acceptProposedAction();
    m_model->addVariable(pair);
    m_tabs->setCurrentWidget(m_view);
}

bool WidgetDataTable::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_view->viewport() &&
        (event->type() == QEvent::MouseButtonPress || event->type() == QEvent::FocusIn))
        emit gotFocus();
    return QWidget::eventFilter(watched, event);
}

void WidgetDataTable::showError(const QString &title, const QString &text)
{
    prompter()->error(this, title, text);
}

QString WidgetDataTable::chooseFile(const QString &caption, const QString &filter, const QString &suffix)
{
    QString path = prompter()->saveFile(this, caption, m_lastFolder, filter);
    if (path.isEmpty())
        return path;
    if (QFileInfo(path).suffix().isEmpty())
        path += suffix;
    m_lastFolder = QFileInfo(path).absolutePath();
    return path;
}

void WidgetDataTable::exportCsv()
{
    const QString path =
        chooseFile(tr("Save as CSV file"), tr("CSV files (*.csv);;All files(*.*)"), QStringLiteral(".csv"));
    if (!path.isEmpty())
        exportCsvTo(path);
}

void WidgetDataTable::exportExcel()
{
    const QString path = chooseFile(tr("Save as Excel sheet"), tr("Excel files (*.xlsx);;All files(*.*)"),
                                    QStringLiteral(".xlsx"));
    if (!path.isEmpty())
        exportExcelTo(path);
}

void WidgetDataTable::beginExport()
{
    m_exporting = true;
    m_pendingRebuild = false;
    m_pendingAppend = false;
    m_pendingSensors = m_model->sensors();
}

void WidgetDataTable::endExport()
{
    m_exporting = false;
    if (m_pendingRebuild)
        m_model->setSensors(m_pendingSensors);
    else if (m_pendingAppend)
        m_model->appendNewValues();
    m_pendingRebuild = false;
    m_pendingAppend = false;
}

template <typename Writer>
bool WidgetDataTable::runExport(const QString &path, const QString &label, const QString &errorTitle,
                                const QString &errorText)
{
    if (m_exporting)
        return false;
    beginExport();
    QProgressDialog progress(label, tr("Cancel"), 0, m_model->rowCount(), this);
    progress.setWindowModality(Qt::WindowModal);
    progress.setMinimumDuration(m_progressDelay);
    Writer writer;
    TableRowRange rows = m_between->isChecked() && m_pair.isComplete()
                             ? TableRowRange::between(*m_model, m_pair.low(), m_pair.high())
                             : TableRowRange(*m_model, 0, m_model->tableRows());
    const bool ok = writer.write(rows, path, [&progress](qint64 done, qint64 total) {
        progress.setMaximum(int(total));
        progress.setValue(int(done));
        return !progress.wasCanceled();
    });
    progress.reset();
    endExport();
    if (!ok && !writer.wasCancelled())
        showError(errorTitle, errorText.arg(writer.errorString().toHtmlEscaped()));
    return ok;
}

bool WidgetDataTable::exportCsvTo(const QString &path)
{
    return runExport<CsvTableWriter>(path, tr("Exporting to CSV file..."), tr("CSV Export Error"),
                                     tr("<b>Unable to export CSV file:</b><ul><li>%1</li></ul>"));
}

bool WidgetDataTable::exportExcelTo(const QString &path)
{
    return runExport<XlsxTableWriter>(path, tr("Exporting to Excel file..."), tr("Excel Export Error"),
                                      tr("<b>Unable to export Excel file:</b><ul><li>%1</li></ul>"));
}

void WidgetDataTable::wire(WidgetDataTable *window, WindowHub *hub, TelemetryData *)
{
    if (!hub)
        return;
    connect(hub, &WindowHub::cursorPairChanged, window, &WidgetDataTable::setCursorPair);
    connect(window, &WidgetDataTable::cursorPairMoved, hub, &WindowHub::setCursorPair);
    window->setCursorPair(hub->cursorPair());
    connect(hub, &WindowHub::addSensorRequest, window, &WidgetDataTable::addData);
    connect(hub, &WindowHub::updateSensorsRequest, window, &WidgetDataTable::sensorsUpdated);
    connect(hub, &WindowHub::valueAddedRequest, window, &WidgetDataTable::dataUpdated);
}
