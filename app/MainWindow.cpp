#include "app/MainWindow.h"

#include "app/AppSettings.h"
#include "app/DialogConfig.h"
#include "app/LogLoadTask.h"
#include "app/PlaybackBar.h"
#include "app/RecordingController.h"
#include "app/SensorTableBridge.h"
#include "database/DataFolderCheck.h"
#include "database/DatabaseManager.h"
#include "database/DefaultLayout.h"
#include "database/Logger.h"
#include "database/ModelLibrary.h"
#include "link/LinkMetaTypes.h"
#include "link/SerialLink.h"
#include "link/SerialPlatform.h"
#include "link/TelemetryDecoder.h"
#include "telemetry/LogFileWriter.h"
#include "telemetry/TelemetryData.h"
#include "widgets/sensors/DialogKMLExport.h"
#include "widgets/models/DialogLoadLog.h"
#include "widgets/table/WidgetDataTable.h"
#include "widgets/graph/WidgetGraph.h"
#include "widgets/graph/WidgetGraphExport.h"
#include "widgets/sensors/WidgetLogSensors.h"
#include "widgets/layout/WidgetManager.h"
#include "widgets/models/WidgetModel.h"
#include "widgets/layout/WindowHub.h"
#include "widgets/layout/WindowTypes.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDebug>
#include <QDesktopServices>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QGuiApplication>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QProcess>
#include <QProgressDialog>
#include <QPushButton>
#include <QSaveFile>
#include <QScreen>
#include <QStatusBar>
#include <QTimer>
#include <QToolBar>
#include <QUrl>

MainWindow::MainWindow(AppSettings *settings, Logger *logger, QWidget *parent)
    : QMainWindow(parent), m_settings(settings), m_logger(logger)
{
    registerLinkMetaTypes();
    setWindowTitle(tr("Vexo Studio"));
    setAcceptDrops(true);

    const QString data = AppSettings::dataFolder();
    m_database = new DatabaseManager(data, logger);
    // Opens, checks and upgrades the database; what it finds is shown once the window is up.
    m_startupReport = DataFolderCheck::run(m_database);
    if (!m_startupReport.isOk())
        qWarning().noquote() << "Data folder:" << m_startupReport.message;
    m_library = new ModelLibrary(m_database);
    m_sensorBridge = new SensorTableBridge(m_database->isOpen() ? m_database : nullptr, this);
    m_store = new TelemetryData(m_sensorBridge, this);
    m_decoder = new TelemetryDecoder(m_store, m_sensorBridge, this);
    m_loader = new LogLoadTask(m_sensorBridge, this);
    connect(m_loader, &LogLoadTask::finished, this, &MainWindow::logFinished);

    m_hub = new WindowHub(this);
    m_manager = new WidgetManager(m_hub, m_store, m_database, this);
    setCentralWidget(m_manager->rootWidget());
    connect(m_store, &TelemetryData::sensorsChanged, m_hub, &WindowHub::updateSensorsRequest);
    connect(m_store, &TelemetryData::valueAdded, m_hub, &WindowHub::valueAddedRequest);
    connect(m_store, &TelemetryData::loggingStatusChanged, m_hub, &WindowHub::setLogStatusRequest);
    connect(m_store, &TelemetryData::logFileLoaded, m_hub, [this] { emit m_hub->logFileLoadedRequest(); });

    registerWindows();
    connect(m_hub, &WindowHub::sensorsCleared, m_store, [this] {
        if (m_recording->settleBeforeReplacing(tr("delete the sensor list")))
            m_store->clearSensors();
    });
    // The shared cursor: what one window reports under the mouse, every window shows.
    connect(m_hub, &WindowHub::mouseOverTimestampMoved, m_hub, &WindowHub::mouseOverTimestampRequest);
    connect(m_hub, &WindowHub::unitChanged, m_store, &TelemetryData::setUnit);
    connect(m_hub, &WindowHub::removeTelemetryBeforeTimestamp, m_store,
            [this](long t) { m_store->removeDataBeforeTimestamp(t); });
    connect(m_hub, &WindowHub::removeTelemetryAfterTimestamp, m_store,
            [this](long t) { m_store->removeDataAfterTimestamp(t); });
    connect(m_hub, &WindowHub::undoCutRequest, m_store, &TelemetryData::undoCut);
    connect(m_hub, &WindowHub::GPSExport, this,
            [this] { DialogKMLExport::exportTrack(m_store->sensors(), this); });

    m_recording = new RecordingController(m_store, m_decoder, m_library,
                                          QDir(data).filePath(QStringLiteral("Recordings")), this, this);
    // A model that is gone (deleted by another tool) is not active.
    const int savedModel = m_settings->number(QStringLiteral("Model-ID"));
    m_activeModel = savedModel >= 0 && !m_library->modelName(savedModel).isEmpty() ? savedModel : -1;
    m_recording->setActiveModel(m_activeModel);
    connect(m_recording, &RecordingController::logStored, this, &MainWindow::logStoredInDatabase);
    connect(m_recording, &RecordingController::stored, this, [this](const QString &where) {
        statusBar()->showMessage(tr("Recording stored %1").arg(where), 10000);
    });

    m_link = new SerialLink(this);
    connectSerial();
    createActions();
    createStatusBar();
    m_defaultState = saveState();
    if (!restoreGeometry(m_settings->bytes(QStringLiteral("Win-Size")))) {
        // First start: most of the screen, so the seven windows of the default layout have room.
        const QRect screen = QGuiApplication::primaryScreen()
                                 ? QGuiApplication::primaryScreen()->availableGeometry()
                                 : QRect(0, 0, 1600, 1000);
        resize(screen.size() * 0.85);
        move(screen.center() - rect().center());
    }
    restoreState(m_settings->bytes(QStringLiteral("Win-State")));
    m_link->start();
    applySavedPort();
}

