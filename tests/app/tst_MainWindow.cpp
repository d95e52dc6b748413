#include "app/AppSettings.h"
#include "app/MainWindow.h"
#include "app/RecordingController.h"
#include "database/DatabaseManager.h"
#include "database/Logger.h"
#include "database/ModelLibrary.h"
#include "database/ModelTableModel.h"
#include "telemetry/TelemetryData.h"
#include "tests/support/ScriptedPrompter.h"
#include "tests/support/TestFiles.h"
#include "tests/support/TestSamples.h"
#include "widgets/layout/WidgetContainer.h"
#include "widgets/layout/WidgetManager.h"
#include "widgets/layout/WindowHub.h"
#include "widgets/layout/WindowTypes.h"
#include "widgets/models/WidgetModel.h"

#include <QAction>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QSignalSpy>
#include <QStatusBar>
#include <QTableView>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

namespace {
QAction *findAction(QWidget *w, const QString &text)
{
    const QList<QAction *> all = w->findChildren<QAction *>();
    const auto it = std::find_if(all.begin(), all.end(), [&text](QAction *a) { return a->text() == text; });
    return it == all.end() ? nullptr : *it;
}

// Live telemetry as the decoder hands it over: one device with one variable, n samples 100 ms apart.
void feedLive(TelemetryData *store, quint32 device, int n)
{
    store->describeSensor(device, 0, QStringLiteral("Live %1").arg(device), QString());
    store->describeSensor(device, 1, QStringLiteral("Voltage"), QStringLiteral("V"));
    QVector<TelemetrySample> batch;
    for (int i = 0; i < n; ++i)
        batch.append({device, 1, sample(100 * (i + 1), 500 + i, 1)});
    store->appendSamples(batch);
}

// Selects a model in the models window, as the pilot's click does.
WidgetModel *pickModel(MainWindow &w, int modelId)
{
    auto *models = w.findChild<WidgetModel *>();
    models->reload();
    models->selectModel(modelId);
    return models;
}

int logCount(ModelLibrary *library, int modelId)
{
    bool ok = false;
    const int n = library->database()->logLengths(modelId, &ok).size();
    return ok ? n : -1;
}

} // namespace

class tst_MainWindow : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void actionsMenusAndStatus();
    void opensLogsOffTheInterfaceThread();
    void startWithoutSettingsWarnsThenShowsTheDefault();
    void damagedLogSaysWhatHappened_data();
    void damagedLogSaysWhatHappened();
    void closingSavesTheSettings();
    void modelMenuSurvivesTheLayoutSwap();
    void recordingIsStoredBeforeAnythingReplacesIt_data();
    void recordingIsStoredBeforeAnythingReplacesIt();
    void recordingHoldsOnlyWhatArrivedDuringIt();
    void recordingWithoutModelGoesToAFile();
    void pulledAdapterSaysWhereTheRecordingIs();
    void deletingTheActiveModelLeavesNoneActive();
    void editModelRenames();
    void unsavedArrangementIsOfferedBeforeAModelReplacesIt();

private:
    QTemporaryDir m_data;
    std::unique_ptr<Logger> m_logger;
};

void tst_MainWindow::initTestCase()
{
    Q_INIT_RESOURCE(resources);
    // The window keeps its database and settings here, never in the user's folder.
    qputenv("XDG_DATA_HOME", m_data.path().toLocal8Bit());
    QCoreApplication::setOrganizationName(QStringLiteral("Vexo"));
    QCoreApplication::setApplicationName(QStringLiteral("Vexo Studio Test"));
    m_logger = std::make_unique<Logger>(m_data.filePath("Application.log"));
}

