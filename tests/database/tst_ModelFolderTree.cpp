#include "database/DatabaseManager.h"
#include "database/ModelFolderTree.h"
#include "database/ModelLibrary.h"
#include "database/ModelTableModel.h"

#include <QAbstractItemModelTester>
#include <QDataStream>
#include <QMimeData>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {
int addLog(DatabaseManager *db, int model, int folder, const QString &name, const QDateTime &date,
           const QString &comment = QString())
{
    const int id = db->insertLog(model, folder, name, comment, 1000, date);
    db->updateLog(id, comment, date, "# n\n# d\n", 1000);
    return id;
}

QStringList rowTexts(const QAbstractItemModel &m, const QModelIndex &parent = QModelIndex())
{
    QStringList rows;
    for (int r = 0; r < m.rowCount(parent); ++r) {
        QStringList cells;
        for (int c = 0; c < m.columnCount(parent); ++c)
            cells << m.index(r, c, parent).data().toString();
        rows << cells.join(" | ");
    }
    return rows;
}

QStringList headers(const QAbstractItemModel &m)
{
    QStringList out;
    for (int c = 0; c < m.columnCount(); ++c)
        out << m.headerData(c, Qt::Horizontal).toString();
    return out;
}

std::unique_ptr<QMimeData> payload(qint32 id, qint32 kind)
{
    auto data = std::make_unique<QMimeData>();
    QByteArray bytes;
    QDataStream(&bytes, QIODevice::WriteOnly) << id << kind;
    data->setData(ModelFolderTree::mimeType(), bytes);
    return data;
}
} // namespace

class tst_ModelFolderTree : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void columnsDatesAndCounts();
    void showsOnlyTheSelectedModel();
    void editingRenamesAndComments();
    void dragCarriesExactlyOneItem();
    void dropMovesIntoFolders_data();
    void dropMovesIntoFolders();
    void dropIntoItselfIsRefused_data();
    void dropIntoItselfIsRefused();
    void newFolderAndRemove();
    void modelListColumnsAndOrder();

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<DatabaseManager> m_db;
    std::unique_ptr<ModelLibrary> m_lib;
    std::unique_ptr<ModelFolderTree> m_tree;
    int m_model = -1;
    // Folders "Trips" (holding "2023", "2024" and three logs) and "2024/May"; one top-level log.
    QHash<QString, int> m_ids;
};

void tst_ModelFolderTree::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_db = std::make_unique<DatabaseManager>(m_dir->path());
    QVERIFY(m_db->openAndInitialise());
    m_lib = std::make_unique<ModelLibrary>(m_db.get());
    m_model = m_lib->createModel("Extra 300");
    const QDateTime d(QDate(2024, 5, 17), QTime(9, 5, 59));
    m_ids["Trips"] = m_db->insertFolder(-1, m_model, "Trips");
    m_ids["2023"] = m_db->insertFolder(m_ids["Trips"], m_model, "2023");
    m_ids["2024"] = m_db->insertFolder(m_ids["Trips"], m_model, "2024");
    m_ids["May"] = m_db->insertFolder(m_ids["2024"], m_model, "May");
    for (int i = 0; i < 3; ++i)
        m_ids[QStringLiteral("t%1").arg(i)] =
            addLog(m_db.get(), m_model, m_ids["Trips"], QStringLiteral("t%1.log").arg(i), d.addDays(i));
    m_ids["deep"] = addLog(m_db.get(), m_model, m_ids["May"], "deep.log", d);
    m_ids["top"] = addLog(m_db.get(), m_model, -1, "top.log", d, "windy");
    m_tree = std::make_unique<ModelFolderTree>(m_lib.get());
    new QAbstractItemModelTester(m_tree.get(), QAbstractItemModelTester::FailureReportingMode::QtTest,
                                 m_tree.get());
    QVERIFY(m_tree->setModelId(m_model));
}

