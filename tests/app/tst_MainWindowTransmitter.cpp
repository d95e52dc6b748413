#include "app/AppSettings.h"
#include "app/MainWindow.h"
#include "database/Logger.h"
#include "tests/support/ScriptedPrompter.h"
#include "tests/support/TestFiles.h"
#include "transmitter/ui/TransmitterTools.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QTemporaryDir>
#include <QTimer>
#include <QWizard>
#include <QtTest>

// The Tools menu entry of the transmitter wizard, wired to the detection of the serial thread.
class tst_MainWindowTransmitter : public QObject
{
    Q_OBJECT
    QTemporaryDir m_data;
    QTemporaryDir m_drive;
    std::unique_ptr<Logger> m_logger;

    static QAction *wizardAction(QWidget *w)
    {
        for (QAction *a : w->findChildren<QAction *>()) {
            if (a->text() == QStringLiteral("Transmitter Wizard"))
                return a;
        }
        return nullptr;
    }

private slots:
    void initTestCase()
    {
        qputenv("XDG_DATA_HOME", m_data.path().toLocal8Bit());
        QCoreApplication::setOrganizationName(QStringLiteral("Vexo"));
        QCoreApplication::setApplicationName(QStringLiteral("Vexo Studio Test"));
        m_logger = std::make_unique<Logger>(m_data.filePath("Application.log"));
    }

    void noTransmitterSaysSo()
    {
        qunsetenv("VEXO_TX_ROOTS");
        AppSettings settings;
        MainWindow w(&settings, m_logger.get());
        ScriptedPrompter prompter;
        w.setPrompter(&prompter);
        QAction *action = wizardAction(&w);
        QVERIFY(action);
        action->trigger();
        QCOMPARE(prompter.asked.size(), 1);
        QCOMPARE(prompter.asked[0].kind, QStringLiteral("information"));
        QVERIFY(prompter.asked[0].text.contains(QStringLiteral("No transmitter found.")));
    }

    void detectedTransmitterOpensTheWizard()
    {
        QVERIFY(QDir().mkpath(m_drive.filePath(QStringLiteral("Config"))));
        QVERIFY(writeFile(m_drive.filePath(QStringLiteral("Config/Config.jsn")),
                          "{\"hw\":676,\"version\":\"1.2\"}"));
        qputenv("VEXO_TX_ROOTS", m_drive.path().toLocal8Bit());
        AppSettings settings;
        MainWindow w(&settings, m_logger.get());
        ScriptedPrompter prompter;
        w.setPrompter(&prompter);
        auto *tools = w.findChild<TransmitterTools *>();
        QVERIFY(tools);
        TransmitterInfo found;
        // The serial thread scans on its own clock.
        QTRY_VERIFY_WITH_TIMEOUT(tools->chooseTransmitter(&found), 20000);
        QCOMPARE(found.modelName, QStringLiteral("Vexo HS-4"));
        prompter.asked.clear();
        QString title;
        QTimer::singleShot(0, [&title] {
            if (auto *wizard = qobject_cast<QWizard *>(QApplication::activeModalWidget())) {
                title = wizard->windowTitle();
                wizard->reject();
            }
        });
        wizardAction(&w)->trigger();
        QCOMPARE(title, QStringLiteral("Vexo Transmitter Wizard"));
        QCOMPARE(prompter.asked.size(), 0);
        qunsetenv("VEXO_TX_ROOTS");
    }
};

QTEST_MAIN(tst_MainWindowTransmitter)
#include "tst_MainWindowTransmitter.moc"
