#include "app/MainWindow.h"

#include "app/ActionBuilder.h"
#include "app/AppSettings.h"
#include "app/DialogConfig.h"
#include "app/LogLoadTask.h"
#include "app/PlaybackBar.h"
#include "app/RecordingController.h"
#include "app/RecordingIndicator.h"
#include "app/SensorTableBridge.h"
#include "app/UpdateController.h"
#include "database/DataFolderCheck.h"
#include "database/DatabaseManager.h"
#include "database/DefaultLayout.h"
#include "database/Logger.h"
#include "database/ModelLibrary.h"
#include "link/DeviceDefinitions.h"
#include "link/LinkMetaTypes.h"
#include "link/SerialLink.h"
#include "link/SerialPlatform.h"
#include "link/SerialPortWrapper.h"
#include "link/TelemetryDecoder.h"
#include "telemetry/LogFileWriter.h"
#include "telemetry/TelemetryData.h"
#include "tools/FirmwareDatabase.h"
#include "tools/MapKeys.h"
#include "tools/NewsFeed.h"
#include "tools/ui/DialogUpdater.h"
#include "transmitter/DriveEnumerator.h"
#include "transmitter/TransmitterDetector.h"
#include "transmitter/ui/TransmitterTools.h"
#include "widgets/devices/SerialParamLink.h"
#include "widgets/devices/WidgetDeviceTree.h"
#include "widgets/graph/WidgetGraph.h"
#include "widgets/graph/WidgetGraphExport.h"
#include "widgets/layout/Prompter.h"
#include "widgets/layout/WidgetManager.h"
#include "widgets/layout/WindowHub.h"
#include "widgets/layout/WindowTypes.h"
#include "widgets/map/WidgetMaps.h"
#include "widgets/models/DialogLoadLog.h"
#include "widgets/models/WidgetModel.h"
#include "widgets/news/WidgetRSS.h"
#include "widgets/quick/WidgetDial.h"
#include "widgets/quick/WidgetValuesQuick.h"
#include "widgets/sensors/DialogKMLExport.h"
#include "widgets/sensors/WidgetLogSensors.h"
#include "widgets/table/WidgetDataTable.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDebug>
#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QProcess>
#include <QProgressDialog>
#include <QScreen>
#include <QStatusBar>
#include <QTimer>
#include <QToolBar>
#include <QUrl>

#include <memory>

