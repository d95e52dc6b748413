#include "tests/support/TestFiles.h"
#include "transmitter/ui/CheckableFileSystemModel.h"

#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

// A drive with the top-level folders of a transmitter (one spelled in other case), a folder no scope
// but Full takes, an empty folder and a top-level file. Listed here in the tree's order: folders first,
// each level by name without regard to case.
static const QStringList kDrive = {
    QStringLiteral("Apps/app/main.lua"),
    QStringLiteral("Config/Backup.jsn"),
    QStringLiteral("Config/Config.jsn"),
    QStringLiteral("Empty/"),
    QStringLiteral("EXPORT/a.txt"),
    QStringLiteral("Img/pic.png"),
    QStringLiteral("Log/20250101/10-00-00.log"),
    QStringLiteral("Model/m1.bin"),
    QStringLiteral("readme.txt"),
};

class tst_CheckableFileSystemModel : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;

    void makeDrive()
    {
        for (const QString &path : kDrive) {
            const QString full = m_dir.filePath(path);
            if (path.endsWith(QLatin1Char('/'))) {
                QVERIFY(QDir().mkpath(full));
                continue;
            }
            QVERIFY(QDir().mkpath(QFileInfo(full).path()));
            QVERIFY(writeFile(full, path.toUtf8())); // each file's size is its path's length
        }
    }

private slots:
    void initTestCase() { makeDrive(); }

    void scopes_data()
    {
        QTest::addColumn<int>("scope");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("minimal: Config, Export, Model by any case")
            << int(BackupRules::Minimal)
            << QStringList{"Config/Backup.jsn", "Config/Config.jsn", "EXPORT/a.txt", "Model/m1.bin"};
        QTest::newRow("standard adds Apps and Img")
            << int(BackupRules::Standard)
            << QStringList{"Apps/app/main.lua", "Config/Backup.jsn", "Config/Config.jsn",
                           "EXPORT/a.txt",      "Img/pic.png",       "Model/m1.bin"};
        QTest::newRow("full takes everything, the empty folder as a folder")
            << int(BackupRules::Full) << kDrive;
    }
    void scopes()
    {
        QFETCH(int, scope);
        QFETCH(QStringList, expected);
        CheckableFileSystemModel model;
        model.setDriveRoot(m_dir.path());
        model.applyScope(BackupRules::Scope(scope));
        QCOMPARE(model.checkedFiles(), expected);
        qint64 size = 0;
        for (const QString &f : expected)
            size += f.endsWith(QLatin1Char('/')) ? 0 : f.toUtf8().size();
        QCOMPARE(model.checkedSize(), size);
        // Custom keeps what is there.
        model.applyScope(BackupRules::Custom);
        QCOMPARE(model.checkedFiles(), expected);
    }

    // Marks set by hand: down into folders never shown, partial state up, the scope left behind.
    void byHand_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("checked");
        QTest::addColumn<QStringList>("expected");
        QTest::addColumn<QString>("partial"); // a folder that must show the partial state, or none
        QTest::newRow("uncheck one file")
            << "Config/Config.jsn" << false
            << QStringList{"Config/Backup.jsn", "EXPORT/a.txt", "Model/m1.bin"} << "Config/";
        QTest::newRow("check a nested folder never expanded")
            << "Log/" << true
            << QStringList{"Config/Backup.jsn", "Config/Config.jsn", "EXPORT/a.txt",
                           "Log/20250101/10-00-00.log", "Model/m1.bin"}
            << "";
        QTest::newRow("uncheck a folder")
            << "Model/" << false << QStringList{"Config/Backup.jsn", "Config/Config.jsn", "EXPORT/a.txt"}
            << "";
        QTest::newRow("check a file deep inside")
            << "Apps/app/main.lua" << true
            << QStringList{"Apps/app/main.lua", "Config/Backup.jsn", "Config/Config.jsn", "EXPORT/a.txt",
                           "Model/m1.bin"}
            << "";
    }
    void byHand()
    {
        QFETCH(QString, path);
        QFETCH(bool, checked);
        QFETCH(QStringList, expected);
        QFETCH(QString, partial);
        CheckableFileSystemModel model;
        model.setDriveRoot(m_dir.path());
        model.applyScope(BackupRules::Minimal);
        QSignalSpy hand(&model, &CheckableFileSystemModel::checkedByHand);
        // Through the item, as a click in the view does.
        QString item = path;
        if (item.endsWith(QLatin1Char('/')))
            item.chop(1);
        const QModelIndex index = model.index(m_dir.filePath(item));
        QVERIFY(index.isValid());
        QVERIFY(model.setData(index, checked ? Qt::Checked : Qt::Unchecked, Qt::CheckStateRole));
        QCOMPARE(hand.count(), 1);
        QCOMPARE(model.checkedFiles(), expected);
        QCOMPARE(model.data(index, Qt::CheckStateRole).toInt(), int(checked ? Qt::Checked : Qt::Unchecked));
        if (!partial.isEmpty())
            QCOMPARE(model.checkState(partial), Qt::PartiallyChecked);
        // A folder holding only checked files is checked, one holding none unchecked.
        QCOMPARE(model.checkState(QStringLiteral("EXPORT/")), Qt::Checked);
        QCOMPARE(model.checkState(QStringLiteral("Img/")), Qt::Unchecked);
    }
};

QTEST_MAIN(tst_CheckableFileSystemModel)
#include "tst_CheckableFileSystemModel.moc"
