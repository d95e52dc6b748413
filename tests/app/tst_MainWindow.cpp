#include "app/AppSettings.h"
#include "app/MainWindow.h"
#include "database/Logger.h"
#include "telemetry/TelemetryData.h"

#include <QAction>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QSignalSpy>
#include <QStatusBar>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

namespace {
QAction *findAction(QWidget *w, const QString &text)
{
    for (QAction *a : w->findChildren<QAction *>()) {
        if (a->text() == text)
            return a;
    }
    return nullptr;
}

} // namespace

class tst_MainWindow : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void actions_data();
    void actions();
    void menusAndStatus();
    void opensLogsOffTheInterfaceThread();
    void unreadableLogShowsTheErrorBox();
    void closingSavesSettingsInOrder();

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

void tst_MainWindow::actions_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("shortcut");
    QTest::addColumn<QString>("tip");
    QTest::newRow("configuration") << "Configuration..." << "" << "Opens configuraiton dialog";
    QTest::newRow("exit") << "Exit" << "Ctrl+Q" << "Exits the application";
    QTest::newRow("open") << "Open log file" << "Ctrl+O" << "Select & open log file";
    QTest::newRow("close") << "Close log file" << "Ctrl+F4" << "";
    QTest::newRow("reset toolbars") << "Reset toolbars" << "" << "Reset toolbars to the default state";
    QTest::newRow("export layout") << "Export layout..." << "" << "Export current layout to file";
    QTest::newRow("import layout") << "Import layout..." << "" << "Import layout from file";
    QTest::newRow("play") << "Play/Pause" << "Space" << "";
    QTest::newRow("faster") << "Increase Rate" << "Ctrl+Up" << "";
    QTest::newRow("slower") << "Decrease Rate" << "Ctrl+Down" << "";
    QTest::newRow("reset rate") << "Reset Rate" << "Ctrl+R" << "";
    QTest::newRow("next") << "Next Step" << "Ctrl+Right" << "";
    QTest::newRow("previous") << "Previous Step" << "Ctrl+Left" << "";
    QTest::newRow("record") << "Start Real-Time Recording" << "Ctrl+Shift+R" << "";
    QTest::newRow("emulator") << "HC/HS-8 Emulator" << "" << "";
    QTest::newRow("updates") << "Check for updates" << "" << "";
}

void tst_MainWindow::actions()
{
    QFETCH(QString, text);
    QFETCH(QString, shortcut);
    QFETCH(QString, tip);
    AppSettings settings;
    MainWindow w(&settings, m_logger.get());
    QAction *a = findAction(&w, text);
    QVERIFY2(a, qPrintable(text));
    QCOMPARE(a->shortcut().toString(), shortcut);
    QCOMPARE(a->statusTip(), tip);
}

void tst_MainWindow::menusAndStatus()
{
    AppSettings settings;
    MainWindow w(&settings, m_logger.get());
    QCOMPARE(w.windowTitle(), QStringLiteral("Vexo Studio"));
    QStringList menus;
    for (QAction *a : w.menuBar()->actions())
        menus << a->text();
    QCOMPARE(menus, QStringList({"File", "Layout", "Tools", "Playback", "Help"}));
    QStringList labels;
    for (QLabel *l : w.statusBar()->findChildren<QLabel *>())
        labels << l->text();
    QVERIFY(labels.contains(QStringLiteral("Serial port closed")));
    w.serialStatusChanged(true);
    labels.clear();
    for (QLabel *l : w.statusBar()->findChildren<QLabel *>())
        labels << l->text();
    QVERIFY(labels.contains(QStringLiteral("Serial port connected")));
}

void tst_MainWindow::opensLogsOffTheInterfaceThread()
{
    AppSettings settings;
    MainWindow w(&settings, m_logger.get());
    QVERIFY(w.applyDefaultLayout());
    QSignalSpy loaded(&w, &MainWindow::logLoaded);
    QSignalSpy changed(w.store(), &TelemetryData::sensorsChanged);
    w.openLog(QStringLiteral(VEXO_SOURCE_DIR "/samples/sample-flight.log"));
    QVERIFY(w.isLoadingLog() || loaded.count() == 1);
    QVERIFY(loaded.wait(30000) || loaded.count() == 1);
    QCOMPARE(loaded.first().at(0).toBool(), true);
    QCOMPARE(w.store()->package().devices().size(), 6);
    QVERIFY(changed.count() >= 1);
}

void tst_MainWindow::unreadableLogShowsTheErrorBox()
{
    AppSettings settings;
    MainWindow w(&settings, m_logger.get());
    w.show();
    QSignalSpy loaded(&w, &MainWindow::logLoaded);
    QString boxText;
    QTimer closer;
    connect(&closer, &QTimer::timeout, [&boxText] {
        if (auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget())) {
            boxText = box->text();
            box->accept();
        }
    });
    closer.start(50);
    w.openLog(m_data.filePath("missing.log"));
    QVERIFY(loaded.wait(30000) || loaded.count() == 1);
    QCOMPARE(loaded.first().at(0).toBool(), false);
    QVERIFY2(boxText.startsWith(QStringLiteral("<b>Unable to load the logfile:</b><ul><li>")), qPrintable(boxText));
    QVERIFY(boxText.contains(QStringLiteral("missing.log")));
}

void tst_MainWindow::closingSavesSettingsInOrder()
{
    AppSettings settings;
    settings.setValue(QStringLiteral("Port"), QStringLiteral("/dev/none-such"));
    {
        MainWindow w(&settings, m_logger.get());
        w.show();
        QVERIFY(w.close());
    }
    QFile f(QDir(AppSettings::dataFolder()).filePath(AppSettings::fileName()));
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QByteArray text = f.readAll();
    QVERIFY(text.indexOf("\"Version\"") < text.indexOf("\"Win-State\""));
    const QJsonObject o = QJsonDocument::fromJson(text).object();
    QCOMPARE(o.value("Port").toString(), QStringLiteral("/dev/none-such"));
    QVERIFY(!o.value("Win-Size").toString().isEmpty());
    AppSettings back;
    QVERIFY(back.load(f.fileName()));
    QVERIFY(!back.bytes("Win-State").isEmpty());
}

QTEST_MAIN(tst_MainWindow)
#include "tst_MainWindow.moc"