void tst_MainWindow::actionsMenusAndStatus()
{
    AppSettings settings;
    MainWindow w(&settings, m_logger.get());
    // Text, shortcut and status tip, exactly as the pilot sees them.
    const QStringList expected[] = {
        {"Configuration...", "", "Opens configuraiton dialog"},
        {"Exit", "Ctrl+Q", "Exits the application"},
        {"Open log file", "Ctrl+O", "Select & open log file"},
        {"Close log file", "Ctrl+F4", ""},
        {"Reset toolbars", "", "Reset toolbars to the default state"},
        {"Export layout...", "", "Export current layout to file"},
        {"Import layout...", "", "Import layout from file"},
        {"Play/Pause", "Space", ""},
        {"Increase Rate", "Ctrl+Up", ""},
        {"Decrease Rate", "Ctrl+Down", ""},
        {"Reset Rate", "Ctrl+R", ""},
        {"Next Step", "Ctrl+Right", ""},
        {"Previous Step", "Ctrl+Left", ""},
        {"Start Real-Time Recording", "Ctrl+Shift+R", ""},
    };
    for (const QStringList &e : expected) {
        QAction *a = findAction(&w, e.at(0));
        QVERIFY2(a, qPrintable(e.at(0)));
        QCOMPARE(QStringList({a->text(), a->shortcut().toString(), a->statusTip()}), e);
    }
    QCOMPARE(w.windowTitle(), QStringLiteral("Vexo Studio"));
    QStringList menus;
    for (QAction *a : w.menuBar()->actions())
        menus << a->text();
    QCOMPARE(menus, QStringList({"File", "Layout", "Tools", "Playback", "Help"}));
    const auto statusTexts = [&w] {
        QStringList labels;
        for (QLabel *l : w.statusBar()->findChildren<QLabel *>())
            labels << l->text();
        return labels;
    };
    QVERIFY(statusTexts().contains(QStringLiteral("Serial port closed")));
    w.serialStatusChanged(true);
    QVERIFY(statusTexts().contains(QStringLiteral("Serial port connected")));
}

void tst_MainWindow::opensLogsOffTheInterfaceThread()
{
    // A log that takes a while to read: the interface must keep turning until it is in.
    const int samples = 400000;
    const QString path = m_data.filePath(QStringLiteral("large.log"));
    QByteArray text = "# large\n000000000;0000100002;0;Rx; \n000000000;0000100002;1;Volt;V\n";
    for (int i = 1; i <= samples; ++i)
        text += QByteArray::number(i * 10).rightJustified(9, '0') + ";0000100002;1;12;1;" +
                QByteArray::number(i % 977) + '\n';
    QVERIFY(writeFile(path, text));
    AppSettings settings;
    MainWindow w(&settings, m_logger.get());
    QSignalSpy loaded(&w, &MainWindow::logLoaded);
    QSignalSpy changed(w.store(), &TelemetryData::sensorsChanged);
    int turnsWhileLoading = 0;
    QTimer beat;
    connect(&beat, &QTimer::timeout, [&] { turnsWhileLoading += loaded.isEmpty() ? 1 : 0; });
    beat.start(1);
    CursorPair pair; // measuring cursors from the log shown before
    pair.hasA = true;
    w.windowManager()->hub()->setCursorPair(pair);
    w.openLog(path);
    QTRY_COMPARE_WITH_TIMEOUT(loaded.count(), 1, 60000);
    QVERIFY(w.windowManager()->hub()->cursorPair().isEmpty());
    QCOMPARE(loaded.first().at(0).toBool(), true);
    QCOMPARE(w.store()->package().sampleCount(), samples);
    QVERIFY(changed.count() >= 1);
    // Read on the interface thread, openLog() would return with the log in and the timer never fired. A
    // busy machine may turn the loop only a few times, so one turn is the proof.
    QVERIFY2(turnsWhileLoading >= 1, qPrintable(QString::number(turnsWhileLoading)));
}