MainWindow::~MainWindow()
{
    m_sensorBridge->setClosing(true);
    m_loader->stop();
    m_link->stop();
    delete m_library;
    delete m_database;
}

// The composition root decides which windows exist and what they are given; the container only knows
// their type keys.
void MainWindow::registerWindows()
{
    m_manager->registerType(WindowTypes::key(WindowTypes::Sensors),
                            [](WidgetManager *) { return new WidgetLogSensors; });
    WidgetDataTable::registerWith(m_manager);
    m_manager->registerType(WindowTypes::key(WindowTypes::Graph), [this](WidgetManager *m) {
        auto *graph = new WidgetGraph(m->telemetry(), m_sensorBridge);
        graph->setExportSettings(
            [this] {
                return WidgetGraphExport::Settings{m_settings->text(QStringLiteral("Bmp-Export-Path")),
                                                   m_settings->number(QStringLiteral("Bmp-Export-Width")),
                                                   m_settings->number(QStringLiteral("Bmp-Export-Height"))};
            },
            [this](const WidgetGraphExport::Settings &s) {
                m_settings->setValue(QStringLiteral("Bmp-Export-Path"), s.path);
                m_settings->setValue(QStringLiteral("Bmp-Export-Width"), s.width);
                m_settings->setValue(QStringLiteral("Bmp-Export-Height"), s.height);
            });
        return graph;
    });
    m_manager->registerType(WindowTypes::key(WindowTypes::Models), [this](WidgetManager *) {
        auto *models = new WidgetModel(m_database, m_library, m_store);
        models->selectModel(m_activeModel);
        models->setOpenGuard([this](const QString &name) {
            return m_recording->settleBeforeReplacing(tr("open %1").arg(name));
        });
        connect(models, &WidgetModel::modelActivated, this, &MainWindow::activateModel);
        connect(models, &WidgetModel::modelDeleted, this, &MainWindow::modelDeleted);
        connect(this, &MainWindow::logStoredInDatabase, models, &WidgetModel::reload);
        return models;
    });
}

// Another model chosen in the models window. The swap waits until no menu or dialog is open: selecting
// by right-click opens the model menu of the very window the swap replaces.
void MainWindow::activateModel(int modelId)
{
    m_pendingModel = modelId;
    if (m_switchingModel)
        return;
    m_switchingModel = true;
    m_manager->runWhenIdle([this] {
        m_switchingModel = false;
        switchToModel(m_pendingModel);
    });
}

