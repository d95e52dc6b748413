#include <QCryptographicHash>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <QtTest>

#include "database/DatabaseManager.h"
#include "database/ModelLibrary.h"
#include "tests/support/TestFiles.h"
#include "tests/support/VexoLogRunner.h"

namespace {
struct Result
{
    int code;
    QString out;
    QString err;
};

Result run(const QStringList &args, const QProcessEnvironment &env = QProcessEnvironment::systemEnvironment())
{
    const VexoLogRunner::Result r = VexoLogRunner::run(args, 120000, env);
    return {r.code, QString::fromUtf8(r.out), QString::fromUtf8(r.err)};
}

} // namespace

class tst_VexoLogDb : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void importListExportDelete();
    void logbook();
    void badUsage_data();
    void badUsage();
    void unusableDatabaseIsLeftAlone();
    void damagedDatabase_data();
    void damagedDatabase();
    void defaultIsTheStudiosDataFolder();

private:
    QTemporaryDir m_dir;
    QString m_a, m_b;
};

void tst_VexoLogDb::initTestCase()
{
    QVERIFY(m_dir.isValid());
    m_a = m_dir.filePath("a.log");
    m_b = m_dir.filePath("b.log");
    QCOMPARE(
        run({"generate", "--seconds", "20", "--rate", "5", "--devices", "2", "--seed", "1", "--out", m_a})
            .code,
        0);
    QCOMPARE(
        run({"generate", "--seconds", "10", "--rate", "5", "--devices", "2", "--seed", "2", "--out", m_b})
            .code,
        0);
}

void tst_VexoLogDb::importListExportDelete()
{
    const QString db = m_dir.filePath("one/data.sqlite");
    const QString junk = m_dir.filePath("junk.dat");
    QFile(junk).open(QIODevice::WriteOnly);
    Result r = run({"db", "import", "--db", db, "--model", "Extra 300", "--folder", "2024/05/17", m_a, junk,
                    m_b, m_dir.filePath("missing.log")});
    QCOMPARE(r.code, 1);
    QVERIFY2(r.out.contains(QStringLiteral("[1/4] %1: stored as log 1").arg(m_a)), qPrintable(r.out));
    QVERIFY(r.out.contains(QStringLiteral("[2/4] %1: failed: ").arg(junk)));
    QVERIFY(r.out.contains(QStringLiteral("[3/4] %1: stored as log 2").arg(m_b)));
    QVERIFY(r.out.contains("imported 2, failed 2"));
    QVERIFY(r.err.contains(junk) && r.err.contains("unknown log format"));
    QVERIFY(r.err.contains("missing.log: no such file"));

    // The model exists once; a second import finds it ignoring case and reuses the folders.
    r = run({"db", "import", "--db", db, "--model", "extra 300", "--folder", "2024/05/17", m_b});
    QCOMPARE(r.code, 0);
    r = run({"db", "list", "--db", db});
    QCOMPARE(r.code, 0);
    QCOMPARE(r.out.count("model "), 1);
    QVERIFY2(r.out.contains("Extra 300  (3 folders, 3 logs)"), qPrintable(r.out));
    QVERIFY(r.out.contains(QRegularExpression(R"(\n      17/  \(folder \d+, 0 folders, 3 logs\)\n)")));
    QVERIFY(
        r.out.contains(QRegularExpression(R"(log 1  a\.log  \d{4}\.\d\d\.\d\d \d\d:\d\d  0:00:20\.000)")));

    // Export gives back exactly what the writer produced for the file.
    const QString converted = m_dir.filePath("converted.log");
    QCOMPARE(run({"convert", m_a, converted}).code, 0);
    const QString out = m_dir.filePath("out.log");
    r = run({"db", "export", "--db", db, "--log", "1", out});
    QCOMPARE(r.code, 0);
    QCOMPARE(readAll(out), readAll(converted));
    r = run({"db", "export", "--db", db, "--log", "99", m_dir.filePath("none.log")});
    QCOMPARE(r.code, 1);
    QVERIFY(r.err.contains("doesn't exist"));
    QVERIFY(!QFile::exists(m_dir.filePath("none.log")));

    r = run({"db", "delete-model", "--db", db, "--model", "Extra 300"});
    QCOMPARE(r.code, 0);
    QVERIFY(r.out.contains("with 3 folders and 3 logs"));
    r = run({"db", "list", "--db", db});
    QVERIFY(r.out.contains(": 0 models"));
}

