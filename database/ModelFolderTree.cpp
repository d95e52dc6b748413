#include "database/ModelFolderTree.h"

#include "database/DatabaseManager.h"
#include "database/ModelLibrary.h"

#include <QDataStream>
#include <QMimeData>

#include <algorithm>

int ModelFolderTree::Item::row() const
{
    if (!parent)
        return 0;
    for (size_t i = 0; i < parent->children.size(); ++i) {
        if (parent->children[i].get() == this)
            return int(i);
    }
    return 0;
}

ModelFolderTree::ModelFolderTree(ModelLibrary *library, QObject *parent)
    : QAbstractItemModel(parent), m_library(library), m_root(std::make_unique<Item>())
{
}

ModelFolderTree::~ModelFolderTree() = default;

bool ModelFolderTree::failed(const QString &message)
{
    m_lastError = message;
    emit errorOccurred(message);
    return false;
}

bool ModelFolderTree::setModelId(int modelId)
{
    m_modelId = modelId;
    return reload();
}

bool ModelFolderTree::buildFolder(Item *folder)
{
    DatabaseManager *db = m_library->database();
    bool ok = false;
    const QVector<DatabaseManager::FolderRow> folders =
        folder == m_root.get() ? db->topLevelFolders(&ok) : db->subFolders(folder->id, &ok);
    if (!ok)
        return false;
    const QVector<DatabaseManager::LogRow> logs =
        folder == m_root.get() ? db->topLevelLogs(&ok) : db->logsInFolder(folder->id, &ok);
    if (!ok)
        return false;
    // The top-level statements list every model's rows; keep this model's.
    for (const DatabaseManager::FolderRow &f : folders) {
        if (f.modelId != m_modelId)
            continue;
        auto item = std::make_unique<Item>();
        item->kind = FolderItem;
        item->id = f.id;
        item->modelId = f.modelId;
        item->name = f.name;
        item->parent = folder;
        folder->children.push_back(std::move(item));
    }
    std::sort(folder->children.begin(), folder->children.end(),
              [](const std::unique_ptr<Item> &a, const std::unique_ptr<Item> &b) {
                  return a->name.compare(b->name, Qt::CaseInsensitive) < 0;
              });
    const size_t folderCount = folder->children.size();
    for (const DatabaseManager::LogRow &l : logs) {
        if (l.modelId != m_modelId)
            continue;
        auto item = std::make_unique<Item>();
        item->kind = LogItem;
        item->id = l.id;
        item->modelId = l.modelId;
        item->name = l.filename;
        item->date = l.dateCreated;
        item->comment = l.comment;
        item->parent = folder;
        folder->children.push_back(std::move(item));
    }
    std::stable_sort(
        folder->children.begin() + long(folderCount), folder->children.end(),
        [](const std::unique_ptr<Item> &a, const std::unique_ptr<Item> &b) { return a->date < b->date; });
    folder->folders = int(folderCount);
    folder->logs = int(folder->children.size() - folderCount);
    for (size_t i = 0; i < folderCount; ++i) {
        Item *child = folder->children[i].get();
        if (!buildFolder(child))
            return false;
        folder->folders += child->folders;
        folder->logs += child->logs;
    }
    return true;
}

bool ModelFolderTree::reload()
{
    beginResetModel();
    m_root = std::make_unique<Item>();
    bool ok = true;
    if (m_modelId >= 0 && !buildFolder(m_root.get())) {
        ok = false;
        m_root = std::make_unique<Item>();
    }
    endResetModel();
    return ok || failed(m_library->database()->lastError());
}

ModelFolderTree::Item *ModelFolderTree::itemAt(const QModelIndex &index) const
{
    return index.isValid() ? static_cast<Item *>(index.internalPointer()) : nullptr;
}

QModelIndex ModelFolderTree::indexOfItem(const Item *item, int column) const
{
    if (!item || item == m_root.get())
        return QModelIndex();
    return createIndex(item->row(), column, const_cast<Item *>(item));
}

const ModelFolderTree::Item *ModelFolderTree::find(const Item *from, Kind kind, int id) const
{
    for (const auto &child : from->children) {
        if (child->kind == kind && child->id == id)
            return child.get();
        if (child->kind == FolderItem) {
            if (const Item *found = find(child.get(), kind, id))
                return found;
        }
    }
    return nullptr;
}

int ModelFolderTree::itemId(const QModelIndex &index) const
{
    const Item *item = itemAt(index);
    return item ? item->id : -1;
}

