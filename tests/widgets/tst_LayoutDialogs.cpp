#include "LayoutTestSupport.h"

#include "database/DatabaseManager.h"
#include "database/DefaultLayout.h"
#include "widgets/layout/DialogLoadLayout.h"
#include "widgets/layout/DialogSaveLayout.h"

#include <QDialogButtonBox>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QtTest>

namespace {
const QByteArray kDialLayout = layoutJson(leafJson(R"({"Type":"Dial","Sensor":1})"));
const QByteArray kRssLayout = layoutJson(leafJson(R"({"Type":"RSS"})"));
} // namespace

class tst_LayoutDialogs : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void saveNeedsAName_data();
    void saveNeedsAName();
    void saveStoresTheCurrentLayout();
    void saveReportsADatabaseFailure();
    void loadShowsAndLoadsTheSelectedLayout();
    void loadDeletesOnlyWhenConfirmed_data();
    void loadDeletesOnlyWhenConfirmed();
    void damagedStoredLayoutIsRefused();

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<DatabaseManager> m_db;
    std::unique_ptr<LayoutFixture> m_f;
};

void tst_LayoutDialogs::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_db = std::make_unique<DatabaseManager>(m_dir->path());
    QVERIFY(m_db->openAndInitialise());
    m_f = std::make_unique<LayoutFixture>(m_db.get());
    QVERIFY(m_f->load(DefaultLayout::document()));
}

void tst_LayoutDialogs::cleanup()
{
    m_f.reset();
    m_db.reset();
    m_dir.reset();
}

void tst_LayoutDialogs::saveNeedsAName_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("empty") << QString();
    QTest::newRow("blanks") << QStringLiteral("   ");
}

void tst_LayoutDialogs::saveNeedsAName()
{
    QFETCH(QString, name);
    DialogSaveLayout dialog(m_f->manager.get(), &m_f->prompter);
    dialog.findChild<QLineEdit *>("name")->setText(name);
    dialog.accept();
    QCOMPARE(dialog.result(), int(QDialog::Rejected));
    QCOMPARE(m_f->prompter.only(), QStringLiteral("information|Info|Please set the layout name"));
    QVERIFY(m_db->layouts().isEmpty());
}

void tst_LayoutDialogs::saveStoresTheCurrentLayout()
{
    QVERIFY(m_db->insertLayout("Older", "kept <as is>", kRssLayout, QByteArray()) >= 0);
    DialogSaveLayout dialog(m_f->manager.get(), &m_f->prompter);
    auto *list = dialog.findChild<QListWidget *>("layoutList");
    QCOMPARE(list->count(), 1);
    const QString date = m_db->layouts().at(0).dateCreated.toString("d-M-yyyy");
    auto *label = qobject_cast<QLabel *>(list->itemWidget(list->item(0)));
    QVERIFY(label->text().endsWith("Date: " + date + "<br>kept &lt;as is&gt;"));

    dialog.findChild<QLineEdit *>("name")->setText(QStringLiteral("Field day"));
    dialog.findChild<QPlainTextEdit *>("description")->setPlainText(QStringLiteral("graph and dial"));
    dialog.accept();
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
    QVERIFY(m_f->prompter.asked.isEmpty());
    const QVector<DatabaseManager::LayoutRow> rows = m_db->layouts();
    QCOMPARE(rows.size(), 2);
    QCOMPARE(rows.at(0).name + '|' + rows.at(0).description, QStringLiteral("Field day|graph and dial"));
    QCOMPARE(rows.at(0).id, dialog.savedId());
    // Stored as for a model: with its bindings.
    QCOMPARE(rows.at(0).data, m_f->manager->saveLayout(SerializableWidget::kForDatabase));
}

void tst_LayoutDialogs::saveReportsADatabaseFailure()
{
    DialogSaveLayout dialog(m_f->manager.get(), &m_f->prompter);
    dialog.findChild<QLineEdit *>("name")->setText(QStringLiteral("Anything"));
    m_db->close();
    dialog.accept();
    QCOMPARE(dialog.result(), int(QDialog::Rejected));
    QVERIFY2(m_f->prompter.only().startsWith("error|Layout error|<b>Unable to save layout:</b><ul><li>") &&
                 !m_f->prompter.only().contains("<li></li>"),
             qPrintable(m_f->prompter.only()));
}

