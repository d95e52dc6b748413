#include "tools/FirmwareDatabase.h"

#include "tests/support/TestFiles.h"

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

namespace {
QByteArray image(char fill)
{
    return QByteArray(16, 'H') + QByteArray("\x00\x03", 2) + QByteArray(3, fill) + '\0';
}

// A database as the update service publishes it, written with plain SQL: two versions of device 10
// (German text on the newer only), two variants of device 20, and a German column.
bool writeDatabase(const QString &path)
{
    bool ok = true;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("fixture"));
        db.setDatabaseName(path);
        ok = db.open();
        QSqlQuery q(db);
        ok = ok && q.exec("CREATE TABLE files (hw_id INTEGER, sw_id INTEGER, variant INTEGER, name TEXT, "
                          "desc_en TEXT, desc_de TEXT, date TEXT, data BLOB)");
        const QVariantList rows[] = {
            {10, 0x0102, 0, "Vario", "en 1.2", "", "2023-04-05 06:07:08", image('a')},
            {10, 0x0105, 0, "Vario", "en 1.5", "de 1.5", "2024-01-02 03:04:05", image('b')},
            {20, 0x0200, 1, "Servo B", "en 2.0 b", QVariant(), "2022-12-31", image('c')},
            {20, 0x0101, 0, "Servo A", "en 1.1 a", "de 1.1 a", "2021-06-07 08:09:10", image('d')},
        };
        for (const QVariantList &row : rows) {
            q.prepare("INSERT INTO files VALUES (?, ?, ?, ?, ?, ?, ?, ?)");
            for (const QVariant &v : row)
                q.addBindValue(v);
            ok = ok && q.exec();
        }
        db.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("fixture"));
    return ok;
}
} // namespace

