#include "widgets/models/WidgetModel.h"

#include "database/DatabaseManager.h"
#include "database/DefaultLayout.h"
#include "database/ModelFolderTree.h"
#include "database/ModelLibrary.h"
#include "database/ModelTableModel.h"
#include "telemetry/LogFileWriter.h"
#include "telemetry/TelemetryData.h"
#include "widgets/layout/LayoutJsonWriter.h"
#include "widgets/layout/WindowHub.h"
#include "widgets/layout/WindowTypes.h"
#include "widgets/models/DeletableTreeView.h"
#include "widgets/models/DialogLoadLog.h"
#include "widgets/models/LogbookView.h"

#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHeaderView>
#include <QLineEdit>
#include <QMenu>
#include <QPlainTextEdit>
#include <QSignalBlocker>
#include <QSplitter>
#include <QTabWidget>
#include <QTableView>
#include <QToolButton>
#include <QVBoxLayout>

WidgetModel::WidgetModel(DatabaseManager *database, ModelLibrary *library, TelemetryData *store,
                         QWidget *parent)
    : QWidget(parent), m_database(database), m_library(library), m_store(store)
{
    m_models = new ModelTableModel(database, this);
    m_tree = new ModelFolderTree(library, this);

    m_modelView = new QTableView(this);
    m_modelView->setModel(m_models);
    m_modelView->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_modelView->setSelectionMode(QAbstractItemView::SingleSelection);
    m_modelView->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_modelView->verticalHeader()->hide();
    m_modelView->horizontalHeader()->setStretchLastSection(true);
    // Only the name until the user asks for more through the header's menu.
    for (int c = 1; c < m_models->columnCount(); ++c)
        m_modelView->setColumnHidden(c, true);
    m_modelView->horizontalHeader()->setContextMenuPolicy(Qt::CustomContextMenu);
    m_modelView->setContextMenuPolicy(Qt::CustomContextMenu);

    m_treeView = new DeletableTreeView(this);
    m_treeView->setModel(m_tree);
    m_treeView->setEditTriggers(QAbstractItemView::EditKeyPressed | QAbstractItemView::SelectedClicked);
    m_treeView->setDragEnabled(true);
    m_treeView->setAcceptDrops(true);
    m_treeView->setDropIndicatorShown(true);
    m_treeView->setDragDropMode(QAbstractItemView::DragDrop);
    m_treeView->setDefaultDropAction(Qt::MoveAction);
    m_treeView->setSelectionMode(QAbstractItemView::SingleSelection);
    m_treeView->setContextMenuPolicy(Qt::CustomContextMenu);
    m_treeView->header()->setStretchLastSection(true);

    auto *folderButton = new QToolButton(this);
    folderButton->setText(tr("Create folder..."));
    folderButton->setToolTip(tr("Create folder..."));
    folderButton->setAutoRaise(true);

    auto *splitter = new QSplitter(Qt::Vertical, this);
    splitter->addWidget(m_modelView);
    // The stored logs and the logbook over them share the lower part: one tab each.
    auto *tabs = new QTabWidget(splitter);
    auto *lower = new QWidget(tabs);
    auto *lowerLayout = new QVBoxLayout(lower);
    lowerLayout->setContentsMargins(0, 0, 0, 0);
    lowerLayout->addWidget(folderButton, 0, Qt::AlignLeft);
    lowerLayout->addWidget(m_treeView);
    tabs->addTab(lower, tr("Logs"));
    m_logbook = new LogbookView(database, tabs);
    tabs->addTab(m_logbook, tr("Logbook"));
    splitter->addWidget(tabs);
    splitter->setStretchFactor(1, 3);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(splitter);

    connect(folderButton, &QToolButton::clicked, this, &WidgetModel::newFolder);
    connect(m_modelView->selectionModel(), &QItemSelectionModel::currentRowChanged, this,
            &WidgetModel::modelSelectionChanged);
    connect(m_modelView->horizontalHeader(), &QWidget::customContextMenuRequested, this,
            &WidgetModel::onCustomHeaderMenuRequest);
    connect(m_modelView, &QWidget::customContextMenuRequested, this, &WidgetModel::modelMenu);
    connect(m_treeView, &QWidget::customContextMenuRequested, this, &WidgetModel::treeMenu);
    connect(m_treeView, &QAbstractItemView::doubleClicked, this, [this](const QModelIndex &index) {
        if (m_tree->itemKind(index) == ModelFolderTree::LogItem)
            openFile();
    });
    // Every change of the tree (a log stored, moved, renamed or deleted; a model reloaded) rebuilds it
    // or renames in place; the logbook follows either way.
    connect(m_tree, &QAbstractItemModel::modelReset, m_logbook,
            [this] { m_logbook->setModelId(m_tree->modelId()); });
    connect(m_tree, &QAbstractItemModel::dataChanged, m_logbook, &LogbookView::refresh);
    connect(m_treeView, &DeletableTreeView::deleteRequested, this, [this](const QModelIndex &index) {
        if (m_tree->itemKind(index) == ModelFolderTree::LogItem)
            removeFileAction();
        else
            removeFolderAction();
    });
    m_models->reload();
}