void tst_ModelFolderTree::cleanup()
{
    m_tree.reset();
    m_lib.reset();
    m_db.reset();
    m_dir.reset();
    m_ids.clear();
}

void tst_ModelFolderTree::columnsDatesAndCounts()
{
    QCOMPARE(headers(*m_tree), QStringList({"File", "Date", "Details"}));
    QCOMPARE(rowTexts(*m_tree),
             QStringList({"Trips | Folder | (3 folders, 4 logs)", "top.log | 2024.05.17 09:05 | windy"}));
    const QModelIndex trips = m_tree->indexOf(ModelFolderTree::FolderItem, m_ids["Trips"]);
    QCOMPARE(rowTexts(*m_tree, trips),
             QStringList({"2023 | Folder | (0 folders, 0 logs)", "2024 | Folder | (1 folders, 1 logs)",
                          "t0.log | 2024.05.17 09:05 | ", "t1.log | 2024.05.18 09:05 | ",
                          "t2.log | 2024.05.19 09:05 | "}));
    // Folder and log ids come from different tables and may be equal; the kind keeps them apart.
    QVERIFY(m_tree->indexOf(ModelFolderTree::LogItem, m_ids["t0"]) !=
            m_tree->indexOf(ModelFolderTree::FolderItem, m_ids["t0"]));
}

void tst_ModelFolderTree::showsOnlyTheSelectedModel()
{
    const int other = m_lib->createModel("Yak");
    m_db->insertFolder(-1, other, "Yak folder");
    addLog(m_db.get(), other, -1, "yak.log", QDateTime::currentDateTime());
    QVERIFY(m_tree->reload());
    QCOMPARE(m_tree->rowCount(), 2);
    QVERIFY(m_tree->setModelId(other));
    QCOMPARE(rowTexts(*m_tree).size(), 2);
    QVERIFY(rowTexts(*m_tree).at(0).startsWith("Yak folder | Folder"));
    QVERIFY(m_tree->setModelId(-1));
    QCOMPARE(m_tree->rowCount(), 0);
}

void tst_ModelFolderTree::editingRenamesAndComments()
{
    const QModelIndex log = m_tree->indexOf(ModelFolderTree::LogItem, m_ids["top"]);
    QVERIFY(m_tree->flags(log) & Qt::ItemIsEditable);
    QVERIFY(m_tree->setData(log, "renamed.log"));
    QVERIFY(m_tree->setData(log.siblingAtColumn(ModelFolderTree::DetailsColumn), "calm"));
    const QModelIndex trips = m_tree->indexOf(ModelFolderTree::FolderItem, m_ids["Trips"]);
    QVERIFY(m_tree->setData(trips, "Journeys"));
    QVERIFY(!m_tree->setData(trips.siblingAtColumn(ModelFolderTree::DetailsColumn), "x"));

    // What the tree shows is what a fresh read of the database shows.
    ModelFolderTree fresh(m_lib.get());
    QVERIFY(fresh.setModelId(m_model));
    QCOMPARE(rowTexts(fresh), rowTexts(*m_tree));
    QVERIFY(rowTexts(fresh).contains("renamed.log | 2024.05.17 09:05 | calm"));
    QByteArray data;
    QVERIFY(m_db->logData(m_ids["top"], &data));
    QCOMPARE(data, QByteArray("# n\n# d\n"));

    // A refused rename (empty name) leaves the stored name and reports why.
    QSignalSpy errors(m_tree.get(), &ModelFolderTree::errorOccurred);
    QVERIFY(!m_tree->setData(m_tree->indexOf(ModelFolderTree::LogItem, m_ids["top"]), "  "));
    QCOMPARE(errors.count(), 1);
    QVERIFY(rowTexts(*m_tree).contains("renamed.log | 2024.05.17 09:05 | calm"));
}