ModelFolderTree::Kind ModelFolderTree::itemKind(const QModelIndex &index) const
{
    const Item *item = itemAt(index);
    return item ? item->kind : FolderItem;
}

QModelIndex ModelFolderTree::indexOf(Kind kind, int id) const
{
    return indexOfItem(find(m_root.get(), kind, id));
}

int ModelFolderTree::folderCount(const QModelIndex &folder) const
{
    const Item *item = folder.isValid() ? itemAt(folder) : m_root.get();
    return item ? item->folders : 0;
}

int ModelFolderTree::logCount(const QModelIndex &folder) const
{
    const Item *item = folder.isValid() ? itemAt(folder) : m_root.get();
    return item ? item->logs : 0;
}

// --- actions ---

const ModelFolderTree::Item *ModelFolderTree::dropFolder(const QModelIndex &target) const
{
    const Item *item = itemAt(target);
    if (item && item->kind == LogItem)
        item = item->parent;
    return item == m_root.get() ? nullptr : item;
}

int ModelFolderTree::newFolder(const QModelIndex &parent, const QString &name)
{
    if (m_modelId < 0) {
        failed(tr("Select a model first"));
        return -1;
    }
    const Item *folder = dropFolder(parent);
    const int id = m_library->createFolder(m_modelId, folder ? folder->id : -1, name);
    if (id < 0)
        failed(m_library->lastError());
    reload();
    return id;
}

bool ModelFolderTree::removeItem(const QModelIndex &index)
{
    const Item *item = itemAt(index);
    if (!item)
        return false;
    const bool ok =
        item->kind == FolderItem ? m_library->deleteFolder(item->id) : m_library->deleteLog(item->id);
    if (!ok)
        failed(m_library->lastError());
    reload();
    return ok;
}

bool ModelFolderTree::isInside(const Item *item, const Item *folder) const
{
    for (const Item *f = folder; f; f = f->parent) {
        if (f == item)
            return true;
    }
    return false;
}

bool ModelFolderTree::moveItem(const QModelIndex &index, const QModelIndex &target)
{
    const Item *item = itemAt(index);
    if (!item)
        return false;
    const Item *folder = dropFolder(target);
    if (item->kind == FolderItem && isInside(item, folder))
        return failed(tr("A folder cannot be moved into itself or one of its own sub-folders"));
    const int folderId = folder ? folder->id : -1;
    const bool ok = item->kind == FolderItem ? m_library->moveFolder(item->id, folderId)
                                             : m_library->moveLog(item->id, folderId);
    if (!ok)
        failed(m_library->lastError());
    reload();
    return ok;
}

bool ModelFolderTree::openLog(const QModelIndex &index, TelemetryData *store)
{
    const Item *item = itemAt(index);
    if (!item || item->kind != LogItem)
        return false;
    return m_library->openLog(item->id, store) || failed(m_library->lastError());
}

bool ModelFolderTree::exportLog(const QModelIndex &index, const QString &path)
{
    const Item *item = itemAt(index);
    if (!item || item->kind != LogItem)
        return false;
    return m_library->exportLog(item->id, path) || failed(m_library->lastError());
}

// --- the item model ---

QModelIndex ModelFolderTree::index(int row, int column, const QModelIndex &parent) const
{
    const Item *p = parent.isValid() ? itemAt(parent) : m_root.get();
    if (!p || row < 0 || column < 0 || column >= ColumnCount || size_t(row) >= p->children.size())
        return QModelIndex();
    return createIndex(row, column, p->children[size_t(row)].get());
}

QModelIndex ModelFolderTree::parent(const QModelIndex &child) const
{
    const Item *item = itemAt(child);
    return item ? indexOfItem(item->parent) : QModelIndex();
}

int ModelFolderTree::rowCount(const QModelIndex &parent) const
{
    if (parent.isValid() && parent.column() != 0)
        return 0;
    const Item *p = parent.isValid() ? itemAt(parent) : m_root.get();
    return p ? int(p->children.size()) : 0;
}

int ModelFolderTree::columnCount(const QModelIndex &) const
{
    return ColumnCount;
}

QVariant ModelFolderTree::data(const QModelIndex &index, int role) const
{
    const Item *item = itemAt(index);
    if (!item)
        return QVariant();
    if (role == IdRole)
        return item->id;
    if (role == KindRole)
        return int(item->kind);
    if (role != Qt::DisplayRole && role != Qt::EditRole && role != Qt::ToolTipRole)
        return QVariant();
    const bool folder = item->kind == FolderItem;
    switch (index.column()) {
    case FileColumn:
        return item->name;
    case DateColumn:
        if (role == Qt::EditRole)
            return QVariant();
        return folder ? tr("Folder") : item->date.toString(QStringLiteral("yyyy.MM.dd hh:mm"));
    case DetailsColumn:
        if (!folder)
            return item->comment;
        return role == Qt::EditRole ? QVariant()
                                    : tr("(%1 folders, %2 logs)").arg(item->folders).arg(item->logs);
    default:
        return QVariant();
    }
}