int WidgetModel::load(const LayoutJsonValue &)
{
    return 0;
}

int WidgetModel::save(LayoutJsonWriter &writer, quint8)
{
    writer.writeString(QStringLiteral("Type"), WindowTypes::key(WindowTypes::Models));
    return 0;
}

int WidgetModel::selectedModel() const
{
    const int row = m_modelView->currentIndex().row();
    return row >= 0 && row < m_models->rowCount() ? m_models->modelAt(row).id : -1;
}

void WidgetModel::selectModel(int modelId)
{
    const int row = m_models->rowOfModel(modelId);
    if (row >= 0) {
        m_modelView->selectRow(row);
        return;
    }
    const QSignalBlocker block(m_modelView->selectionModel());
    m_modelView->clearSelection();
    m_modelView->setCurrentIndex(QModelIndex());
    m_tree->setModelId(-1);
    m_activeModel = -1;
}

void WidgetModel::reload()
{
    const int model = selectedModel();
    m_models->reload();
    selectModel(model);
    m_tree->setModelId(selectedModel());
}

void WidgetModel::modelSelectionChanged()
{
    const int id = selectedModel();
    if (!m_tree->setModelId(id))
        showError(m_tree->lastError());
    m_treeView->expandAll();
    if (id != m_activeModel) {
        m_activeModel = id;
        emit modelActivated(id);
    }
}

QModelIndex WidgetModel::currentItem() const
{
    const QModelIndex index = m_treeView->currentIndex();
    return index.isValid() ? index.siblingAtColumn(ModelFolderTree::FileColumn) : index;
}

bool WidgetModel::confirm(const QString &title, const QString &question)
{
    // Every question here deletes something: Enter answers No.
    return prompter()->confirm(this, title, question);
}

void WidgetModel::showError(const QString &text)
{
    if (!text.isEmpty())
        prompter()->error(this, tr("Error"), text);
}

void WidgetModel::treeMenu(const QPoint &pos)
{
    const QModelIndex index = m_treeView->indexAt(pos);
    if (index.isValid())
        m_treeView->setCurrentIndex(index);
    const bool isLog = index.isValid() && m_tree->itemKind(index) == ModelFolderTree::LogItem;
    const bool isFolder = index.isValid() && !isLog;
    QMenu menu(this);
    menu.addAction(tr("Open"), this, &WidgetModel::openFile)->setEnabled(isLog);
    menu.addAction(tr("Export log file"), this, &WidgetModel::exportFile)->setEnabled(isLog);
    menu.addAction(tr("Edit"), this, &WidgetModel::editFile)->setEnabled(index.isValid());
    menu.addAction(tr("Delete"), this, &WidgetModel::removeFileAction)->setEnabled(isLog);
    menu.addSeparator();
    menu.addAction(tr("Create folder..."), this, &WidgetModel::newFolderAction)
        ->setEnabled(selectedModel() >= 0);
    menu.addAction(tr("Load log files..."), this, &WidgetModel::loadLogFiles)
        ->setEnabled(selectedModel() >= 0);
    menu.addAction(tr("Delete folder"), this, &WidgetModel::removeFolderAction)->setEnabled(isFolder);
    menu.exec(m_treeView->viewport()->mapToGlobal(pos));
}

void WidgetModel::modelMenu(const QPoint &pos)
{
    QMenu menu(this);
    menu.addAction(tr("Create model..."), this, &WidgetModel::newModel);
    menu.addAction(tr("Edit model..."), this, &WidgetModel::editModel)->setEnabled(selectedModel() >= 0);
    menu.addAction(tr("Delete model"), this, &WidgetModel::removeModelAction)
        ->setEnabled(selectedModel() >= 0);
    menu.addSeparator();
    menu.addAction(tr("Load log files..."), this, &WidgetModel::loadLogFiles)
        ->setEnabled(selectedModel() >= 0);
    menu.exec(m_modelView->viewport()->mapToGlobal(pos));
}

void WidgetModel::onCustomHeaderMenuRequest(const QPoint &pos)
{
    QMenu menu(this);
    for (int c = 0; c < m_models->columnCount(); ++c) {
        QAction *a = menu.addAction(m_models->headerData(c, Qt::Horizontal).toString());
        a->setCheckable(true);
        a->setChecked(!m_modelView->isColumnHidden(c));
        a->setEnabled(c != 0);
        connect(a, &QAction::toggled, this,
                [this, c](bool shown) { m_modelView->setColumnHidden(c, !shown); });
    }
    menu.exec(m_modelView->horizontalHeader()->mapToGlobal(pos));
}

void WidgetModel::openFile()
{
    const QModelIndex item = currentItem();
    if (!item.isValid() || m_tree->itemKind(item) != ModelFolderTree::LogItem)
        return;
    if (m_openGuard && !m_openGuard(item.data().toString()))
        return;
    if (!m_tree->openLog(item, m_store)) {
        showError(tr("<b>Unable to load the logfile:</b><ul><li>%1</li></ul>").arg(m_tree->lastError()));
        return;
    }
    emit logOpened(m_tree->itemId(item));
}