void tst_ModelFolderTree::dragCarriesExactlyOneItem()
{
    const QModelIndex log = m_tree->indexOf(ModelFolderTree::LogItem, m_ids["deep"]);
    QCOMPARE(m_tree->mimeTypes(), QStringList({"application/x-vexostudio-treeview"}));
    // All columns of one row are one item.
    std::unique_ptr<QMimeData> data(m_tree->mimeData({log, log.siblingAtColumn(ModelFolderTree::DateColumn),
                                                      log.siblingAtColumn(ModelFolderTree::DetailsColumn)}));
    QVERIFY(data);
    QDataStream stream(data->data("application/x-vexostudio-treeview"));
    qint32 id = -1, kind = -1;
    stream >> id >> kind;
    QCOMPARE(id, m_ids["deep"]);
    QCOMPARE(kind, qint32(ModelFolderTree::LogItem));
    const QModelIndex other = m_tree->indexOf(ModelFolderTree::FolderItem, m_ids["May"]);
    QVERIFY(!m_tree->mimeData({log, other}));
    QVERIFY(!m_tree->mimeData({}));
}

void tst_ModelFolderTree::dropMovesIntoFolders_data()
{
    QTest::addColumn<QString>("dragged");
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("target"); // item dropped on; "" = top level
    QTest::addColumn<int>("targetKind");
    QTest::addColumn<QString>("expectedParent"); // "" = top level
    const int F = ModelFolderTree::FolderItem, L = ModelFolderTree::LogItem;
    QTest::newRow("log onto folder") << "top" << L << "2023" << F << "2023";
    QTest::newRow("log onto a log: into its folder") << "top" << L << "deep" << L << "May";
    QTest::newRow("log to the top level") << "deep" << L << "" << F << "";
    QTest::newRow("folder onto folder") << "May" << F << "2023" << F << "2023";
    QTest::newRow("folder to the top level") << "May" << F << "" << F << "";
    QTest::newRow("folder onto a top-level log") << "2024" << F << "top" << L << "";
}

void tst_ModelFolderTree::dropMovesIntoFolders()
{
    QFETCH(QString, dragged);
    QFETCH(int, kind);
    QFETCH(QString, target);
    QFETCH(int, targetKind);
    QFETCH(QString, expectedParent);
    const auto data = payload(m_ids[dragged], kind);
    const QModelIndex on =
        target.isEmpty() ? QModelIndex() : m_tree->indexOf(ModelFolderTree::Kind(targetKind), m_ids[target]);
    QVERIFY(m_tree->canDropMimeData(data.get(), Qt::MoveAction, -1, -1, on));
    QVERIFY(m_tree->dropMimeData(data.get(), Qt::MoveAction, -1, -1, on));
    const QModelIndex moved = m_tree->indexOf(ModelFolderTree::Kind(kind), m_ids[dragged]);
    QVERIFY(moved.isValid());
    QCOMPARE(m_tree->parent(moved),
             expectedParent.isEmpty() ? QModelIndex()
                                      : m_tree->indexOf(ModelFolderTree::FolderItem, m_ids[expectedParent]));
    ModelFolderTree fresh(m_lib.get());
    QVERIFY(fresh.setModelId(m_model));
    const QModelIndex stored = fresh.indexOf(ModelFolderTree::Kind(kind), m_ids[dragged]);
    QCOMPARE(fresh.itemId(fresh.parent(stored)), expectedParent.isEmpty() ? -1 : m_ids[expectedParent]);
}

void tst_ModelFolderTree::dropIntoItselfIsRefused_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<int>("targetKind");
    QTest::newRow("onto itself") << "Trips" << int(ModelFolderTree::FolderItem);
    QTest::newRow("onto its child") << "2024" << int(ModelFolderTree::FolderItem);
    QTest::newRow("onto its grandchild") << "May" << int(ModelFolderTree::FolderItem);
    QTest::newRow("onto a log inside it") << "deep" << int(ModelFolderTree::LogItem);
}