// The model's layout replaces the current one, which is kept for the model that was active; new
// recordings are filed under the new model.
void MainWindow::switchToModel(int modelId)
{
    if (modelId == m_activeModel)
        return;
    if (modelId < 0) {
        // Nothing selected: the arrangement on screen stays, and belongs to no model.
        if (m_activeModel >= 0)
            m_manager->saveSessionForModel(m_activeModel, this);
        setActiveModel(-1);
        return;
    }
    if (m_activeModel >= 0) {
        m_manager->saveSessionForModel(m_activeModel, this);
    } else if (m_manager->layoutChangedSinceLoad()) {
        // The arrangement belongs to no model yet: the model's own would replace it without a trace.
        const QMessageBox::StandardButton answer = m_manager->showMessage(
            this, QMessageBox::Question, tr("Layout"),
            tr("<b>Keep the current arrangement of windows?</b><br>Model %1 brings its own layout. Save the "
               "current one as a named layout first?")
                .arg(m_library->modelName(modelId).toHtmlEscaped()),
            QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel);
        if (answer == QMessageBox::Cancel) {
            for (QWidget *w : m_manager->widgets()) {
                if (auto *models = qobject_cast<WidgetModel *>(w))
                    models->selectModel(-1);
            }
            return;
        }
        if (answer == QMessageBox::Yes)
            m_manager->saveLayoutToDatabase(this);
    }
    setActiveModel(modelId);
    m_manager->activateModel(modelId, this);
}

void MainWindow::setActiveModel(int modelId)
{
    m_activeModel = modelId;
    m_recording->setActiveModel(modelId);
    m_settings->setValue(QStringLiteral("Model-ID"), modelId);
}

void MainWindow::modelDeleted(int modelId)
{
    if (modelId != m_activeModel)
        return;
    // Its layout stays on screen; it is simply nobody's now.
    setActiveModel(-1);
    for (QWidget *w : m_manager->widgets()) {
        if (auto *models = qobject_cast<WidgetModel *>(w))
            models->reload();
    }
}

QString MainWindow::programFolder() const
{
    return QCoreApplication::applicationDirPath();
}

void MainWindow::connectSerial()
{
    SerialPortWrapper *w = m_link->wrapper();
    connect(w, &SerialPortWrapper::telemetryReceived, this, &MainWindow::readResponse);
    connect(w, &SerialPortWrapper::portOpenedStatus, this, &MainWindow::serialStatusChanged);
    connect(w, &SerialPortWrapper::percentageChanged, this, &MainWindow::serialPercentageChanged);
    connect(w, &SerialPortWrapper::error, this, &MainWindow::serialErrorHandler);
    connect(w->protocol(), &LxBusProtocol::deviceAdded, this, &MainWindow::deviceAdded);
}

// A saved port that is present is opened; otherwise the adapter search looks for one.
void MainWindow::applySavedPort()
{
    const QString port = m_settings->text(QStringLiteral("Port"));
    if (!port.isEmpty() && SerialPlatform::portExists(port))
        QMetaObject::invokeMethod(m_link->wrapper(), "setSerialPort", Qt::QueuedConnection,
                                  Q_ARG(QString, port));
    else
        QMetaObject::invokeMethod(m_link->wrapper(), "findDefaultSerialPort", Qt::QueuedConnection);
    const QString joystick = m_settings->text(QStringLiteral("Joy-GUID"));
    if (!joystick.isEmpty())
        QMetaObject::invokeMethod(m_link->wrapper(), "setJoystick", Qt::QueuedConnection,
                                  Q_ARG(QString, joystick));
}