MainWindow::MainWindow(AppSettings *settings, Logger *logger, QWidget *parent)
    : QMainWindow(parent), m_settings(settings), m_logger(logger)
{
    registerLinkMetaTypes();
    setWindowTitle(tr("Vexo Studio"));
    setAcceptDrops(true);

    const QString data = AppSettings::dataFolder();
    m_database = new DatabaseManager(data, logger);
    // Opens, checks and upgrades the database; what it finds is shown once the window is up. Counting
    // the alarms of every log of an older database takes a while once: shown, not a silent wait.
    std::unique_ptr<QProgressDialog> upgrading;
    m_database->setUpgradeProgress([&upgrading](int done, int total) {
        if (!upgrading) {
            upgrading = std::make_unique<QProgressDialog>(
                tr("Updating the logbook of %n stored logs...", nullptr, total), QString(), 0, total);
            upgrading->setWindowTitle(tr("Vexo Studio"));
            upgrading->setWindowModality(Qt::ApplicationModal);
            upgrading->setMinimumDuration(500);
        }
        upgrading->setValue(done);
    });
    m_startupReport = DataFolderCheck::run(m_database);
    m_database->setUpgradeProgress({});
    upgrading.reset();
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
    // The measuring cursors belonged to the previous recording's times.
    connect(m_store, &TelemetryData::logFileLoaded, m_hub, [this] {
        m_hub->setCursorPair(CursorPair());
        emit m_hub->logFileLoadedRequest();
    });

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
            [this] { DialogKMLExport::exportTrack(m_store->sensors(), this, prompter()); });

    m_recording = new RecordingController(m_store, m_decoder, m_library,
                                          QDir(data).filePath(QStringLiteral("Recordings")), this, this);
    m_recording->setPrompter(prompter());
    // A model that is gone (deleted by another tool) is not active.
    const int savedModel = m_settings->number(AppSettings::kModelId);
    m_activeModel = savedModel >= 0 && !m_library->modelName(savedModel).isEmpty() ? savedModel : -1;
    m_recording->setActiveModel(m_activeModel);
    connect(m_recording, &RecordingController::logStored, this, &MainWindow::logStoredInDatabase);
    connect(m_recording, &RecordingController::stored, this, [this](const QString &where) {
        statusBar()->showMessage(tr("Recording stored %1").arg(where), 10000);
    });

    m_link = new SerialLink(this);
    TransmitterDetector::install(m_link->wrapper(), std::make_unique<SystemDriveEnumerator>());
    connectSerial();
    createActions();
    createStatusBar();
    m_defaultState = saveState();
    if (!restoreGeometry(m_settings->bytes(AppSettings::kWindowSize))) {
        // First start: most of the screen, so the seven windows of the default layout have room.
        const QRect screen = QGuiApplication::primaryScreen()
                                 ? QGuiApplication::primaryScreen()->availableGeometry()
                                 : QRect(0, 0, 1600, 1000);
        resize(screen.size() * 0.85);
        move(screen.center() - rect().center());
    }
    restoreState(m_settings->bytes(AppSettings::kWindowState));
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
    m_manager->registerWindow(
        WindowTypes::key(WindowTypes::Sensors), [](WidgetManager *) { return new WidgetLogSensors; },
        &WidgetLogSensors::wire);
    WidgetDataTable::registerWith(m_manager);
    m_manager->registerWindow(
        WindowTypes::key(WindowTypes::Graph),
        [this](WidgetManager *m) {
            auto *graph = new WidgetGraph(m->telemetry(), m_sensorBridge);
            graph->setExportSettings(
                [this] {
                    return WidgetGraphExport::Settings{m_settings->text(AppSettings::kImagePath),
                                                       m_settings->number(AppSettings::kImageWidth),
                                                       m_settings->number(AppSettings::kImageHeight)};
                },
                [this](const WidgetGraphExport::Settings &s) {
                    m_settings->setValue(AppSettings::kImagePath, s.path);
                    m_settings->setValue(AppSettings::kImageWidth, s.width);
                    m_settings->setValue(AppSettings::kImageHeight, s.height);
                });
            return graph;
        },
        &WidgetGraph::wire);
    m_manager->registerWindow(
        WindowTypes::key(WindowTypes::Maps),
        [this](WidgetManager *m) {
            auto *map = new WidgetMaps(m->telemetry(), AppSettings::dataFolder());
            // The picture export starts where the graph's last one went.
            map->setImagePathSettings(
                [this] { return m_settings->text(AppSettings::kImagePath); },
                [this](const QString &path) { m_settings->setValue(AppSettings::kImagePath, path); });
            return map;
        },
        &WidgetMaps::wire);
    m_manager->registerWindow(
        WindowTypes::key(WindowTypes::Dial), [](WidgetManager *m) { return new WidgetDial(m->telemetry()); },
        &WidgetDial::wire);
    m_manager->registerWindow(
        WindowTypes::key(WindowTypes::Values),
        [](WidgetManager *m) { return new WidgetValuesQuick(m->telemetry()); }, &WidgetValuesQuick::wire);
    m_manager->registerWindow(
        WindowTypes::key(WindowTypes::RSS),
        [](WidgetManager *) { return new WidgetRSS(NewsFeed::configuredUrl()); }, &WidgetRSS::wire);
    m_manager->registerWindow(
        WindowTypes::key(WindowTypes::LXBusDevices),
        [this](WidgetManager *) {
            auto *tree = new WidgetDeviceTree;
            // The link is made after the factories are registered but before any window exists.
            if (SerialPortWrapper *w = m_link ? m_link->wrapper() : nullptr) {
                tree->setDeviceSource([w] { return w->devices(); });
                tree->setParamLink(new SerialParamLink(w, tree));
            }
            tree->setDefinitionsPath(DeviceDefinitions::locate(programFolder()));
            return tree;
        },
        &WidgetDeviceTree::wire);
    m_manager->registerWindow(
        WindowTypes::key(WindowTypes::Models),
        [this](WidgetManager *) {
            auto *models = new WidgetModel(m_database, m_library, m_store);
            models->selectModel(m_activeModel);
            models->setOpenGuard([this](const QString &name) {
                return m_recording->settleBeforeReplacing(tr("open %1").arg(name));
            });
            connect(models, &WidgetModel::modelActivated, this, &MainWindow::activateModel);
            connect(models, &WidgetModel::modelDeleted, this, &MainWindow::modelDeleted);
            connect(this, &MainWindow::logStoredInDatabase, models, &WidgetModel::reload);
            return models;
        },
        &WidgetModel::wire);
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
        const QMessageBox::StandardButton answer = prompter()->question(
            this, tr("Layout"),
            tr("<b>Keep the current arrangement of windows?</b><br>Model %1 brings its own layout. Save the "
               "current one as a named layout first?")
                .arg(m_library->modelName(modelId).toHtmlEscaped()),
            QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel, QMessageBox::Yes);
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
    m_settings->setValue(AppSettings::kModelId, modelId);
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
    // The windows rebuild from the locked copy either way.
    connect(w->protocol(), &LxBusProtocol::deviceRemoved, this, &MainWindow::deviceAdded);
}