void tst_ModelFolderTree::dropIntoItselfIsRefused()
{
    QFETCH(QString, target);
    QFETCH(int, targetKind);
    const auto data = payload(m_ids["Trips"], ModelFolderTree::FolderItem);
    const QModelIndex on = m_tree->indexOf(ModelFolderTree::Kind(targetKind), m_ids[target]);
    const QStringList before = rowTexts(*m_tree);
    QVERIFY(!m_tree->canDropMimeData(data.get(), Qt::MoveAction, -1, -1, on));
    QVERIFY(!m_tree->dropMimeData(data.get(), Qt::MoveAction, -1, -1, on));
    int parent = 0;
    QVERIFY(m_db->folderParent(m_ids["Trips"], &parent, nullptr));
    QCOMPARE(parent, -1);
    QCOMPARE(rowTexts(*m_tree), before);
    // A payload that is not ours, or names nothing in this tree, is not dropped either.
    QMimeData junk;
    junk.setData(ModelFolderTree::mimeType(), "\x01");
    QVERIFY(!m_tree->canDropMimeData(&junk, Qt::MoveAction, -1, -1, QModelIndex()));
    QVERIFY(!m_tree->dropMimeData(payload(9999, ModelFolderTree::FolderItem).get(), Qt::MoveAction, -1, -1,
                                  QModelIndex()));
}

void tst_ModelFolderTree::newFolderAndRemove()
{
    const QModelIndex may = m_tree->indexOf(ModelFolderTree::FolderItem, m_ids["May"]);
    const int id = m_tree->newFolder(may, "[New Folder]");
    QVERIFY(id > 0);
    const QModelIndex created = m_tree->indexOf(ModelFolderTree::FolderItem, id);
    QCOMPARE(m_tree->itemId(m_tree->parent(created)), m_ids["May"]);
    // Created "on" a log, a folder lands in that log's folder.
    const int beside = m_tree->newFolder(m_tree->indexOf(ModelFolderTree::LogItem, m_ids["top"]), "beside");
    QVERIFY(!m_tree->parent(m_tree->indexOf(ModelFolderTree::FolderItem, beside)).isValid());

    QVERIFY(m_tree->removeItem(m_tree->indexOf(ModelFolderTree::FolderItem, m_ids["2024"])));
    QVERIFY(!m_tree->indexOf(ModelFolderTree::FolderItem, m_ids["May"]).isValid());
    QVERIFY(!m_db->logExists(m_ids["deep"]));
    QVERIFY(m_db->logExists(m_ids["t0"]));
    QVERIFY(m_tree->removeItem(m_tree->indexOf(ModelFolderTree::LogItem, m_ids["top"])));
    QVERIFY(!m_db->logExists(m_ids["top"]));
    QCOMPARE(m_tree->rowCount(), 2); // Trips and "beside"
}

void tst_ModelFolderTree::modelListColumnsAndOrder()
{
    // SQLite's NOCASE folds ASCII only: "Áz" would come before "áa" without the list's own folding.
    for (const char *name : {"yak", "Áz", "extra", "Zlin", "áa", "abc", "Extra"})
        m_lib->createModel(QString::fromUtf8(name));
    ModelTableModel list(m_db.get());
    QAbstractItemModelTester tester(&list, QAbstractItemModelTester::FailureReportingMode::QtTest);
    QVERIFY(list.reload());
    QCOMPARE(headers(list), QStringList({"Model", "Filename", "Description", "Screenshot", "Model Data",
                                         "Layout", "Created", "Modified"}));
    QStringList names;
    for (int r = 0; r < list.rowCount(); ++r)
        names << list.index(r, 0).data().toString().toLower();
    QCOMPARE(names, QStringList({"abc", "extra", "extra", "extra 300", "yak", "zlin", QString::fromUtf8("áa"),
                                 QString::fromUtf8("áz")}));
    const int row = list.rowOfModel(m_model);
    QCOMPARE(list.modelAt(row).name, QString("Extra 300"));
}

QTEST_GUILESS_MAIN(tst_ModelFolderTree)
#include "tst_ModelFolderTree.moc"