void MainWindow::createActions()
{
    const auto make = [this](const QString &text, const QKeySequence &key = QKeySequence(),
                             const QString &tip = QString()) {
        auto *a = new QAction(text, this);
        if (!key.isEmpty())
            a->setShortcut(key);
        if (!tip.isEmpty())
            a->setStatusTip(tip);
        return a;
    };
    QMenu *file = menuBar()->addMenu(tr("File"));
    QAction *open = make(tr("Open log file"), QKeySequence(tr("Ctrl+O")), tr("Select & open log file"));
    QAction *close = make(tr("Close log file"), QKeySequence(tr("Ctrl+F4")));
    QAction *exportLogAction = make(tr("Export log file"));
    // One step back after cutting the recording in a graph, until the log is stored or closed.
    QAction *undoCut = make(tr("Undo cut"), QKeySequence(QKeySequence::Undo), tr("Take the last cut back"));
    undoCut->setEnabled(m_store->canUndoCut());
    QAction *storeLogs =
        make(tr("Load log files..."), QKeySequence(), tr("Keep log files, or the open log, under a model"));
    QAction *config = make(tr("Configuration..."), QKeySequence(), tr("Opens configuraiton dialog"));
    QAction *exit = make(tr("Exit"), QKeySequence(tr("Ctrl+Q")), tr("Exits the application"));
    file->addActions({open, close, exportLogAction, storeLogs, undoCut});
    file->addSeparator();
    file->addAction(config);
    file->addSeparator();
    file->addAction(exit);
    connect(open, &QAction::triggered, this, &MainWindow::openLogDialog);
    connect(close, &QAction::triggered, this, &MainWindow::closeLog);
    connect(exportLogAction, &QAction::triggered, this, &MainWindow::exportLog);
    connect(storeLogs, &QAction::triggered, this, &MainWindow::storeLogsUnderModel);
    connect(undoCut, &QAction::triggered, m_store, &TelemetryData::undoCut);
    connect(m_store, &TelemetryData::undoCutAvailable, undoCut, &QAction::setEnabled);
    connect(config, &QAction::triggered, this, &MainWindow::showConfiguration);
    connect(exit, &QAction::triggered, this, &QWidget::close);

    QMenu *layout = menuBar()->addMenu(tr("Layout"));
    QAction *resetBars =
        make(tr("Reset toolbars"), QKeySequence(), tr("Reset toolbars to the default state"));
    QAction *saveLayout = make(tr("Save layout"));
    QAction *loadLayout = make(tr("Load layout"));
    QAction *exportLayout = make(tr("Export layout..."), QKeySequence(), tr("Export current layout to file"));
    QAction *importLayout = make(tr("Import layout..."), QKeySequence(), tr("Import layout from file"));
    layout->addActions({saveLayout, loadLayout, exportLayout, importLayout});
    layout->addSeparator();
    layout->addAction(resetBars);
    connect(resetBars, &QAction::triggered, this, &MainWindow::resetToolbars);
    connect(saveLayout, &QAction::triggered, m_manager, [this] { m_manager->saveLayoutToDatabase(this); });
    connect(loadLayout, &QAction::triggered, m_manager, [this] { m_manager->loadLayoutFromDatabase(this); });
    connect(exportLayout, &QAction::triggered, this, &MainWindow::saveLayoutToFile);
    connect(importLayout, &QAction::triggered, this, &MainWindow::importLayoutFromFile);

    QMenu *tools = menuBar()->addMenu(tr("Tools"));
    const QString later = tr("This tool is not part of this version of Vexo Studio yet.");
    for (const QString &name :
         {tr("Device Updater"), tr("VEXOBOX Maxi"), tr("RGPS Import"), tr("Transmitter Wizard")}) {
        QAction *a = tools->addAction(name);
        connect(a, &QAction::triggered, this,
                [this, name, later] { QMessageBox::information(this, name, later); });
    }
    QAction *emulator = tools->addAction(tr("HC/HS-8 Emulator"));
    connect(emulator, &QAction::triggered, this, &MainWindow::startEmulator);

    QMenu *playback = menuBar()->addMenu(tr("Playback"));
    m_playback = new PlaybackBar(this);
    connect(m_playback->timer(), &QTimer::timeout, this, &MainWindow::playTimerTick);
    connect(m_playback, &PlaybackBar::positionChanged, m_manager, &WidgetManager::setPlaybackTime);
    const auto playbackAction = [&](const QString &text, const QKeySequence &key,
                                    void (PlaybackBar::*slot)()) {
        QAction *a = make(text, key);
        playback->addAction(a);
        connect(a, &QAction::triggered, m_playback, slot);
        return a;
    };
    playbackAction(tr("Play/Pause"), QKeySequence(Qt::Key_Space), &PlaybackBar::playPause);
    playbackAction(tr("Stop"), QKeySequence(), &PlaybackBar::stop);
    playbackAction(tr("Increase Rate"), QKeySequence(tr("Ctrl+Up")), &PlaybackBar::increaseRate);
    playbackAction(tr("Decrease Rate"), QKeySequence(tr("Ctrl+Down")), &PlaybackBar::decreaseRate);
    playbackAction(tr("Reset Rate"), QKeySequence(tr("Ctrl+R")), &PlaybackBar::resetRate);
    playbackAction(tr("Next Step"), QKeySequence(tr("Ctrl+Right")), &PlaybackBar::nextStep);
    playbackAction(tr("Previous Step"), QKeySequence(tr("Ctrl+Left")), &PlaybackBar::previousStep);
    playback->addSeparator();
    // One shortcut starts and stops: checked while recording.
    m_recordAction = make(tr("Start Real-Time Recording"), QKeySequence(tr("Ctrl+Shift+R")));
    m_recordAction->setCheckable(true);
    playback->addAction(m_recordAction);
    connect(m_recordAction, &QAction::triggered, m_recording, &RecordingController::toggle);
    connect(m_recording, &RecordingController::stateChanged, this, &MainWindow::recordingStateChanged);

    m_recordBar = addToolBar(tr("Telemetry recording controls"));
    m_recordBar->setObjectName(QStringLiteral("Recording-Toolbar"));
    QAction *recStart =
        m_recordBar->addAction(QIcon(QStringLiteral(":/Icons/Program/Resources/play_rec32x32.png")),
                               tr("Start real-time telemetry"));
    QAction *recPause = m_recordBar->addAction(
        QIcon(QStringLiteral(":/Icons/Program/Resources/pause32x32.png")), tr("Pause real-time telemetry"));
    QAction *recStop = m_recordBar->addAction(
        QIcon(QStringLiteral(":/Icons/Program/Resources/stop32x32.png")), tr("Stop real-time telemetry"));
    connect(recStart, &QAction::triggered, m_recording, &RecordingController::start);
    connect(recPause, &QAction::triggered, m_recording, &RecordingController::pause);
    connect(recStop, &QAction::triggered, m_recording, &RecordingController::stop);
    addToolBar(m_playback);

    QMenu *help = menuBar()->addMenu(tr("Help"));
    QAction *updates = help->addAction(tr("Check for updates"));
    QAction *contents = help->addAction(tr("Help contents"));
    QAction *changelog = help->addAction(tr("Changelog"));
    QAction *about = help->addAction(tr("About"));
    connect(updates, &QAction::triggered, this, &MainWindow::checkForUpdates);
    connect(contents, &QAction::triggered, this,
            [this] { openHelpFile(QStringLiteral("index-en.html"), "Help file not found:"); });
    connect(changelog, &QAction::triggered, this,
            [this] { openHelpFile(QStringLiteral("changelog-en.html"), "Changelog file not found:"); });
    connect(about, &QAction::triggered, this, &MainWindow::showAbout);
}

