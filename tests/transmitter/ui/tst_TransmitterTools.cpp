#include "tests/support/ScriptedPrompter.h"
#include "tests/support/TestFiles.h"
#include "transmitter/ui/TransmitterTools.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

namespace {
TransmitterInfo transmitter(const QString &root, const QString &model)
{
    TransmitterInfo t;
    t.rootPath = root;
    t.modelName = model;
    return t;
}
} // namespace

class tst_TransmitterTools : public QObject
{
    Q_OBJECT
private slots:
    // An interrupted recovery found on a plugged drive is offered to the user, never left silently: the
    // answer decides which copy stays.
    void repairOffered_data()
    {
        QTest::addColumn<int>("choice"); // -1: the box closed
        QTest::addColumn<QByteArray>("expected");
        // false: cut between the two renames; true: cut while the new copy was written (the old file
        // still in place, the new copy perhaps short), where only rolling back is safe.
        QTest::addColumn<bool>("whileWriting");
        QTest::newRow("finish") << 0 << QByteArray("new") << false;
        QTest::newRow("roll back") << 1 << QByteArray("old") << false;
        QTest::newRow("closed: the old file stays") << -1 << QByteArray("old") << false;
        QTest::newRow("cut while writing: old kept") << 0 << QByteArray("old") << true;
    }
    void repairOffered()
    {
        QFETCH(int, choice);
        QFETCH(QByteArray, expected);
        QFETCH(bool, whileWriting);
        QTemporaryDir drive;
        QVERIFY(QDir().mkpath(drive.filePath(QStringLiteral("Model"))));
        QVERIFY(writeFile(drive.filePath(whileWriting ? QStringLiteral("Model/m.bin")
                                                      : QStringLiteral("Model/m.bin.jsold")),
                          "old"));
        QVERIFY(writeFile(drive.filePath(QStringLiteral("Model/m.bin.jsnew")), whileWriting ? "ne" : "new"));
        ScriptedPrompter prompter;
        prompter.choices.enqueue(choice);
        TransmitterTools tools(
            {}, nullptr, [&] { return &prompter; }, nullptr);
        tools.onTransmitterAdded(transmitter(drive.path(), QStringLiteral("Vexo HC-6")));
        QCOMPARE(prompter.asked.size(), 1);
        QCOMPARE(prompter.asked[0].kind, QStringLiteral("choose"));
        QVERIFY(prompter.asked[0].text.contains(QStringLiteral("Model/m.bin")));
        QCOMPARE(readAll(drive.filePath(QStringLiteral("Model/m.bin"))), expected);
        QVERIFY(!QFileInfo::exists(drive.filePath(QStringLiteral("Model/m.bin.jsold"))));
        QVERIFY(!QFileInfo::exists(drive.filePath(QStringLiteral("Model/m.bin.jsnew"))));
        // Done once: the next plug finds nothing to ask.
        tools.onTransmitterAdded(transmitter(drive.path(), QStringLiteral("Vexo HC-6")));
        QCOMPARE(prompter.asked.size(), 1);
    }

    void whichTransmitter_data()
    {
        QTest::addColumn<int>("count");
        QTest::addColumn<int>("choice");
        QTest::addColumn<QString>("chosen"); // empty: none
        QTest::addColumn<QString>("kind");
        QTest::newRow("none connected") << 0 << 0 << ""
                                        << "information";
        QTest::newRow("the only one, without a question") << 1 << 0 << "/media/a"
                                                          << "";
        QTest::newRow("the second of two") << 2 << 1 << "/media/b"
                                           << "choose";
        QTest::newRow("cancelled") << 2 << 2 << ""
                                   << "choose";
    }
    void whichTransmitter()
    {
        QFETCH(int, count);
        QFETCH(int, choice);
        QFETCH(QString, chosen);
        QFETCH(QString, kind);
        const TransmitterInfoVector all{transmitter(QStringLiteral("/media/a"), QStringLiteral("Vexo HC-6")),
                                        transmitter(QStringLiteral("/media/b"), QStringLiteral("Vexo HS-8"))};
        ScriptedPrompter prompter;
        prompter.choices.enqueue(choice);
        TransmitterTools tools([&] { return all.mid(0, count); }, nullptr, [&] { return &prompter; },
                               nullptr);
        TransmitterInfo picked;
        QCOMPARE(tools.chooseTransmitter(&picked), !chosen.isEmpty());
        QCOMPARE(picked.rootPath, chosen);
        QCOMPARE(prompter.asked.isEmpty() ? QString() : prompter.asked[0].kind, kind);
    }
};

QTEST_MAIN(tst_TransmitterTools)
#include "tst_TransmitterTools.moc"