bool ModelFolderTree::setData(const QModelIndex &index, const QVariant &value, int role)
{
    Item *item = itemAt(index);
    if (!item || role != Qt::EditRole)
        return false;
    const QString text = value.toString();
    bool ok = false;
    if (index.column() == FileColumn) {
        ok = item->kind == FolderItem ? m_library->renameFolder(item->id, text)
                                      : m_library->renameLog(item->id, text);
        if (ok)
            item->name = text.trimmed();
    } else if (index.column() == DetailsColumn && item->kind == LogItem) {
        ok = m_library->editComment(item->id, text);
        if (ok)
            item->comment = text;
    } else {
        return false;
    }
    if (!ok) {
        failed(m_library->lastError());
        reload();
        return false;
    }
    emit dataChanged(index, index, {Qt::DisplayRole, Qt::EditRole});
    return true;
}

QVariant ModelFolderTree::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QVariant();
    switch (section) {
    case FileColumn:
        return tr("File");
    case DateColumn:
        return tr("Date");
    case DetailsColumn:
        return tr("Details");
    default:
        return QVariant();
    }
}

Qt::ItemFlags ModelFolderTree::flags(const QModelIndex &index) const
{
    const Item *item = itemAt(index);
    if (!item)
        return Qt::ItemIsDropEnabled; // the top level
    Qt::ItemFlags f =
        Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled | Qt::ItemIsDropEnabled;
    if (index.column() == FileColumn || (index.column() == DetailsColumn && item->kind == LogItem))
        f |= Qt::ItemIsEditable;
    return f;
}

// --- drag and drop ---

QStringList ModelFolderTree::mimeTypes() const
{
    return {mimeType()};
}

QMimeData *ModelFolderTree::mimeData(const QModelIndexList &indexes) const
{
    // A view hands over every column of the selected rows; exactly one item may be dragged.
    const Item *dragged = nullptr;
    for (const QModelIndex &i : indexes) {
        const Item *item = itemAt(i);
        if (!item || i.row() < 0 || i.column() < 0)
            return nullptr;
        if (dragged && dragged != item)
            return nullptr;
        dragged = item;
    }
    if (!dragged)
        return nullptr;
    QByteArray payload;
    QDataStream stream(&payload, QIODevice::WriteOnly);
    stream << qint32(dragged->id) << qint32(dragged->kind);
    auto *data = new QMimeData;
    data->setData(mimeType(), payload);
    return data;
}

bool ModelFolderTree::decode(const QMimeData *data, Kind *kind, int *id) const
{
    if (!data || !data->hasFormat(mimeType()))
        return false;
    QDataStream stream(data->data(mimeType()));
    qint32 rawId = -1;
    qint32 rawKind = -1;
    stream >> rawId >> rawKind;
    if (stream.status() != QDataStream::Ok || (rawKind != FolderItem && rawKind != LogItem))
        return false;
    *kind = Kind(rawKind);
    *id = rawId;
    return true;
}

bool ModelFolderTree::canDropMimeData(const QMimeData *data, Qt::DropAction action, int, int,
                                      const QModelIndex &parent) const
{
    Kind kind;
    int id;
    if (action != Qt::MoveAction || !decode(data, &kind, &id))
        return false;
    const Item *item = find(m_root.get(), kind, id);
    return item && !(kind == FolderItem && isInside(item, dropFolder(parent)));
}

bool ModelFolderTree::dropMimeData(const QMimeData *data, Qt::DropAction action, int row, int column,
                                   const QModelIndex &parent)
{
    Kind kind;
    int id;
    if (action != Qt::MoveAction || !decode(data, &kind, &id))
        return false;
    const Item *item = find(m_root.get(), kind, id);
    if (!item)
        return failed(tr("The dragged item is no longer in this tree"));
    Q_UNUSED(row);
    Q_UNUSED(column);
    return moveItem(indexOfItem(item), parent);
}

Qt::DropActions ModelFolderTree::supportedDropActions() const
{
    return Qt::MoveAction;
}

Qt::DropActions ModelFolderTree::supportedDragActions() const
{
    return Qt::MoveAction;
}