void MainWindow::createStatusBar()
{
    m_recordingText = new QLabel(this);
    m_recordingText->setObjectName(QStringLiteral("recordingStatus"));
    m_recordingText->setStyleSheet(QStringLiteral("QLabel { color: #c00000; font-weight: bold; }"));
    m_recordingText->hide();
    m_serialIcon = new QLabel(this);
    m_serialText = new QLabel(this);
    statusBar()->addPermanentWidget(m_recordingText);
    statusBar()->addPermanentWidget(m_serialIcon);
    statusBar()->addPermanentWidget(m_serialText);
    serialStatusChanged(false);
    m_recordingClock = new QTimer(this);
    m_recordingClock->setInterval(500);
    connect(m_recordingClock, &QTimer::timeout, this, &MainWindow::updateRecordingStatus);
}

void MainWindow::recordingStateChanged()
{
    const bool on = m_recording->isRecording();
    m_recordAction->setChecked(on);
    m_recordAction->setText(on ? tr("Stop Real-Time Recording") : tr("Start Real-Time Recording"));
    m_recordingText->setVisible(on);
    if (on)
        m_recordingClock->start();
    else
        m_recordingClock->stop();
    updateRecordingStatus();
}

void MainWindow::updateRecordingStatus()
{
    if (!m_recording->isRecording())
        return;
    const bool paused = m_recording->state() == RecordingController::Paused;
    m_recordingText->setText(
        tr("%1 %2  %3  %4 samples")
            .arg(QChar(0x25CF), paused ? tr("PAUSED") : tr("REC"), formatDuration(m_recording->elapsedMs()))
            .arg(m_recording->sampleCount()));
}