// The figures are the rows below added up by hand.
void tst_VexoLogDb::logbook()
{
    const QString path = m_dir.filePath("logbook/data.sqlite");
    {
        DatabaseManager db(QFileInfo(path).absolutePath());
        QVERIFY(db.openAndInitialise());
        ModelLibrary library(&db);
        const int extra = library.createModel("Extra 300");
        const int cub = library.createModel("Cub, \"yellow\"");
        library.createModel("Alpha");
        const QDateTime day(QDate(2024, 5, 17), QTime(10, 0));
        QVERIFY(db.insertLog(extra, -1, "b.log", "", 1230000, day.addDays(3)) > 0); // no logbook row: 0
        QVERIFY(db.setLogAlarms(db.insertLog(extra, -1, "a.log", "", 420500, day), 2));
        QVERIFY(db.setLogAlarms(db.insertLog(cub, -1, "c,1.log", "", 36005000, day.addDays(-1)), 1));
    }
    Result r = run({"db", "logbook", "--db", path});
    QCOMPARE(r.code, 0);
    QCOMPARE(r.out,
             QString("model 3  Alpha: 0 flights, total 0:00:00, longest 0:00:00, first -, last -, 0 alarms\n"
                     "model 2  Cub, \"yellow\": 1 flight, total 10:00:05, longest 10:00:05, "
                     "first 2024-05-16 10:00:00, last 2024-05-16 10:00:00, 1 alarm\n"
                     "model 1  Extra 300: 2 flights, total 0:27:30, longest 0:20:30, "
                     "first 2024-05-17 10:00:00, last 2024-05-20 10:00:00, 2 alarms\n"));
    r = run({"db", "logbook", "--db", path, "--model", "extra 300"});
    QCOMPARE(r.code, 0);
    QCOMPARE(r.out, QString("model 1  Extra 300: 2 flights, total 0:27:30, longest 0:20:30, "
                            "first 2024-05-17 10:00:00, last 2024-05-20 10:00:00, 2 alarms\n"
                            "  log 2  2024-05-17 10:00:00   0:07:00  2 alarms  a.log\n"
                            "  log 1  2024-05-20 10:00:00   0:20:30  0 alarms  b.log\n"));
    r = run({"db", "logbook", "--db", path, "--csv"});
    QCOMPARE(r.out.split('\n').value(2),
             QString("2,\"Cub, \"\"yellow\"\"\",1,10:00:05,36005000,10:00:05,36005000,2024-05-16 10:00:00,"
                     "2024-05-16 10:00:00,1"));
    r = run({"db", "logbook", "--db", path, "--model", "Cub, \"yellow\"", "--csv"});
    QCOMPARE(r.out, QString("log_id,date,duration,duration_ms,alarms,file\n"
                            "3,2024-05-16 10:00:00,10:00:05,36005000,1,\"c,1.log\"\n"));
    r = run({"db", "logbook", "--db", path, "--model", "Nobody"});
    QCOMPARE(r.code, 1);
    QVERIFY2(r.err.contains("Nobody"), qPrintable(r.err));
}

void tst_VexoLogDb::badUsage_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::newRow("no db command") << QStringList{"db"};
    QTest::newRow("import without model") << QStringList{"db", "import", "x.log"};
    QTest::newRow("export with a bad id") << QStringList{"db", "export", "--log", "one", "out.log"};
    QTest::newRow("unknown option") << QStringList{"db", "list", "--force"};
    QTest::newRow("logbook with a file") << QStringList{"db", "logbook", "x.log"};
}