// A saved port that is present is opened; otherwise the adapter search looks for one.
void MainWindow::applySavedPort()
{
    const QString port = m_settings->text(AppSettings::kPort);
    if (!port.isEmpty() && SerialPlatform::portExists(port))
        QMetaObject::invokeMethod(m_link->wrapper(), "setSerialPort", Qt::QueuedConnection,
                                  Q_ARG(QString, port));
    else
        QMetaObject::invokeMethod(m_link->wrapper(), "findDefaultSerialPort", Qt::QueuedConnection);
    const QString joystick = m_settings->text(AppSettings::kJoystick);
    if (!joystick.isEmpty())
        QMetaObject::invokeMethod(m_link->wrapper(), "setJoystick", Qt::QueuedConnection,
                                  Q_ARG(QString, joystick));
}

void MainWindow::createActions()
{
    const ActionBuilder build(this);
    QList<QAction *> file;
    build.menu(
        menuBar(), tr("File"),
        {{tr("Open log file"), QKeySequence(tr("Ctrl+O")), tr("Select & open log file"),
          [this] { openLogDialog(); }},
         {tr("Close log file"), QKeySequence(tr("Ctrl+F4")), {}, [this] { closeLog(); }},
         {tr("Export log file"), {}, {}, [this] { exportLog(); }},
         {tr("Load log files..."),
          {},
          tr("Keep log files, or the open log, under a model"),
          [this] { storeLogsUnderModel(); }},
         // One step back after cutting the recording in a graph, until the log is stored or closed.
         {tr("Undo cut"), QKeySequence::Undo, tr("Take the last cut back"), [this] { m_store->undoCut(); }},
         {},
         {tr("Configuration..."), {}, tr("Opens configuraiton dialog"), [this] { showConfiguration(); }},
         {},
         {tr("Exit"), QKeySequence(tr("Ctrl+Q")), tr("Exits the application"), [this] { close(); }}},
        &file);
    QAction *undoCut = file.at(4);
    undoCut->setEnabled(m_store->canUndoCut());
    connect(m_store, &TelemetryData::undoCutAvailable, undoCut, &QAction::setEnabled);

    build.menu(
        menuBar(), tr("Layout"),
        {{tr("Save layout"), {}, {}, [this] { m_manager->saveLayoutToDatabase(this); }},
         {tr("Load layout"), {}, {}, [this] { m_manager->loadLayoutFromDatabase(this); }},
         {tr("Export layout..."),
          {},
          tr("Export current layout to file"),
          [this] { m_manager->exportLayoutToFile(this, m_settings->text(AppSettings::kExportDir)); }},
         {tr("Import layout..."),
          {},
          tr("Import layout from file"),
          [this] { m_manager->importLayoutFromFile(this, m_settings->text(AppSettings::kOpenDir)); }},
         {},
         {tr("Reset toolbars"), {}, tr("Reset toolbars to the default state"), [this] { resetToolbars(); }}});

    const auto notYet = [this](const QString &name) {
        return MenuEntry{name, {}, {}, [this, name] {
                             prompter()->information(
                                 this, name, tr("This tool is not part of this version of Vexo Studio yet."));
                         }};
    };
    // The transmitter tools work on the drives the serial thread detects.
    SerialPortWrapper *wrapper = m_link->wrapper();
    auto *transmitters = new TransmitterTools([wrapper] { return wrapper->transmitters(); },
                                              m_database->isOpen() ? m_database : nullptr,
                                              [this] { return prompter(); }, this, this);
    connect(wrapper, &SerialPortWrapper::transmitterAdded, transmitters,
            &TransmitterTools::onTransmitterAdded);
    connect(wrapper, &SerialPortWrapper::transmitterRemoved, transmitters,
            &TransmitterTools::onTransmitterRemoved);
    // Synchronised logs appear in the models windows and their logbooks.
    connect(transmitters, &TransmitterTools::logsSynchronized, this,
            [this] { emit logStoredInDatabase(-1); });
    build.menu(menuBar(), tr("Tools"),
               {{tr("Device Updater"),
                 {},
                 {},
                 [this, wrapper] {
                     // The device updates database the update check keeps in the data folder.
                     auto *dialog = new DialogUpdater(
                         wrapper, FirmwareDatabase::pathIn(AppSettings::dataFolder()), this);
                     dialog->setAttribute(Qt::WA_DeleteOnClose);
                     dialog->open();
                 }},
                notYet(tr("VEXOBOX Maxi")),
                notYet(tr("RGPS Import")),
                {tr("Transmitter Wizard"), {}, {}, [transmitters] { transmitters->openWizard(); }},
                {tr("HC/HS-8 Emulator"), {}, {}, [this] { startEmulator(); }}});

    m_playback = new PlaybackBar(this);
    connect(m_playback->timer(), &QTimer::timeout, this, &MainWindow::playTimerTick);
    connect(m_playback, &PlaybackBar::positionChanged, m_manager, &WidgetManager::setPlaybackTime);
    QList<QAction *> playback;
    build.menu(
        menuBar(), tr("Playback"),
        {{tr("Play/Pause"), QKeySequence(Qt::Key_Space), {}, [this] { m_playback->playPause(); }},
         {tr("Stop"), {}, {}, [this] { m_playback->stop(); }},
         {tr("Increase Rate"), QKeySequence(tr("Ctrl+Up")), {}, [this] { m_playback->increaseRate(); }},
         {tr("Decrease Rate"), QKeySequence(tr("Ctrl+Down")), {}, [this] { m_playback->decreaseRate(); }},
         {tr("Reset Rate"), QKeySequence(tr("Ctrl+R")), {}, [this] { m_playback->resetRate(); }},
         {tr("Next Step"), QKeySequence(tr("Ctrl+Right")), {}, [this] { m_playback->nextStep(); }},
         {tr("Previous Step"), QKeySequence(tr("Ctrl+Left")), {}, [this] { m_playback->previousStep(); }},
         {},
         {tr("Start Real-Time Recording"),
          QKeySequence(tr("Ctrl+Shift+R")),
          {},
          [this] { m_recording->toggle(); }}},
        &playback);
    // One shortcut starts and stops: checked while recording.
    QAction *record = playback.constLast();
    record->setCheckable(true);
    connect(m_recording, &RecordingController::stateChanged, record, [this, record] {
        const bool on = m_recording->isRecording();
        record->setChecked(on);
        record->setText(on ? tr("Stop Real-Time Recording") : tr("Start Real-Time Recording"));
    });

    m_recordBar = addToolBar(tr("Telemetry recording controls"));
    m_recordBar->setObjectName(QStringLiteral("Recording-Toolbar"));
    const auto tool = [this](const char *icon, const QString &text, void (RecordingController::*slot)()) {
        QAction *a = m_recordBar->addAction(
            QIcon(QStringLiteral(":/Icons/Program/Resources/") + QLatin1String(icon)), text);
        connect(a, &QAction::triggered, m_recording, slot);
    };
    tool("play_rec32x32.png", tr("Start real-time telemetry"), &RecordingController::start);
    tool("pause32x32.png", tr("Pause real-time telemetry"), &RecordingController::pause);
    tool("stop32x32.png", tr("Stop real-time telemetry"), &RecordingController::stop);
    addToolBar(m_playback);

    build.menu(menuBar(), tr("Help"),
               {{tr("Check for updates"), {}, {}, [this] { checkForUpdates(); }},
                {tr("Help contents"),
                 {},
                 {},
                 [this] { openHelpFile(QStringLiteral("index-en.html"), "Help file not found:"); }},
                {tr("Changelog"),
                 {},
                 {},
                 [this] { openHelpFile(QStringLiteral("changelog-en.html"), "Changelog file not found:"); }},
                {tr("About"), {}, {}, [this] { showAbout(); }}});
}