// Start-up that could not read its settings: the warning first, then the default layout in place of
// whatever was shown.
void tst_MainWindow::startWithoutSettingsWarnsThenShowsTheDefault()
{
    struct LayoutAtBox : ScriptedPrompter
    {
        WidgetManager *manager = nullptr;
        QList<QByteArray> layouts;
        QMessageBox::StandardButton showBox(QWidget *parent, QMessageBox::Icon icon, const QString &title,
                                            const QString &text, QMessageBox::StandardButtons choices,
                                            QMessageBox::StandardButton defaultButton) override
        {
            layouts << manager->saveLayout();
            return ScriptedPrompter::showBox(parent, icon, title, text, choices, defaultButton);
        }
    } scripted;
    AppSettings settings;
    QVERIFY(!settings.load(m_data.filePath(QStringLiteral("none-such/config.jsn"))));
    MainWindow w(&settings, m_logger.get());
    scripted.manager = w.windowManager();
    w.windowManager()->setPrompter(&scripted);
    const QByteArray news = R"({"Main-Container":{"Type":"Container","Vertical":0,"Items":[{"Type":"RSS"}],)"
                            R"("Sizes":[100]},"Container":[]})";
    QString error;
    QVERIFY2(w.windowManager()->loadLayout(news, &error), qPrintable(error));
    w.show();
    const QByteArray shown = w.windowManager()->saveLayout();
    QVERIFY(shown.contains(R"({"Type":"RSS"})"));
    w.startWithoutSettings();
    QCOMPARE(scripted.only(),
             QStringLiteral("warning|Error|<b>Configuration not loaded</b><br><br>Reinitializing..."));
    QCOMPARE(scripted.layouts, QList<QByteArray>{shown});
    QStringList leaves;
    const auto collect = [&leaves](WidgetContainer *c, const auto &self) -> void {
        if (c->isLeaf())
            leaves << WindowTypes::key(c->windowType());
        for (WidgetContainer *child : c->childContainers())
            self(child, self);
    };
    collect(w.windowManager()->mainContainer(), collect);
    QCOMPARE(leaves, QStringList({"Sensors", "Models", "LXBusDevices", "Graph", "Dial", "Values"}));
}

void tst_MainWindow::damagedLogSaysWhatHappened_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("opens");
    QByteArray damaged = readAll(QStringLiteral(VEXO_SOURCE_DIR "/samples/sample-flight.log"));
    damaged.insert(damaged.indexOf('\n', damaged.size() / 3) + 1, "000123x;garbage;;\n");
    QTest::newRow("random bytes") << QByteArray("\x93\x01\xff\xfeZZ\n\x00\x11;;;\x7f\n", 14) << false;
    QTest::newRow("one damaged line") << damaged << true;
}

// Nothing readable: an error with the file name, and the open log stays. Partly readable: what could be
// read is shown, and the pilot is told that it is not the whole file.
void tst_MainWindow::damagedLogSaysWhatHappened()
{
    QFETCH(QByteArray, bytes);
    QFETCH(bool, opens);
    AppSettings settings;
    ScriptedPrompter scripted; // outlives the window
    MainWindow w(&settings, m_logger.get());
    w.show();
    w.windowManager()->setPrompter(&scripted);
    QSignalSpy loaded(&w, &MainWindow::logLoaded);
    w.openLog(QStringLiteral(VEXO_SOURCE_DIR "/samples/sample-flight.log"));
    QTRY_COMPARE_WITH_TIMEOUT(loaded.count(), 1, 30000);
    const qint64 before = w.store()->package().sampleCount();
    const QString path =
        m_data.filePath(QStringLiteral("%1.log").arg(QTest::currentDataTag()).replace(' ', '-'));
    QVERIFY(writeFile(path, bytes));
    w.openLog(path);
    QTRY_COMPARE_WITH_TIMEOUT(loaded.count(), 2, 30000);
    QCOMPARE(loaded.last().at(0).toBool(), opens);
    const QString name = QFileInfo(path).fileName();
    // One box: the error, or the warning that not all could be read.
    const QString box = scripted.only();
    QVERIFY2(box.contains(name), qPrintable(box));
    if (!opens) {
        QVERIFY2(box.startsWith(QStringLiteral("error|Error|<b>Unable to load the logfile:</b><ul><li>")),
                 qPrintable(box));
        QCOMPARE(w.store()->package().sampleCount(), before); // the flight that was open stays
        return;
    }
    QVERIFY2(box.startsWith(QStringLiteral("warning|")), qPrintable(box));
    QVERIFY(w.statusBar()->currentMessage().contains(name));
    QVERIFY(w.store()->package().sampleCount() > 0);
}

