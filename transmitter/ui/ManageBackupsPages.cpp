#include "transmitter/ui/ManageBackupsPages.h"

#include "database/DatabaseManager.h"
#include "transmitter/BackupsModel.h"
#include "transmitter/ui/TransmitterWizard.h"
#include "widgets/layout/Prompter.h"

#include <QDebug>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QPlainTextEdit>
#include <QTreeView>
#include <QVBoxLayout>

ManageBackupsPage::ManageBackupsPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(tr("Backups viewer"));
    setFinalPage(true);
    setButtonText(QWizard::FinishButton, tr("Close"));
    m_tree = new QTreeView;
    m_tree->setRootIsDecorated(false);
    m_tree->setSelectionMode(QAbstractItemView::SingleSelection);
    m_tree->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_tree->setContextMenuPolicy(Qt::CustomContextMenu);
    m_description = new QPlainTextEdit;
    m_description->setReadOnly(true);
    m_description->setMaximumHeight(90);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_tree, 1);
    layout->addWidget(new QLabel(tr("Description")));
    layout->addWidget(m_description);
    connect(m_tree, &QWidget::customContextMenuRequested, this, &ManageBackupsPage::showMenu);
}

void ManageBackupsPage::initializePage()
{
    auto *w = qobject_cast<TransmitterWizard *>(wizard());
    if (!m_model) {
        m_model = new BackupsModel(w ? w->database() : nullptr, this);
        m_tree->setModel(m_model);
        connect(m_tree->selectionModel(), &QItemSelectionModel::currentRowChanged, this,
                &ManageBackupsPage::showDescription);
    }
    if (!m_model->reload())
        qWarning() << "The backups could not be read from the database.";
    for (int c = 0; c < BackupsModel::ColumnCount; ++c)
        m_tree->resizeColumnToContents(c);
    showDescription();
}

void ManageBackupsPage::showDescription()
{
    const QModelIndex current =
        m_tree->selectionModel() ? m_tree->selectionModel()->currentIndex() : QModelIndex();
    m_description->setPlainText(current.isValid() ? m_model->backupAt(current.row()).description : QString());
}

void ManageBackupsPage::showMenu(const QPoint &pos)
{
    const QModelIndex at = m_tree->indexAt(pos);
    if (!at.isValid())
        return;
    m_tree->setCurrentIndex(at);
    QMenu menu(this);
    QAction *remove = menu.addAction(tr("Delete backup"));
    if (menu.exec(m_tree->viewport()->mapToGlobal(pos)) == remove)
        deleteCurrentBackup();
}

bool ManageBackupsPage::deleteCurrentBackup()
{
    const QModelIndex current =
        m_tree->selectionModel() ? m_tree->selectionModel()->currentIndex() : QModelIndex();
    if (!current.isValid())
        return false;
    auto *w = qobject_cast<TransmitterWizard *>(wizard());
    DatabaseManager *db = w ? w->database() : nullptr;
    const int id = m_model->backupAt(current.row()).id;
    if (!db || !db->deleteBackup(id)) {
        Prompter *prompter = w ? w->prompter() : Prompter::standard();
        prompter->error(this, tr("Error"), tr("There was an error while removing the backup."));
        return false;
    }
    m_model->reload();
    showDescription();
    return true;
}