QString MainWindow::formatDuration(qint64 ms)
{
    const qint64 s = ms / 1000;
    return QStringLiteral("%1:%2:%3")
        .arg(s / 3600, 2, 10, QLatin1Char('0'))
        .arg(s / 60 % 60, 2, 10, QLatin1Char('0'))
        .arg(s % 60, 2, 10, QLatin1Char('0'));
}

void MainWindow::serialStatusChanged(bool open)
{
    // An error that follows an open port is a pulled adapter, not a port that would not open.
    if (open)
        m_portWasOpen = true;
    m_serialIcon->setPixmap(QPixmap(open ? QStringLiteral(":/Icons/Program/Resources/nm_adhoc.png")
                                         : QStringLiteral(":/Icons/Program/Resources/nm_no_connection.png")));
    m_serialText->setText(open ? tr("Serial port connected") : tr("Serial port closed"));
}

void MainWindow::serialPercentageChanged(int value)
{
    statusBar()->showMessage(tr("%1%").arg(value), 2000);
}

void MainWindow::serialErrorHandler()
{
    const QString detail = m_link->wrapper()->lastError();
    if (m_link->wrapper()->isPortOpen() || detail.isEmpty())
        return;
    QString text = detail;
    if (m_portWasOpen) {
        m_portWasOpen = false;
        QString said = m_recording->adapterLost();
        if (said.isEmpty())
            said = tr("The USB adapter was disconnected.");
        m_logger->write(QStringLiteral("SERIAL"), said);
        statusBar()->showMessage(said);
        text = QStringLiteral("<b>%1</b><br><br>%2").arg(said.toHtmlEscaped(), detail);
    }
    QMessageBox box(QMessageBox::Critical, tr("Critical Error"), text, QMessageBox::Ok, this);
    QPushButton *reconnect = box.addButton(tr("Reconnect"), QMessageBox::AcceptRole);
    box.exec();
    if (box.clickedButton() == reconnect)
        applySavedPort();
}

void MainWindow::readResponse(const QByteArray &data)
{
    m_decoder->decode(data);
}

void MainWindow::deviceAdded(const Vector<Device> *)
{
    // The table the signal points to lives on the serial thread: hand on the locked copy's owner.
    emit m_hub->deviceAddedRequest(nullptr);
}

void MainWindow::playTimerTick()
{
    m_playback->tick();
}

bool MainWindow::isLoadingLog() const
{
    return m_loader->isRunning();
}

void MainWindow::openLogDialog()
{
    QStringList patterns;
    for (const QString &e : TelemetryData::supportedExtensions())
        patterns << QStringLiteral("*.") + e;
    const QString path = QFileDialog::getOpenFileName(
        this, tr("Open Vexo HC/HS log file"), m_settings->text(QStringLiteral("Opendir")),
        tr("Log files (%1);;All files(*.*)").arg(patterns.join(QLatin1Char(' '))));
    if (path.isEmpty())
        return;
    m_settings->setValue(QStringLiteral("Opendir"), QFileInfo(path).absolutePath());
    openLog(path);
}

void MainWindow::openLog(const QString &path)
{
    if (!m_recording->settleBeforeReplacing(tr("open %1").arg(QFileInfo(path).fileName())))
        return;
    if (m_progress)
        m_progress->deleteLater();
    m_progress =
        new QProgressDialog(tr("Loading %1...").arg(QFileInfo(path).fileName()), tr("Cancel"), 0, 100, this);
    m_progress->setWindowTitle(tr("Open log file"));
    m_progress->setMinimumDuration(300);
    m_progress->setAutoClose(false);
    m_progress->setAutoReset(false);
    connect(m_loader, &LogLoadTask::progress, m_progress.data(), &QProgressDialog::setValue);
    connect(m_progress.data(), &QProgressDialog::canceled, m_loader, &LogLoadTask::cancel);
    m_loader->start(path);
}