class tst_FirmwareDatabase : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        QVERIFY(writeDatabase(m_dir.filePath("fw.sqlite")));
    }

    void queries_data()
    {
        QTest::addColumn<QString>("language");
        QTest::addColumn<QString>("used");
        QTest::addColumn<QStringList>("overview"); // hw name version description, by device and variant
        QTest::addColumn<QStringList>("device10");
        QTest::addColumn<QStringList>("notes10"); // release notes of device 10 variant 0 up to 1.5

        QTest::newRow("English") << "en"
                                 << "en"
                                 << QStringList{"10 Vario 261 en 1.5\nen 1.2", "20 Servo A 257 en 1.1 a",
                                                "20 Servo B 512 en 2.0 b"}
                                 << QStringList{"261 0 en 1.5 2024-1-2 03:04:05",
                                                "258 0 en 1.2 2023-4-5 06:07:08"}
                                 << QStringList{"en 1.5", "en 1.2"};
        // Rows without German text read the English one; the group text is German when any row has it.
        QTest::newRow("German, one row without text")
            << "de"
            << "de"
            << QStringList{"10 Vario 261 de 1.5\n", "20 Servo A 257 de 1.1 a", "20 Servo B 512 en 2.0 b"}
            << QStringList{"261 0 de 1.5 2024-1-2 03:04:05", "258 0 en 1.2 2023-4-5 06:07:08"}
            << QStringList{"de 1.5", "en 1.2"};
        QTest::newRow("French: no such column")
            << "fr"
            << "en"
            << QStringList{"10 Vario 261 en 1.5\nen 1.2", "20 Servo A 257 en 1.1 a",
                           "20 Servo B 512 en 2.0 b"}
            << QStringList{"261 0 en 1.5 2024-1-2 03:04:05", "258 0 en 1.2 2023-4-5 06:07:08"}
            << QStringList{"en 1.5", "en 1.2"};
        QTest::newRow("not a language code")
            << "x; DROP TABLE files"
            << "en"
            << QStringList{"10 Vario 261 en 1.5\nen 1.2", "20 Servo A 257 en 1.1 a",
                           "20 Servo B 512 en 2.0 b"}
            << QStringList{"261 0 en 1.5 2024-1-2 03:04:05", "258 0 en 1.2 2023-4-5 06:07:08"}
            << QStringList{"en 1.5", "en 1.2"};
    }

    void queries()
    {
        QFETCH(QString, language);
        QFETCH(QString, used);
        FirmwareDatabase db(language);
        QVERIFY2(db.open(m_dir.filePath("fw.sqlite")), qPrintable(db.lastError()));
        QCOMPARE(db.language(), used);

        QStringList overview;
        for (const auto &o : db.overview())
            overview
                << QStringLiteral("%1 %2 %3 %4").arg(o.hwId).arg(o.name).arg(o.version).arg(o.description);
        overview.sort();
        QTEST(overview, "overview");

        QStringList device10;
        for (const auto &f : db.firmwares(10))
            device10 << QStringLiteral("%1 %2 %3 %4")
                            .arg(f.swId)
                            .arg(f.variant)
                            .arg(f.description, FirmwareDatabase::displayDate(f.date));
        QTEST(device10, "device10");
        QTEST(db.releaseNotes(10, 0, 0x0105), "notes10");
        QCOMPARE(db.releaseNotes(10, 0, 0x0104), QStringList{"en 1.2"});
    }

    void imagesAndChoices()
    {
        FirmwareDatabase db(QStringLiteral("en"));
        QVERIFY(db.open(m_dir.filePath("fw.sqlite")));
        QByteArray data;
        QVERIFY(db.image(20, 1, 0x0200, &data));
        QCOMPARE(data, image('c'));
        QVERIFY(!db.image(20, 0, 0x0200, &data));
        QCOMPARE(db.lastError(), QStringLiteral("Update not found"));

        FirmwareDatabase::Firmware f;
        QVERIFY(db.newest(20, -1, &f));
        QCOMPARE(f.swId, 0x0200);
        QVERIFY(db.newest(20, 0, &f));
        QCOMPARE(f.swId, 0x0101);
        QVERIFY(!db.newest(30, -1, &f));
        QCOMPARE(db.lastError(), QStringLiteral("Update not found"));
    }

    void versions_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("version"); // -1: refused
        QTest::newRow("major.minor") << "1.5" << 0x0105;
        QTest::newRow("number") << "261" << 0x0105;
        QTest::newRow("largest") << "255.255" << 0xFFFF;
        QTest::newRow("minor over a byte") << "1.256" << -1;
        QTest::newRow("over 16 bits") << "65536" << -1;
        QTest::newRow("three parts") << "1.2.3" << -1;
        QTest::newRow("text") << "v1" << -1;
    }

    void versions()
    {
        QFETCH(QString, text);
        QFETCH(int, version);
        int parsed = -1;
        QCOMPARE(FirmwareDatabase::parseVersion(text, &parsed), version >= 0);
        QCOMPARE(parsed, version);
    }

    void refusedFiles_data()
    {
        QTest::addColumn<QByteArray>("content"); // empty: no file at all
        QTest::addColumn<QString>("reason");
        QTest::newRow("missing") << QByteArray() << "Device database doesn't exist";
        QTest::newRow("not a database") << QByteArray(4096, 'x') << "not a device updates database";
    }

    void refusedFiles()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, reason);
        const QString path = m_dir.filePath(QStringLiteral("other.sqlite"));
        QFile::remove(path);
        if (!content.isEmpty())
            QVERIFY(writeFile(path, content));
        FirmwareDatabase db;
        QVERIFY(!db.open(path));
        QVERIFY2(db.lastError().contains(reason), qPrintable(db.lastError()));
        QVERIFY(!QSqlDatabase::contains(QLatin1String(FirmwareDatabase::kConnectionName)));
    }

    void noFilesTable()
    {
        const QString path = m_dir.filePath(QStringLiteral("logbook.sqlite"));
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("other"));
            db.setDatabaseName(path);
            QVERIFY(db.open());
            QVERIFY(QSqlQuery(db).exec("CREATE TABLE flights (id INTEGER)"));
            db.close();
        }
        QSqlDatabase::removeDatabase(QStringLiteral("other"));
        FirmwareDatabase db;
        QVERIFY(!db.open(path));
        QVERIFY2(db.lastError().contains("no \"files\" table"), qPrintable(db.lastError()));
    }

private:
    QTemporaryDir m_dir;
};

QTEST_GUILESS_MAIN(tst_FirmwareDatabase)
#include "tst_FirmwareDatabase.moc"
