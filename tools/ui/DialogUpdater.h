#pragma once

#include "tools/DeviceUpdater.h"
#include "tools/FirmwareDatabase.h"

#include <QDialog>

#include <functional>
#include <memory>

class QLabel;
class QProgressBar;
class QPushButton;
class QTextBrowser;
class QTreeWidget;
class SerialPortWrapper;

// Tools → "Device Updater": the firmware the device updates database offers per device ("Name" /
// "Version"), its release notes, the device on the adapter, and the update itself, which DeviceUpdater
// runs on the link's thread. A custom image file may be chosen instead. Nothing is sent before the user
// has confirmed the device, its current and its new version.
class DialogUpdater : public QDialog
{
    Q_OBJECT
public:
    // link may be null (no adapter): the lists and notes still show, updating is off.
    DialogUpdater(SerialPortWrapper *link, const QString &databasePath, QWidget *parent = nullptr);
    ~DialogUpdater() override;

    // Asks the user to go ahead; the default is a Yes/No message box. Tests answer themselves.
    void setConfirmer(std::function<bool(const QString &)> confirm) { m_confirm = std::move(confirm); }
    // Reads the custom image as "Open update file" would after the user picked it.
    void useCustomFile(const QString &path);

    QString descriptionText() const;
    QString deviceLine() const;
    QString statusText() const;
    QTreeWidget *firmwareList() const { return m_list; }

public slots:
    void requestUpdateInfo();
    void startUpdate();

protected:
    // Never closed while the updater runs: it owns the run on the link's thread.
    void reject() override;

private:
    void loadDatabase();
    void showSelected();
    void chooseCustomFile();
    void onStatus(const UpdatingStatus &status);
    void onFinished(int result);
    void setStatus(const QString &text);
    void setBusy(bool busy);
    QString styled(const QString &body) const;

    SerialPortWrapper *m_link;
    QString m_databasePath;
    FirmwareDatabase m_database;
    bool m_databaseOpen = false;
    std::unique_ptr<DeviceUpdater> m_updater;
    std::function<bool(const QString &)> m_confirm;

    QLabel *m_deviceLine;
    QTreeWidget *m_list;
    QTextBrowser *m_description;
    QLabel *m_status;
    QProgressBar *m_progress;
    QPushButton *m_detect;
    QPushButton *m_open;
    QPushButton *m_update;

    QString m_customFile;
    bool m_haveDevice = false;
    BootLoaderProtocol::DeviceInfo m_device;
    bool m_busy = false;
    bool m_infoOnly = false;
};