void tst_MainWindow::closingSavesTheSettings()
{
    AppSettings settings;
    settings.setValue(QStringLiteral("Port"), QStringLiteral("/dev/none-such"));
    {
        MainWindow w(&settings, m_logger.get());
        w.show();
        QVERIFY(w.close());
    }
    AppSettings back;
    QVERIFY(back.load(QDir(AppSettings::dataFolder()).filePath(AppSettings::fileName())));
    QCOMPARE(back.text(QStringLiteral("Port")), QStringLiteral("/dev/none-such"));
    QVERIFY(!back.bytes("Win-State").isEmpty() && !back.bytes("Win-Size").isEmpty());
}

// Right-clicking a model that is not the active one selects it (the layout swap is due) and opens the
// model menu of the very window the swap replaces: the swap must wait for the menu.
void tst_MainWindow::modelMenuSurvivesTheLayoutSwap()
{
    AppSettings settings;
    MainWindow w(&settings, m_logger.get());
    const int first = w.library()->createModel(QStringLiteral("Menu A"));
    const int second = w.library()->createModel(QStringLiteral("Menu B"));
    QVERIFY(first >= 0 && second >= 0);
    QVERIFY(w.applyDefaultLayout());
    w.show();
    QPointer<WidgetModel> models = pickModel(w, first);
    QTRY_COMPARE(w.activeModel(), first);
    models = w.findChild<WidgetModel *>(); // the swap made a new models window
    QVERIFY(models);
    auto *view = models->findChild<QTableView *>();
    QVERIFY(view);
    const QModelIndex target = view->model()->index(models->models()->rowOfModel(second), 0);
    const QPoint pos = view->visualRect(target).center();

    bool aliveWhileOpen = false;
    bool menuSeen = false;
    QTimer::singleShot(300, [&] {
        auto *menu = qobject_cast<QMenu *>(QApplication::activePopupWidget());
        menuSeen = menu != nullptr;
        aliveWhileOpen = !models.isNull();
        if (menu)
            menu->close();
    });
    QTest::mouseClick(view->viewport(), Qt::RightButton, Qt::NoModifier, pos);
    QCOMPARE(models->selectedModel(), second);
    emit view->customContextMenuRequested(pos); // runs the menu until the timer closes it
    QVERIFY(menuSeen);
    QVERIFY(aliveWhileOpen);
    QTRY_COMPARE(w.activeModel(), second);
    QTRY_VERIFY(models.isNull()); // replaced once the menu was gone
}

void tst_MainWindow::recordingIsStoredBeforeAnythingReplacesIt_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<int>("answer");
    QTest::addColumn<int>("storedLogs"); // 0: the recording goes on
    QTest::newRow("open a log, yes") << "open" << int(QMessageBox::Yes) << 1;
    QTest::newRow("open a log, cancel") << "open" << int(QMessageBox::Cancel) << 0;
    QTest::newRow("close the log, yes") << "close" << int(QMessageBox::Yes) << 1;
    QTest::newRow("quit, no question") << "quit" << int(QMessageBox::Cancel) << 1;
}

void tst_MainWindow::recordingIsStoredBeforeAnythingReplacesIt()
{
    QFETCH(QString, action);
    QFETCH(int, answer);
    QFETCH(int, storedLogs);
    const bool stillRecording = storedLogs == 0;
    AppSettings settings;
    // Answers every question of the recording with the given button and keeps what was asked.
    ScriptedPrompter answers;
    answers.fallbackButton = QMessageBox::StandardButton(answer);
    MainWindow w(&settings, m_logger.get());
    const int model = w.library()->createModel(QStringLiteral("Rec %1").arg(QTest::currentDataTag()));
    w.setActiveModel(model);
    w.recording()->setPrompter(&answers);
    w.recording()->start();
    feedLive(w.store(), 0x10001, 25);

    QSignalSpy loaded(&w, &MainWindow::logLoaded);
    if (action == QLatin1String("open")) {
        w.openLog(QStringLiteral(VEXO_SOURCE_DIR "/samples/sample-flight.log"));
        QCOMPARE(answers.asked.size(), 1);
        QVERIFY2(answers.asked.first().text.contains(QStringLiteral("25 samples")),
                 qPrintable(answers.asked.first().text));
        if (!stillRecording) {
            QVERIFY(loaded.wait(30000) || loaded.count() == 1);
            QVERIFY(!w.store()->package().device(0x10001)); // no live device mixed into the log
        }
    } else if (action == QLatin1String("close")) {
        findAction(&w, QStringLiteral("Close log file"))->trigger();
    } else {
        w.show();
        QVERIFY(w.close());
        QVERIFY(answers.asked.isEmpty());
    }
    QCOMPARE(w.recording()->isRecording(), stillRecording);
    QCOMPARE(logCount(w.library(), model), storedLogs);
    if (stillRecording)
        QCOMPARE(w.store()->package().sampleCount(), 25);
}

