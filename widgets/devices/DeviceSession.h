#pragma once

#include "link/Device.h"
#include "link/DeviceDefinitions.h"
#include "link/DeviceSettingsFile.h"

#include <QObject>
#include <QPointer>
#include <QSet>

#include <functional>

class DeviceParamLink;
class LxBusTableModel;
class Prompter;
class QWidget;

// One device being configured, shared by the parameter table and the configuration pages: its definition,
// the values read from it (kept in a table model), the parameter engine, and the settings export and import.
// Messages go through the prompter with the window as their parent.
class DeviceSession : public QObject
{
    Q_OBJECT
public:
    // Picks the rows of an import to write; false when the user cancels. Tests answer in place of the dialog.
    using ImportChooser =
        std::function<bool(QWidget *parent, const QVector<DeviceSettingsFile::DiffRow> &rows,
                           QVector<DeviceSettingsFile::DiffRow> *chosen)>;

    static constexpr const char *kFileFilter =
        QT_TRANSLATE_NOOP("WidgetLxBusParams", "JSON files (*.jsn);;All files(*.*)");

    // link is not owned and must outlive the session; prompter null: real dialogs.
    DeviceSession(const Device &device, DeviceParamLink *link, Prompter *prompter, QWidget *window);
    ~DeviceSession() override;

    // Loads the definitions file and starts; false (after the error box) when it cannot be read.
    bool start(const QString &definitionsPath);
    // Starts with definitions already loaded: the firmware check, then the device is read.
    bool start(const DeviceDefinitions &definitions);
    bool isStarted() const { return m_started; }

    void read();
    void write(const DevParamVector &params);
    // A device command; false when the engine cannot take it now (the caller retries).
    bool command(int address, int value, int size, int flags);

    void setImportChooser(ImportChooser chooser) { m_chooser = std::move(chooser); }
    // With the file chosen by the prompter; false when cancelled or failed.
    bool exportSettings();
    bool importSettings();
    bool exportTo(const QString &path);
    bool importFrom(const QString &path);

    const Device &device() const { return m_device; }
    LxBusTableModel *model() const { return m_model; }
    const DeviceDefinition &definition() const;
    Prompter *prompter() const;
    // Why the device did not take a write, for messages.
    QString refusalText(const DevParam &param) const;

signals:
    // After every read answer, with how much of the device has been read.
    void valuesLoaded(int percent);
    // A write (not an import) read back with values the device did not take, each with its reason; the model
    // shows the device's values again.
    void writeRefused(const QStringList &reasons);
    // The engine failed ("LX Bus: ..." or why a value was refused); the device is read again.
    void failed(const QString &text);
    void statusChanged(const QString &text);

private:
    void valuesArrived(const DevParamVector &params);
    void writeFinished(const DevParamVector &params);
    void linkError(const QString &text);

    Device m_device;
    DeviceParamLink *m_link;
    Prompter *m_prompter;
    QPointer<QWidget> m_window;
    ImportChooser m_chooser;
    LxBusTableModel *m_model = nullptr;
    bool m_started = false;
    // Addresses written by the running import, and those the device did not take, reported once all are back.
    QSet<quint16> m_importPending;
    QStringList m_importRefused;
    int m_importWritten = 0;
};