void MainWindow::createStatusBar()
{
    m_serialIcon = new QLabel(this);
    m_serialText = new QLabel(this);
    statusBar()->addPermanentWidget(new RecordingIndicator(m_recording, this));
    statusBar()->addPermanentWidget(m_serialIcon);
    statusBar()->addPermanentWidget(m_serialText);
    serialStatusChanged(false);
}

Prompter *MainWindow::prompter() const
{
    return m_manager->prompter();
}

void MainWindow::setPrompter(Prompter *prompter)
{
    m_manager->setPrompter(prompter);
    m_recording->setPrompter(prompter);
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
    if (prompter()->choose(this, QMessageBox::Critical, tr("Critical Error"), text,
                           {tr("Reconnect"), tr("OK")}, 1) == 0)
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
    const QString path =
        prompter()->openFile(this, tr("Open Vexo HC/HS log file"), m_settings->text(AppSettings::kOpenDir),
                             tr("Log files (%1);;All files(*.*)").arg(patterns.join(QLatin1Char(' '))));
    if (path.isEmpty())
        return;
    m_settings->setValue(AppSettings::kOpenDir, QFileInfo(path).absolutePath());
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
    // The sensor rows the reader met for the first time.
    m_sensorBridge->flushPending();
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
            prompter()->warning(this, tr("Damaged log file"),
                                tr("<b>Part of the log file could not be read.</b><br>What could be read "
                                   "is shown.<ul><li>%1</li></ul>")
                                    .arg(warning.toHtmlEscaped()));
        }
    } else if (!error.isEmpty()) {
        prompter()->error(this, tr("Error"),
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
    const QString path = LogFileWriter::withLogSuffix(
        prompter()->saveFile(this, tr("Save as Log file"), m_settings->text(AppSettings::kExportDir),
                             tr("LOG files (*.log);;All files(*.*)")));
    if (path.isEmpty())
        return;
    m_settings->setValue(AppSettings::kExportDir, QFileInfo(path).absolutePath());
    QString error;
    if (!LogFileWriter::writeFile(m_store->package(), path, &error)) {
        qWarning().noquote() << "Export log file:" << error;
        prompter()->error(this, tr("Error"), tr("<b>Unable to export log file</b><br>Error writing to disk"));
    }
}

void MainWindow::storeLogsUnderModel()
{
    // A log opened from the database is stored already; offering it again would make a copy.
    const TelemetryDataPackage *open = m_store->storedLogId() < 0 ? &m_store->package() : nullptr;
    DialogLoadLog dialog(m_library, m_activeModel, {}, open, this);
    dialog.setPrompter(prompter());
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
    const QString text = (error ? tr("<b>Your work in this session cannot be saved:</b><ul><li>%1</li></ul>")
                                : tr("<b>The data folder needs attention:</b><ul><li>%1</li></ul>"))
                             .arg(items);
    if (error)
        prompter()->error(this, tr("Data folder"), text);
    else
        prompter()->warning(this, tr("Data folder"), text);
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
    prompter()->error(this, tr("Layout error"), tr("<b>Unable to import default layout file</b>"));
    return false;
}

void MainWindow::startWithoutSettings(bool warn)
{
    if (warn)
        prompter()->warning(this, tr("Error"),
                            tr("<b>Configuration not loaded</b><br><br>Reinitializing..."));
    applyDefaultLayout();
}

void MainWindow::showConfiguration()
{
    DialogConfig dialog(m_settings, m_link->wrapper(), this);
    if (dialog.exec() != QDialog::Accepted)
        return;
    applySavedPort();
    QString keys[MapKeys::kProviders];
    MapKeys::load(AppSettings::dataFolder(), keys);
    for (QWidget *w : m_manager->widgets()) {
        if (auto *map = qobject_cast<WidgetMaps *>(w)) {
            for (int i = 0; i < MapKeys::kProviders; ++i)
                map->loader()->setApiKey(i, keys[i]);
        }
    }
}

void MainWindow::openHelpFile(const QString &file, const char *missingMessage)
{
    const QString path = programFolder() + QStringLiteral("/Help/") + file;
    if (!QFileInfo::exists(path)) {
        qDebug().noquote() << missingMessage << path;
        prompter()->information(this, tr("Help"), tr("The help file %1 is not installed.").arg(path));
        return;
    }
    QDesktopServices::openUrl(QUrl(QStringLiteral("file:///") + path));
}

void MainWindow::startEmulator()
{
    const QString program = programFolder() + QStringLiteral("/hc-sim/hc-sim");
    if (!QFileInfo(program).isExecutable()) {
        prompter()->information(
            this, tr("HC/HS-8 Emulator"),
            tr("The transmitter emulator is not installed: %1 was not found.").arg(program));
        return;
    }
    if (!m_emulator)
        m_emulator = new QProcess(this);
    if (m_emulator->state() == QProcess::NotRunning)
        m_emulator->start(QStringLiteral("\"%1\"").arg(program), QStringList());
}

UpdateController *MainWindow::updates()
{
    if (!m_updates) {
        m_updates = new UpdateController(
            this, [this] { return prompter(); }, this);
        connect(m_updates, &UpdateController::quitRequested, this, &MainWindow::close, Qt::QueuedConnection);
    }
    return m_updates;
}

void MainWindow::checkForUpdates()
{
    updates()->check(true);
}

void MainWindow::checkForUpdatesAtStart()
{
    updates()->check(false);
}

void MainWindow::showAbout()
{
    prompter()->information(
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
    if (m_updates)
        m_updates->stop();
    m_sensorBridge->setClosing(true);
    m_loader->stop();
    QString error;
    if (!saveSession(&error))
        prompter()->error(
            this, tr("Error"),
            tr("<b>Unable to save session for the current model:</b><ul><li>%1</li></ul>").arg(error));
    if (!m_database->isOpen())
        prompter()->warning(this, tr("Error while closing"), tr("Unable to save application data"));
    m_settings->setBytes(AppSettings::kWindowSize, saveGeometry());
    m_settings->setBytes(AppSettings::kWindowState, saveState());
    m_settings->setValue(AppSettings::kModelId, m_activeModel);
    if (!m_settings->save(QDir(AppSettings::dataFolder()).filePath(AppSettings::fileName())))
        prompter()->warning(
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