// A log is open when the recording starts: what is stored holds the live device only, with its samples.
void tst_MainWindow::recordingHoldsOnlyWhatArrivedDuringIt()
{
    AppSettings settings;
    MainWindow w(&settings, m_logger.get());
    const int model = w.library()->createModel(QStringLiteral("Rec only live"));
    w.setActiveModel(model);
    QSignalSpy loaded(&w, &MainWindow::logLoaded);
    w.openLog(QStringLiteral(VEXO_SOURCE_DIR "/samples/sample-flight.log"));
    QVERIFY(loaded.wait(30000) || loaded.count() == 1);
    QCOMPARE(w.store()->package().devices().size(), 6);
    feedLive(w.store(), 0x20002, 3); // the bus describing itself while the log is shown
    QVERIFY(!w.store()->package().device(0x20002));

    // Recording replaces the log on screen: asked first, and Cancel keeps the log.
    ScriptedPrompter prompter;
    w.setPrompter(&prompter);
    prompter.buttons.enqueue(QMessageBox::Cancel);
    w.recording()->start();
    QVERIFY(!w.recording()->isRecording());
    QCOMPARE(w.store()->package().devices().size(), 6);
    prompter.buttons.enqueue(QMessageBox::Yes);
    w.recording()->start();
    QCOMPARE(prompter.textsOf(QStringLiteral("question")).size(), 2);
    QVERIFY(prompter.asked.at(0).text.startsWith(QLatin1String("<b>Close the open log")));
    feedLive(w.store(), 0x20002, 40);
    w.recording()->stop();
    QCOMPARE(logCount(w.library(), model), 1);
    TelemetryDataPackage stored;
    QVERIFY(w.library()->readLog(w.recording()->lastStoredLogId(), &stored));
    QCOMPARE(std::make_tuple(stored.devices().size(), stored.devices().first().id(), stored.sampleCount()),
             std::make_tuple(1, 0x20002u, qint64(40)));
}

// No model is active: the recording is kept as a file, and the pilot is told where.
void tst_MainWindow::recordingWithoutModelGoesToAFile()
{
    AppSettings settings;
    ScriptedPrompter answers;
    MainWindow w(&settings, m_logger.get());
    w.recording()->setPrompter(&answers);
    w.setActiveModel(-1);
    QAction *record = findAction(&w, QStringLiteral("Start Real-Time Recording"));
    QVERIFY(record);
    record->trigger();
    QVERIFY(w.recording()->isRecording());
    feedLive(w.store(), 0x30003, 7);
    record->trigger(); // the same shortcut stops
    QVERIFY(!w.recording()->isRecording());
    QCOMPARE(answers.asked.size(), 1);
    const QString where = w.recording()->lastStoredWhere();
    QVERIFY2(where.contains(QStringLiteral("Recordings")), qPrintable(where));
    const QString path = where.mid(3); // "in <path>"
    TelemetryData check;
    QCOMPARE(check.loadFile(path), 1);
    QCOMPARE(check.package().sampleCount(), 7);
}

void tst_MainWindow::pulledAdapterSaysWhereTheRecordingIs()
{
    AppSettings settings;
    MainWindow w(&settings, m_logger.get());
    const int model = w.library()->createModel(QStringLiteral("Unplugged"));
    w.setActiveModel(model);
    QCOMPARE(w.recording()->adapterLost(), QString()); // nothing recording: nothing to say here
    w.recording()->start();
    feedLive(w.store(), 0x40004, 10); // the last sample 1000 ms after the start
    const QString said = w.recording()->adapterLost();
    QVERIFY(!w.recording()->isRecording());
    QCOMPARE(logCount(w.library(), model), 1);
    TelemetryDataPackage stored;
    QVERIFY(w.library()->readLog(w.recording()->lastStoredLogId(), &stored));
    QCOMPARE(said,
             QStringLiteral("The USB adapter was disconnected; the recording up to %1 is stored under model "
                            "Unplugged.")
                 .arg(stored.recordingDate().addMSecs(1000).toString(QStringLiteral("hh:mm:ss"))));
}