void MainWindow::logFinished(bool ok, const TelemetryDataPackage &package, const QString &error,
                             const QString &path, const QString &warning)
{
    if (m_progress) {
        m_progress->close();
        m_progress->deleteLater();
    }
    if (m_closing)
        return;
    // The sensor rows the reader met for the first time, in one transaction.
    if (m_database->isOpen() && m_database->beginTransaction()) {
        m_sensorBridge->flushPending();
        if (!m_database->commitTransaction())
            m_database->rollbackTransaction();
    }
    if (ok) {
        m_store->setPackage(package);
        m_playback->setLength(ModelLibrary::lengthOf(package));
        m_logger->write(QStringLiteral("LOG"), tr("Opened %1").arg(path));
        if (warning.isEmpty()) {
            statusBar()->showMessage(tr("Loaded %1").arg(QDir::toNativeSeparators(path)), 5000);
        } else {
            // Part of the file could not be read: what is shown is not the whole flight.
            m_logger->write(QStringLiteral("LOG"), warning);
            statusBar()->showMessage(tr("Loaded with damage: %1").arg(warning));
            m_manager->showMessage(this, QMessageBox::Warning, tr("Damaged log file"),
                                   tr("<b>Part of the log file could not be read.</b><br>What could be read "
                                      "is shown.<ul><li>%1</li></ul>")
                                       .arg(warning.toHtmlEscaped()));
        }
    } else if (!error.isEmpty()) {
        QMessageBox::critical(this, tr("Error"),
                              tr("<b>Unable to load the logfile:</b><ul><li>%1</li></ul>").arg(error));
    }
    emit logLoaded(ok);
}

void MainWindow::closeLog()
{
    if (!m_recording->settleBeforeReplacing(tr("close the log")))
        return;
    m_playback->setLength(0);
    m_store->clearSensors();
}

void MainWindow::exportLog()
{
    const QString path = LogFileWriter::withLogSuffix(QFileDialog::getSaveFileName(
        this, tr("Save as Log file"), m_settings->text(QStringLiteral("Exportdir")),
        tr("LOG files (*.log);;All files(*.*)")));
    if (path.isEmpty())
        return;
    m_settings->setValue(QStringLiteral("Exportdir"), QFileInfo(path).absolutePath());
    QString error;
    if (!LogFileWriter::writeFile(m_store->package(), path, &error)) {
        qWarning().noquote() << "Export log file:" << error;
        QMessageBox::critical(this, tr("Error"),
                              tr("<b>Unable to export log file</b><br>Error writing to disk"));
    }
}

void MainWindow::storeLogsUnderModel()
{
    // A log opened from the database is stored already; offering it again would make a copy.
    const TelemetryDataPackage *open = m_store->storedLogId() < 0 ? &m_store->package() : nullptr;
    DialogLoadLog dialog(m_library, m_activeModel, {}, open, this);
    connect(&dialog, &DialogLoadLog::logsStored, this, [this] { emit logStoredInDatabase(-1); });
    dialog.exec();
}

void MainWindow::showStartupReport()
{
    if (m_startupReport.isOk())
        return;
    const QString items =
        m_startupReport.message.toHtmlEscaped().replace(QLatin1Char('\n'), QStringLiteral("</li><li>"));
    const bool error = m_startupReport.severity == StartupReport::Error;
    m_manager->showMessage(this, error ? QMessageBox::Critical : QMessageBox::Warning, tr("Data folder"),
                           (error
                                ? tr("<b>Your work in this session cannot be saved:</b><ul><li>%1</li></ul>")
                                : tr("<b>The data folder needs attention:</b><ul><li>%1</li></ul>"))
                               .arg(items));
}

void MainWindow::restoreSession()
{
    QString error;
    if (m_activeModel >= 0 && m_manager->loadLayoutForModel(m_activeModel, &error))
        return;
    if (!error.isEmpty())
        m_logger->write(QStringLiteral("LAYOUT"), error);
    // No model yet, or its layout is unusable: start from the default arrangement.
    m_manager->loadLayout(DefaultLayout::document(), &error);
}

bool MainWindow::applyDefaultLayout()
{
    QString error;
    if (m_manager->loadLayout(DefaultLayout::document(), &error))
        return true;
    QMessageBox::critical(this, tr("Layout error"), tr("<b>Unable to import default layout file</b>"));
    return false;
}

