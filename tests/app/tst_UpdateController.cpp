// What the user is told by the update check, against a local update service.
#include "app/UpdateController.h"

#include "tests/support/LocalHttpServer.h"
#include "tests/support/ScriptedPrompter.h"

#include <QCryptographicHash>
#include <QWidget>
#include <QtTest>

using Reply = LocalHttpServer::Reply;

class tst_UpdateController : public QObject
{
    Q_OBJECT
private slots:
    void tellsTheUser_data();
    void tellsTheUser();
};

void tst_UpdateController::tellsTheUser_data()
{
    QTest::addColumn<bool>("configured");
    QTest::addColumn<bool>("userAsked");
    QTest::addColumn<QByteArray>("version"); // empty: Update.xml is missing
    QTest::addColumn<QString>("sha1");       // "right", "none"; empty: the definitions are current
    QTest::addColumn<QStringList>("answers");
    QTest::addColumn<QStringList>("shown"); // "kind|text" of every box, in order

    QTest::newRow("asked, no service")
        << false << true << QByteArray("1.2") << "" << QStringList()
        << QStringList{
               "information|<b>Update not available: </b><ul><li>no update service is configured (set "
               "VEXO_UPDATE_URL)</li></ul>"};
    QTest::newRow("at start, no service")
        << false << false << QByteArray("1.2") << "" << QStringList() << QStringList();
    QTest::newRow("asked, up to date") << true << true << QByteArray("1.1.0") << "" << QStringList()
                                       << QStringList{"information|You are using the latest version of Vexo "
                                                      "Studio (1.1.0)"};
    QTest::newRow("at start, up to date")
        << true << false << QByteArray("1.1.0") << "" << QStringList() << QStringList();
    QTest::newRow("at start, server down")
        << true << false << QByteArray() << "" << QStringList() << QStringList();
    QTest::newRow("newer program declined")
        << true << false << QByteArray("1.1.1") << "" << QStringList{"No"}
        << QStringList{
               "question|New version of Vexo Studio is available: <b>1.1.1</b>.<br><br>Close the program "
               "and download the update?"};
    const QString offer = "question|New definition of device updates from <b>2024-05-06 7:8:9</b> is "
                          "available.<br><br>Download "
                          "the definition?";
    QTest::newRow("definitions fetched")
        << true << false << QByteArray("1.1.0") << "right" << QStringList{"Yes"} << QStringList{offer};
    QTest::newRow("definitions never verify")
        << true << false << QByteArray("1.1.0") << "none" << QStringList{"Yes"}
        << QStringList{offer, "error|Error getting device updates"};
    QTest::newRow("both offered, one box at a time")
        << true << false << QByteArray("1.2") << "right" << QStringList{"No", "Yes"}
        << QStringList{
               "question|New version of Vexo Studio is available: <b>1.2</b>.<br><br>Close the program "
               "and download the update?",
               offer};
    QTest::newRow("definitions declined")
        << true << false << QByteArray("1.1.0") << "right" << QStringList{"No"} << QStringList{offer};
}

void tst_UpdateController::tellsTheUser()
{
    QFETCH(bool, configured);
    QFETCH(bool, userAsked);
    QFETCH(QByteArray, version);
    QFETCH(QString, sha1);
    QFETCH(QStringList, answers);
    QFETCH(QStringList, shown);

    const QByteArray definitions = QByteArray(3000, 'v');
    LocalHttpServer server;
    if (!version.isEmpty())
        server.setReply("/Update.xml", Reply::ok("<Updates><PackageUpdate><Version>" + version +
                                                     "</Version></PackageUpdate></Updates>",
                                                 "text/xml"));
    const QByteArray hash = sha1 == "right"
                                ? QCryptographicHash::hash(definitions, QCryptographicHash::Sha1).toHex()
                                : QByteArray();
    server.setReply("/DevUpdate.xml",
                    Reply::ok("<DevUpdate><Date>2024-05-06 7:8:9</Date><Url>d.db</Url><SHA1>" + hash +
                                  "</SHA1></DevUpdate>",
                              "text/xml"));
    server.setReply("/d.db", Reply::ok(definitions));
    QTemporaryDir data;
    const QString local = QDir(data.path()).filePath("DeviceUpdates.sqlite");
    if (sha1.isEmpty()) {
        QFile f(local);
        QVERIFY(f.open(QIODevice::WriteOnly));
    }

    ScriptedPrompter prompter;
    for (const QString &a : answers)
        prompter.buttons.enqueue(a == "Yes" ? QMessageBox::Yes : QMessageBox::No);
    QWidget window;
    UpdateController updates(&window, [&prompter] { return &prompter; });
    updates.setServiceFolder(configured ? QUrl(server.url("/")) : QUrl());
    updates.setDataFolder(data.path());
    QSignalSpy finished(&updates, &UpdateController::finished);
    QSignalSpy quit(&updates, &UpdateController::quitRequested);
    updates.check(userAsked);
    QVERIFY(finished.wait(20000));

    QStringList got;
    for (const ScriptedPrompter::Asked &a : prompter.asked) {
        QCOMPARE(a.title, QStringLiteral("Vexo Studio Update"));
        got << a.kind + "|" + a.text;
    }
    QCOMPARE(got, shown);
    QCOMPARE(quit.count(), 0);
    // The last answer is the one about the definitions.
    const bool fetched = answers.value(answers.size() - 1) == "Yes" && sha1 == "right";
    QCOMPARE(server.requestCount("/d.db"), !answers.contains("Yes") ? 0 : sha1 == "right" ? 1 : 3);
    QFile f(local);
    QCOMPARE(f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<absent>"),
             fetched          ? definitions
             : sha1.isEmpty() ? QByteArray()
                              : QByteArray("<absent>"));
}

QTEST_MAIN(tst_UpdateController)
#include "tst_UpdateController.moc"