void tst_VexoLogDb::badUsage()
{
    QFETCH(QStringList, args);
    const Result r = run(args);
    QCOMPARE(r.code, 2);
    QVERIFY(r.err.contains("usage: vexo-log db"));
}

void tst_VexoLogDb::unusableDatabaseIsLeftAlone()
{
    const QString notDb = m_dir.filePath("notes.sqlite");
    QVERIFY(writeFile(notDb, QByteArray("my notes\n").repeated(100)));
    for (const QStringList &args : {QStringList{"db", "list", "--db", notDb},
                                    QStringList{"db", "import", "--db", notDb, "--model", "M", m_a}}) {
        const Result r = run(args);
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.contains(notDb) && r.err.contains("not a database"), qPrintable(r.err));
        QCOMPARE(readAll(notDb), QByteArray("my notes\n").repeated(100));
    }
    // Only import creates a database.
    const QString missing = m_dir.filePath("nothing/data.sqlite");
    const Result r = run({"db", "list", "--db", missing});
    QCOMPARE(r.code, 1);
    QVERIFY(r.err.contains("no database there"));
    QVERIFY(!QFileInfo::exists(m_dir.filePath("nothing")));
}

void tst_VexoLogDb::damagedDatabase_data()
{
    QTest::addColumn<QStringList>("command");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<int>("code");
    const QString made = m_dir.filePath("healthy/data.sqlite");
    QCOMPARE(run({"db", "import", "--db", made, "--model", "M", m_a}).code, 0);
    const QByteArray healthy = readAll(made);
    QVERIFY(healthy.size() > 4096);
    QByteArray schemaOverwritten = healthy;
    schemaOverwritten.replace(100, 3996, QByteArray(3996, '\xEE'));
    const QByteArray randomBytes = QCryptographicHash::hash("seed", QCryptographicHash::Sha512).repeated(300);
    QTest::newRow("check, healthy") << QStringList{"check"} << healthy << 0;
    QTest::newRow("check, schema overwritten") << QStringList{"check"} << schemaOverwritten << 1;
    QTest::newRow("delete-model, random bytes")
        << QStringList{"delete-model", "--model", "M"} << randomBytes << 1;
}

// The command says what it found; a script's database is never moved, repaired or replaced.
void tst_VexoLogDb::damagedDatabase()
{
    QFETCH(QStringList, command);
    QFETCH(QByteArray, content);
    QFETCH(int, code);
    QTemporaryDir dir;
    const QString path = dir.filePath("data.sqlite");
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly) && f.write(content) == content.size());
    f.close();
    const Result r = run(QStringList{"db"} + command + QStringList{"--db", dir.path()});
    QCOMPARE(r.code, code);
    if (code == 0) {
        QVERIFY2(r.out.contains(path + ": ok"), qPrintable(r.out));
        QVERIFY2(r.err.isEmpty(), qPrintable(r.err));
    } else {
        QCOMPARE(r.err.count('\n'), 1);
        QVERIFY2(
            r.err.startsWith("vexo-log: " + path + " is damaged (") &&
                r.err.contains("The studio moves it aside and starts a fresh database on its next start."),
            qPrintable(r.err));
    }
    QCOMPARE(readAll(path), content);
    QCOMPARE(QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
             QStringList{"data.sqlite"});
}

void tst_VexoLogDb::defaultIsTheStudiosDataFolder()
{
    QTemporaryDir home;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("XDG_DATA_HOME", home.path());
    const Result r = run({"db", "import", "--model", "M", m_b}, env);
    QCOMPARE(r.code, 0);
    QVERIFY(QFile::exists(home.filePath("Vexo/Vexo Studio/data.sqlite")));
    QCOMPARE(run({"db", "list"}, env).code, 0);
    // --db may also name the folder.
    QVERIFY(run({"db", "list", "--db", home.filePath("Vexo/Vexo Studio")}, env)
                .out.contains("M  (0 folders, 1 logs)"));
}

QTEST_GUILESS_MAIN(tst_VexoLogDb)
#include "tst_VexoLogDb.moc"
