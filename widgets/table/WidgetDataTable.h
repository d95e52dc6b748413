#pragma once

#include "telemetry/TelemetrySensor.h"
#include "widgets/layout/CursorPair.h"
#include "widgets/layout/SerializableWidget.h"

#include <QString>
#include <QWidget>

class WindowHub;

class DataTableModel;
class QCheckBox;
class QMenu;
class QPushButton;
class QSpinBox;
class QTabWidget;
class QTableView;
class TelemetryData;
class WidgetManager;

// "Data table": chosen variables sampled at a fixed period, one row per step and one column per
// variable, with CSV and Excel export. Variables are dropped in from the sensor list and removed from
// the context menu; the period and the two interpolation switches are on the "Settings" tab. The rows
// between the measuring cursors A and B are shaded and can be exported alone; the context menu places
// either cursor at a row.
class WidgetDataTable : public QWidget, public SerializableWidget
{
    Q_OBJECT
public:
    // What this window takes from the hub and the store and what it gives back: the one place its
    // wiring is written, checked by the compiler. Called by the window manager on registration.
    static void wire(WidgetDataTable *window, WindowHub *hub, TelemetryData *store);
    // store may be null; then the window shows only what sensorsUpdated() hands it.
    explicit WidgetDataTable(TelemetryData *store = nullptr, QWidget *parent = nullptr);

    // Makes the manager create this window for the "DataTable" type; the manager hands it its prompter.
    static void registerWith(WidgetManager *manager);

    int load(const LayoutJsonValue &object) override;
    int save(LayoutJsonWriter &writer, quint8 flag) override;
    bool addVariable(const TelemetryVar *variable) override
    {
        addData(variable);
        return true;
    }

    DataTableModel *model() const { return m_model; }
    QTabWidget *tabs() const { return m_tabs; }
    QTableView *view() const { return m_view; }
    QSpinBox *periodBox() const { return m_period; }
    QCheckBox *smoothBox() const { return m_smooth; }
    QCheckBox *validBox() const { return m_valid; }
    QPushButton *csvButton() const { return m_csvButton; }
    QPushButton *excelButton() const { return m_excelButton; }
    // "Export only the rows between cursors A and B": enabled while both are placed.
    QCheckBox *betweenCursorsBox() const { return m_between; }
    const CursorPair &cursorPair() const { return m_pair; }

    // "Data table menu": Remove "<column>" per column, then "Remove all", then the measuring cursors at
    // row (when it is one). The caller owns it.
    QMenu *createContextMenu(QWidget *parent = nullptr, int row = -1);

    // Export to a chosen file with a progress dialog; errors are shown, a cancel leaves no file.
    bool exportCsvTo(const QString &path);
    bool exportExcelTo(const QString &path);

    // How long an export runs before its progress dialog appears.
    void setProgressDelay(int ms) { m_progressDelay = ms; }

public slots:
    void addData(const TelemetryVar *variable);
    void sensorsUpdated(const QVector<TelemetrySensor> *data);
    void dataUpdated(const QVector<TelemetrySensor> *data);
    void exportCsv();
    void exportExcel();
    void removeColumn(int column);
    void removeAll();
    // The measuring cursors as another window set them.
    void setCursorPair(const CursorPair &pair);

signals:
    void gotFocus();
    void cursorPairMoved(const CursorPair &pair);

protected:
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragMoveEvent(QDragMoveEvent *event) override;
    void dropEvent(QDropEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private slots:
    void applyPeriod();
    void applySmooth(bool smooth);
    void applyValid(bool valid);
    void showContextMenu(const QPoint &pos);

private:
    // One export with its window-modal progress and error box; Writer is the CSV or the Excel writer.
    template <typename Writer>
    bool runExport(const QString &path, const QString &label, const QString &errorTitle,
                   const QString &errorText);
    void syncControls();
    void showError(const QString &title, const QString &text);
    QString chooseFile(const QString &caption, const QString &filter, const QString &suffix);
    // Keeps the table still while a writer reads it; changes that arrive meanwhile wait.
    void beginExport();
    void endExport();

    DataTableModel *m_model = nullptr;
    QTabWidget *m_tabs = nullptr;
    QTableView *m_view = nullptr;
    QSpinBox *m_period = nullptr;
    QCheckBox *m_smooth = nullptr;
    QCheckBox *m_valid = nullptr;
    QPushButton *m_csvButton = nullptr;
    QPushButton *m_excelButton = nullptr;
    QCheckBox *m_between = nullptr;
    CursorPair m_pair;
    QString m_lastFolder;
    int m_progressDelay = 500;
    bool m_exporting = false;
    bool m_pendingRebuild = false;
    bool m_pendingAppend = false;
    const QVector<TelemetrySensor> *m_pendingSensors = nullptr;
};