void tst_LayoutDialogs::loadShowsAndLoadsTheSelectedLayout()
{
    QVERIFY(m_db->insertLayout("b dial", "one dial", kDialLayout, QByteArray()) >= 0);
    QVERIFY(m_db->insertLayout("A news", "<news>", kRssLayout, QByteArray()) >= 0);
    DialogLoadLayout dialog(m_f->manager.get(), &m_f->prompter);
    QCOMPARE(dialog.windowTitle() + '|' + dialog.findChild<QGroupBox *>()->title(),
             QStringLiteral("Select layout|Select layout from the list"));
    auto *list = dialog.findChild<QListWidget *>("layoutList");
    auto *description = dialog.findChild<QLabel *>("description");
    auto *ok = dialog.findChild<QDialogButtonBox *>()->button(QDialogButtonBox::Ok);
    QCOMPARE(list->item(0)->text(), QStringLiteral("A news"));
    QVERIFY(list->count() == 2 && !ok->isEnabled());

    list->setCurrentRow(1);
    const QString date = m_db->layouts().at(1).dateCreated.toString("d-M-yyyy");
    QCOMPARE(description->text(), "<b>b dial</b><br>one dial<br><br><i>Created: " + date + "</i>");
    list->setCurrentRow(0);
    QCOMPARE(description->text(), "<b>A news</b><br>&lt;news&gt;<br><br><i>Created: " + date + "</i>");
    list->setCurrentRow(1);
    dialog.accept();
    LayoutFixture::flush();
    QVERIFY(ok->isEnabled() && dialog.result() == QDialog::Accepted);
    QCOMPARE(m_f->manager->saveLayout(), kDialLayout);
    QVERIFY(m_f->prompter.asked.isEmpty());
}

void tst_LayoutDialogs::loadDeletesOnlyWhenConfirmed_data()
{
    QTest::addColumn<bool>("confirm");
    QTest::newRow("no") << false;
    QTest::newRow("yes") << true;
}

void tst_LayoutDialogs::loadDeletesOnlyWhenConfirmed()
{
    QFETCH(bool, confirm);
    QVERIFY(m_db->insertLayout("first", "", kDialLayout, QByteArray()) >= 0);
    QVERIFY(m_db->insertLayout("second", "", kRssLayout, QByteArray()) >= 0);
    DialogLoadLayout dialog(m_f->manager.get(), &m_f->prompter);
    auto *list = dialog.findChild<QListWidget *>("layoutList");
    list->setCurrentRow(0);
    m_f->prompter.buttons.enqueue(confirm ? QMessageBox::Yes : QMessageBox::No);
    dialog.deletePressed();
    QCOMPARE(m_f->prompter.only(), QStringLiteral("question|Confirmation|Really delete layout?"));
    QCOMPARE(m_f->prompter.asked.at(0).defaultButton, QMessageBox::No); // Enter keeps the layout
    QCOMPARE(std::make_pair(list->count(), m_db->layouts().size()),
             std::make_pair(confirm ? 1 : 2, confirm ? 1 : 2));
    QCOMPARE(m_db->layouts().at(0).name, confirm ? QStringLiteral("second") : QStringLiteral("first"));
}

void tst_LayoutDialogs::damagedStoredLayoutIsRefused()
{
    QVERIFY(m_db->insertLayout("broken", "", R"({"Main-Container":{"Type":"Maps"},"Container":[]})",
                               QByteArray()) >= 0);
    const QByteArray before = m_f->manager->saveLayout();
    DialogLoadLayout dialog(m_f->manager.get(), &m_f->prompter);
    dialog.findChild<QListWidget *>("layoutList")->setCurrentRow(0);
    dialog.accept();
    QCOMPARE(dialog.result(), int(QDialog::Rejected));
    QVERIFY2(m_f->prompter.only().startsWith("error|Layout error|<b>Unable to load layout:</b><ul><li>"),
             qPrintable(m_f->prompter.only()));
    QCOMPARE(m_f->manager->saveLayout(), before);
}

QTEST_MAIN(tst_LayoutDialogs)
#include "tst_LayoutDialogs.moc"