void tst_MainWindow::deletingTheActiveModelLeavesNoneActive()
{
    AppSettings settings;
    MainWindow w(&settings, m_logger.get());
    const int model = w.library()->createModel(QStringLiteral("Doomed"));
    QVERIFY(w.applyDefaultLayout());
    auto *models = pickModel(w, model);
    QTRY_COMPARE(w.activeModel(), model);
    models = w.findChild<WidgetModel *>();
    models->reload();
    QCOMPARE(models->selectedModel(), model);
    const QByteArray before = w.windowManager()->saveLayout();
    ScriptedPrompter scripted; // answers Yes
    w.setPrompter(&scripted);
    models->setPrompter(&scripted);
    models->removeModelAction();
    QCOMPARE(w.activeModel(), -1);
    QCOMPARE(settings.number(QStringLiteral("Model-ID")), -1);
    QTest::qWait(100);
    QCOMPARE(w.activeModel(), -1); // no other model slipped in
    QCOMPARE(w.windowManager()->saveLayout(), before);
    // Closing saves no session for the deleted model: no box beyond the question.
    w.show();
    QVERIFY(w.close());
    QCOMPARE(scripted.asked.size(), 1);
}

void tst_MainWindow::editModelRenames()
{
    AppSettings settings;
    MainWindow w(&settings, m_logger.get());
    const int model = w.library()->createModel(QStringLiteral("Old name"));
    QVERIFY(w.applyDefaultLayout());
    auto *models = pickModel(w, model);
    QTimer::singleShot(0, [] {
        QWidget *dialog = QApplication::activeModalWidget();
        if (auto *name = dialog ? dialog->findChild<QLineEdit *>() : nullptr) {
            name->setText(QStringLiteral("New name"));
            QMetaObject::invokeMethod(dialog, "accept");
        }
    });
    models->editModel();
    QCOMPARE(w.library()->modelName(model), QStringLiteral("New name"));
}

void tst_MainWindow::unsavedArrangementIsOfferedBeforeAModelReplacesIt()
{
    AppSettings settings;
    ScriptedPrompter scripted; // outlives the window
    scripted.fallbackButton = QMessageBox::Cancel;
    MainWindow w(&settings, m_logger.get());
    w.setActiveModel(-1);
    const int model = w.library()->createModel(QStringLiteral("Fresh"));
    QVERIFY(w.applyDefaultLayout());
    w.windowManager()->setPrompter(&scripted);
    // Unchanged: the model's layout simply comes, nothing is asked.
    QVERIFY(!w.windowManager()->layoutChangedSinceLoad());
    // The pilot splits the graph's window: that work must not vanish without a word.
    WidgetContainer *leaf = nullptr;
    for (WidgetContainer *c : w.windowManager()->mainContainer()->findChildren<WidgetContainer *>()) {
        if (c->isLeaf() && c->windowType() == 1)
            leaf = c;
    }
    QVERIFY(leaf);
    leaf->addWindow(Qt::Horizontal, 7);
    QVERIFY(w.windowManager()->layoutChangedSinceLoad());
    const QByteArray changed = w.windowManager()->saveLayout();
    pickModel(w, model);
    QTRY_COMPARE(scripted.asked.size(), 1);
    QVERIFY2(scripted.asked.first().text.contains(QStringLiteral("Fresh")),
             qPrintable(scripted.asked.first().text));
    QTest::qWait(50);
    QCOMPARE(w.activeModel(), -1); // cancelled: nothing switched
    QCOMPARE(w.windowManager()->saveLayout(), changed);
}

QTEST_MAIN(tst_MainWindow)
#include "tst_MainWindow.moc"