void MainWindow::saveLayoutToFile()
{
    m_manager->exportLayoutToFile(this, m_settings->text(QStringLiteral("Exportdir")));
}

void MainWindow::importLayoutFromFile()
{
    m_manager->importLayoutFromFile(this, m_settings->text(QStringLiteral("Opendir")));
}

void MainWindow::showConfiguration()
{
    DialogConfig dialog(m_settings, m_link->wrapper(), this);
    if (dialog.exec() != QDialog::Accepted)
        return;
    applySavedPort();
}

void MainWindow::openHelpFile(const QString &file, const char *missingMessage)
{
    const QString path = programFolder() + QStringLiteral("/Help/") + file;
    if (!QFileInfo::exists(path)) {
        qDebug().noquote() << missingMessage << path;
        QMessageBox::information(this, tr("Help"), tr("The help file %1 is not installed.").arg(path));
        return;
    }
    QDesktopServices::openUrl(QUrl(QStringLiteral("file:///") + path));
}

void MainWindow::startEmulator()
{
    const QString program = programFolder() + QStringLiteral("/hc-sim/hc-sim");
    if (!QFileInfo(program).isExecutable()) {
        QMessageBox::information(
            this, tr("HC/HS-8 Emulator"),
            tr("The transmitter emulator is not installed: %1 was not found.").arg(program));
        return;
    }
    if (!m_emulator)
        m_emulator = new QProcess(this);
    if (m_emulator->state() == QProcess::NotRunning)
        m_emulator->start(QStringLiteral("\"%1\"").arg(program), QStringList());
}

void MainWindow::checkForUpdates()
{
    QMessageBox::information(this, tr("Vexo Studio Update"),
                             tr("<b>Update not available: </b><ul><li>%1</li></ul>")
                                 .arg(tr("this build has no update service configured")));
}

void MainWindow::showAbout()
{
    QMessageBox::about(
        this, tr("About"),
        tr("<h3>Vexo Studio</h3><p>V %1</p><p>Vexo Telemetry<br>Workstation for radio-controlled "
           "model telemetry</p><p>Qt %2, built %3</p>")
            .arg(QString::fromLatin1(AppSettings::kVersion), QString::fromLatin1(qVersion()),
                 QStringLiteral(__DATE__)));
}

void MainWindow::resetToolbars()
{
    restoreState(m_defaultState);
    m_recordBar->show();
    m_playback->show();
}

bool MainWindow::saveSession(QString *error)
{
    if (m_activeModel < 0)
        return true;
    return m_manager->saveLayoutForModel(m_activeModel, error);
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    // The recording comes first: everything after this may fail, and it must not be lost with it.
    if (!m_recording->settleBeforeClosing()) {
        event->ignore();
        return;
    }
    m_closing = true;
    m_sensorBridge->setClosing(true);
    m_loader->stop();
    QString error;
    if (!saveSession(&error))
        QMessageBox::critical(
            this, tr("Error"),
            tr("<b>Unable to save session for the current model:</b><ul><li>%1</li></ul>").arg(error));
    if (!m_database->isOpen())
        QMessageBox::warning(this, tr("Error while closing"), tr("Unable to save application data"));
    m_settings->setBytes(QStringLiteral("Win-Size"), saveGeometry());
    m_settings->setBytes(QStringLiteral("Win-State"), saveState());
    m_settings->setValue(QStringLiteral("Model-ID"), m_activeModel);
    if (!m_settings->save(QDir(AppSettings::dataFolder()).filePath(AppSettings::fileName())))
        QMessageBox::warning(
            this, tr("Error while closing"),
            tr("Unable to save configuration") +
                QStringLiteral("<ul><li>%1</li></ul>").arg(m_settings->lastError().toHtmlEscaped()));
    m_link->stop();
    event->accept();
}

void MainWindow::dragEnterEvent(QDragEnterEvent *event)
{
    if (event->mimeData()->hasUrls())
        event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent *event)
{
    for (const QUrl &url : event->mimeData()->urls()) {
        if (url.isLocalFile() && TelemetryData::loaderFor(url.toLocalFile(), nullptr)) {
            openLog(url.toLocalFile());
            event->acceptProposedAction();
            return;
        }
    }
}