void WidgetModel::exportFile()
{
    const QModelIndex item = currentItem();
    if (!item.isValid() || m_tree->itemKind(item) != ModelFolderTree::LogItem)
        return;
    const QString path = LogFileWriter::withLogSuffix(prompter()->saveFile(
        this, tr("Save as Log file"), item.data().toString(), tr("LOG files (*.log);;All files(*.*)")));
    if (path.isEmpty())
        return;
    if (!m_tree->exportLog(item, path))
        showError(m_tree->lastError());
}

void WidgetModel::editFile()
{
    const QModelIndex item = currentItem();
    if (!item.isValid())
        return;
    // A log's comment is what usually needs writing; a folder has only its name.
    const int column = m_tree->itemKind(item) == ModelFolderTree::LogItem ? ModelFolderTree::DetailsColumn
                                                                          : ModelFolderTree::FileColumn;
    m_treeView->edit(item.siblingAtColumn(column));
}

void WidgetModel::removeFileAction()
{
    const QModelIndex item = currentItem();
    if (!item.isValid() || m_tree->itemKind(item) != ModelFolderTree::LogItem)
        return;
    if (confirm(tr("Delete file"), tr("Really delete the log file?")) && !m_tree->removeItem(item))
        showError(m_tree->lastError());
}

void WidgetModel::newFolderAction()
{
    newFolder();
}

void WidgetModel::newFolder()
{
    if (selectedModel() < 0)
        return;
    bool ok = false;
    const QString name =
        prompter()->text(this, tr("New folder"), tr("Folder name:"), tr("[New Folder]"), &ok);
    if (!ok || name.trimmed().isEmpty())
        return;
    if (m_tree->newFolder(currentItem(), name.trimmed()) < 0)
        showError(m_tree->lastError());
    m_treeView->expandAll();
}

void WidgetModel::removeFolderAction()
{
    const QModelIndex item = currentItem();
    if (!item.isValid() || m_tree->itemKind(item) != ModelFolderTree::FolderItem)
        return;
    if (confirm(tr("Delete folder"), tr("Really delete folder and all its contents?")) &&
        !m_tree->removeItem(item))
        showError(m_tree->lastError());
}

void WidgetModel::newModel()
{
    bool ok = false;
    const QString name = prompter()->text(this, tr("New model"), tr("Model name:"), tr("[New model]"), &ok);
    if (!ok || name.trimmed().isEmpty())
        return;
    const int id = m_library->createModel(name.trimmed());
    if (id < 0) {
        showError(m_library->lastError());
        return;
    }
    m_models->reload();
    selectModel(id);
}

void WidgetModel::editModel()
{
    const int row = m_modelView->currentIndex().row();
    if (row < 0)
        return;
    ModelData model = m_models->modelAt(row);
    QDialog dialog(this);
    dialog.setWindowTitle(tr("Edit model"));
    auto *form = new QFormLayout(&dialog);
    auto *name = new QLineEdit(model.name, &dialog);
    auto *description = new QPlainTextEdit(model.description, &dialog);
    form->addRow(tr("Model name:"), name);
    form->addRow(tr("Description:"), description);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    form->addRow(buttons);
    connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    if (dialog.exec() != QDialog::Accepted || name->text().trimmed().isEmpty())
        return;
    if (!m_library->renameModel(model.id, name->text(), description->toPlainText()))
        showError(m_library->lastError());
    reload();
    emit modelRenamed(model.id);
}

void WidgetModel::removeModelAction()
{
    const int id = selectedModel();
    if (id < 0 || !confirm(tr("Delete model"), tr("Really delete model and all its associated data?")))
        return;
    if (!m_library->deleteModel(id)) {
        showError(m_library->lastError());
        return;
    }
    // No other model becomes active by accident: the rows below the deleted one would be selected next.
    const QSignalBlocker block(m_modelView->selectionModel());
    m_models->reload();
    m_modelView->clearSelection();
    m_modelView->setCurrentIndex(QModelIndex());
    m_tree->setModelId(-1);
    m_activeModel = -1;
    emit modelDeleted(id);
}

void WidgetModel::loadLogFiles()
{
    // A log opened from the database is stored already; offering it again would make a copy.
    const bool offerOpen = m_store && m_store->storedLogId() < 0;
    DialogLoadLog dialog(m_library, selectedModel(), {}, offerOpen ? &m_store->package() : nullptr, this);
    dialog.setPrompter(prompter());
    // The folder picked in the tree (a log: its folder) is the likely target too.
    const QModelIndex item = currentItem();
    if (item.isValid())
        dialog.selectFolder(
            m_tree->itemId(m_tree->itemKind(item) == ModelFolderTree::FolderItem ? item : item.parent()));
    connect(&dialog, &DialogLoadLog::logsStored, this, &WidgetModel::reload);
    dialog.exec();
}

void WidgetModel::wire(WidgetModel *window, WindowHub *hub, TelemetryData *)
{
    if (hub)
        connect(window, &WidgetModel::modelActivated, hub, &WindowHub::modelActivated);
}
