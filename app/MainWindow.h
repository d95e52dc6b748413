#pragma once

#include "database/DataFolderCheck.h"
#include "link/Device.h"
#include "link/Vector.h"

#include <QMainWindow>
#include <QPointer>

#include <memory>

class AppSettings;
class DatabaseManager;
class LogLoadTask;
class Logger;
class ModelLibrary;
class PlaybackBar;
class Prompter;
class UpdateController;
class QAction;
class QLabel;
class QTimer;
class QProcess;
class QProgressDialog;
class RecordingController;
class SensorTableBridge;
class SerialLink;
class TelemetryData;
class TelemetryDataPackage;
class TelemetryDecoder;
class WidgetManager;
class WindowHub;

// The one main window. It owns the long-lived parts (serial link, store, decoder, database, window
// container), carries the menus and tool bars, and turns failures into message boxes. The work itself
// lives in the parts.
class MainWindow : public QMainWindow
{
    Q_OBJECT
public:
    MainWindow(AppSettings *settings, Logger *logger, QWidget *parent = nullptr);
    ~MainWindow() override;

    TelemetryData *store() const { return m_store; }
    WidgetManager *windowManager() const { return m_manager; }
    RecordingController *recording() const { return m_recording; }
    ModelLibrary *library() const { return m_library; }
    // How the window and its parts ask the user; tests hand in a scripted one.
    Prompter *prompter() const;
    void setPrompter(Prompter *prompter);
    int activeModel() const { return m_activeModel; }
    // The model recordings are filed under and whose layout is saved at close (-1: none).
    void setActiveModel(int modelId);
    // Applies the default layout; false (after the layout error box) when it cannot be read.
    bool applyDefaultLayout();
    // Start-up when the settings could not be read: the warning (unless nobody is there to answer it),
    // then the default layout.
    void startWithoutSettings(bool warn = true);
    // The active model's layout, or the default one when there is none.
    void restoreSession();
    // What the data folder check found at start; shown by showStartupReport() once the window is up.
    const StartupReport &startupReport() const { return m_startupReport; }
    void showStartupReport();
    // The online update check at start ("AutoUpdate"): silent unless it has something to offer.
    void checkForUpdatesAtStart();
    // Starts opening a log off the interface thread; the result arrives through logLoaded().
    void openLog(const QString &path);
    bool isLoadingLog() const;

public slots:
    void readResponse(const QByteArray &data);
    void serialStatusChanged(bool open);
    void serialPercentageChanged(int value);
    void serialErrorHandler();
    void deviceAdded(const Vector<Device> *devices);
    void playTimerTick();

signals:
    // A log finished loading (ok) or failed/was cancelled.
    void logLoaded(bool ok);
    void logStoredInDatabase(int logId);

protected:
    void closeEvent(QCloseEvent *event) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dropEvent(QDropEvent *event) override;

private:
    void registerWindows();
    void activateModel(int modelId);
    void switchToModel(int modelId);
    void modelDeleted(int modelId);
    void createActions();
    void createStatusBar();
    void connectSerial();
    void applySavedPort();
    void openLogDialog();
    void closeLog();
    void exportLog();
    void storeLogsUnderModel();
    void logFinished(bool ok, const TelemetryDataPackage &package, const QString &error, const QString &path,
                     const QString &warning);
    void showConfiguration();
    void openHelpFile(const QString &file, const char *missingMessage);
    void startEmulator();
    void checkForUpdates();
    UpdateController *updates();
    void showAbout();
    void resetToolbars();
    bool saveSession(QString *error);
    QString programFolder() const;

    AppSettings *m_settings;
    Logger *m_logger;
    DatabaseManager *m_database = nullptr;
    ModelLibrary *m_library = nullptr;
    SensorTableBridge *m_sensorBridge = nullptr;
    TelemetryData *m_store = nullptr;
    TelemetryDecoder *m_decoder = nullptr;
    SerialLink *m_link = nullptr;
    WindowHub *m_hub = nullptr;
    WidgetManager *m_manager = nullptr;
    RecordingController *m_recording = nullptr;
    PlaybackBar *m_playback = nullptr;
    QToolBar *m_recordBar = nullptr;
    LogLoadTask *m_loader = nullptr;
    QPointer<QProgressDialog> m_progress;
    QLabel *m_serialIcon = nullptr;
    QLabel *m_serialText = nullptr;
    QProcess *m_emulator = nullptr;
    UpdateController *m_updates = nullptr;
    QByteArray m_defaultState;
    StartupReport m_startupReport;
    int m_activeModel = -1;
    int m_pendingModel = -1;
    bool m_portWasOpen = false;
    bool m_closing = false;
    bool m_switchingModel = false;
};
