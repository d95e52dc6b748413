#pragma once

#include "link/Device.h"
#include "link/DeviceDefinitions.h"
#include "link/DeviceSettingsFile.h"
#include "widgets/devices/DeviceSession.h"

#include <QDialog>

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
    using ImportChooser = DeviceSession::ImportChooser;
    static constexpr const char *kFileFilter = DeviceSession::kFileFilter;

    // link is not owned and must outlive the window; prompter null: real dialogs.
    WidgetLxBusParams(const Device &device, DeviceParamLink *link, Prompter *prompter,
                      QWidget *parent = nullptr);

    // Loads the definitions file and starts; false (after the error box) when it cannot be read.
    bool start(const QString &definitionsPath);
    // Starts with definitions already loaded: the firmware check, then the device is read.
    bool start(const DeviceDefinitions &definitions);

    void setImportChooser(ImportChooser chooser) { m_session->setImportChooser(std::move(chooser)); }

    // The same as the buttons, with the file chosen by the prompter; false when cancelled or failed.
    bool exportSettings() { return m_session->exportSettings(); }
    bool importSettings() { return m_session->importSettings(); }
    bool exportTo(const QString &path) { return m_session->exportTo(path); }
    bool importFrom(const QString &path) { return m_session->importFrom(path); }

    const Device &device() const { return m_session->device(); }
    DeviceSession *session() const { return m_session; }
    LxBusTableModel *model() const { return m_session->model(); }
    QTableView *table() const { return m_table; }
    QProgressBar *progressBar() const { return m_progress; }
    QPushButton *exportButton() const { return m_exportButton; }
    QPushButton *importButton() const { return m_importButton; }
    QLabel *statusLabel() const { return m_status; }

private:
    bool started(bool ok);

    DeviceSession *m_session;
    QTableView *m_table = nullptr;
    QProgressBar *m_progress = nullptr;
    QLabel *m_status = nullptr;
    QPushButton *m_exportButton = nullptr;
    QPushButton *m_importButton = nullptr;
};
