#pragma once

#include "link/Device.h"
#include "link/DeviceDefinitions.h"
#include "link/DeviceSettingsFile.h"

#include <QDialog>
#include <QSet>

#include <functional>

class DeviceParamLink;
class LxBusTableModel;
class Prompter;
class QLabel;
class QProgressBar;
class QPushButton;
class QTableView;

// Every register of one device in a table, edited in place, with the settings export and import. A window of
// its own beside the studio (not modal): it reads the device while it is open and lets go of it when closed.
class WidgetLxBusParams : public QDialog
{
    Q_OBJECT
public:
    // Picks the rows of an import to write; false when the user cancels. Tests answer in place of the dialog.
    using ImportChooser =
        std::function<bool(QWidget *parent, const QVector<DeviceSettingsFile::DiffRow> &rows,
                           QVector<DeviceSettingsFile::DiffRow> *chosen)>;

    static constexpr const char *kFileFilter =
        QT_TRANSLATE_NOOP("WidgetLxBusParams", "JSON files (*.jsn);;All files(*.*)");

    // link is not owned and must outlive the window; prompter null: real dialogs.
    WidgetLxBusParams(const Device &device, DeviceParamLink *link, Prompter *prompter,
                      QWidget *parent = nullptr);
    ~WidgetLxBusParams() override;

    // Loads the definitions file and starts; false (after the error box) when it cannot be read.
    bool start(const QString &definitionsPath);
    // Starts with definitions already loaded: the firmware check, then the device is read.
    bool start(const DeviceDefinitions &definitions);

    void setImportChooser(ImportChooser chooser) { m_chooser = std::move(chooser); }

    // The same as the buttons, with the file chosen by the prompter; false when cancelled or failed.
    bool exportSettings();
    bool importSettings();
    bool exportTo(const QString &path);
    bool importFrom(const QString &path);

    const Device &device() const { return m_device; }
    LxBusTableModel *model() const { return m_model; }
    QTableView *table() const { return m_table; }
    QProgressBar *progressBar() const { return m_progress; }
    QPushButton *exportButton() const { return m_exportButton; }
    QPushButton *importButton() const { return m_importButton; }
    QLabel *statusLabel() const { return m_status; }

private:
    void valuesLoaded(const DevParamVector &params);
    void writeFinished(const DevParamVector &params);
    void linkError(const QString &text);
    void write(const DevParamVector &params);
    QString paramName(const DevParam &param) const;
    // Why the device did not take a write, for the "Device error" box.
    QString refusalText(const DevParam &param) const;
    Prompter *prompter() const;

    Device m_device;
    DeviceParamLink *m_link;
    Prompter *m_prompter;
    ImportChooser m_chooser;
    LxBusTableModel *m_model = nullptr;
    QTableView *m_table = nullptr;
    QProgressBar *m_progress = nullptr;
    QLabel *m_status = nullptr;
    QPushButton *m_exportButton = nullptr;
    QPushButton *m_importButton = nullptr;
    bool m_started = false;
    // Addresses written by the running import, and those the device did not take, reported once all are back.
    QSet<quint16> m_importPending;
    QStringList m_importRefused;
    int m_importWritten = 0;
};
