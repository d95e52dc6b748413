#pragma once

#include <QAbstractItemModel>
#include <QDateTime>

#include <memory>
#include <vector>

class ModelLibrary;
class TelemetryData;

// The folders and stored logs of one model, as a tree with the columns "File", "Date" and "Details".
// Built from the database whenever the model changes, and rebuilt after every change that fails, so
// it never shows a state that was not stored. Items can be renamed (File), logs given a comment
// (Details), and moved by dragging ("application/x-vexostudio-treeview", a data stream with the item's
// database id and kind).
class ModelFolderTree : public QAbstractItemModel
{
    Q_OBJECT
public:
    enum Kind
    {
        FolderItem = 0,
        LogItem = 1
    };
    enum Column
    {
        FileColumn,
        DateColumn,
        DetailsColumn,
        ColumnCount
    };
    enum Role
    {
        IdRole = Qt::UserRole + 1,
        KindRole
    };

    static QString mimeType() { return QStringLiteral("application/x-vexostudio-treeview"); }

    explicit ModelFolderTree(ModelLibrary *library, QObject *parent = nullptr);
    ~ModelFolderTree() override;

    int modelId() const { return m_modelId; }
    // Shows another model's tree (-1: none).
    bool setModelId(int modelId);
    bool reload();
    QString lastError() const { return m_lastError; }

    int itemId(const QModelIndex &index) const;
    Kind itemKind(const QModelIndex &index) const;
    QModelIndex indexOf(Kind kind, int id) const;
    // Folders and logs anywhere below a folder.
    int folderCount(const QModelIndex &folder) const;
    int logCount(const QModelIndex &folder) const;

    // A new folder inside the given folder (a log: inside its folder; invalid: the top level); its id.
    int newFolder(const QModelIndex &parent, const QString &name);
    // Deletes a folder with everything in it, or one log.
    bool removeItem(const QModelIndex &index);
    // Moves a folder or log into the target folder (a log: its folder; invalid: the top level).
    bool moveItem(const QModelIndex &item, const QModelIndex &target);
    bool openLog(const QModelIndex &index, TelemetryData *store);
    bool exportLog(const QModelIndex &index, const QString &path);

    QModelIndex index(int row, int column, const QModelIndex &parent = QModelIndex()) const override;
    QModelIndex parent(const QModelIndex &child) const override;
    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

    QStringList mimeTypes() const override;
    QMimeData *mimeData(const QModelIndexList &indexes) const override;
    bool canDropMimeData(const QMimeData *data, Qt::DropAction action, int row, int column,
                         const QModelIndex &parent) const override;
    bool dropMimeData(const QMimeData *data, Qt::DropAction action, int row, int column,
                      const QModelIndex &parent) override;
    Qt::DropActions supportedDropActions() const override;
    Qt::DropActions supportedDragActions() const override;

signals:
    void errorOccurred(const QString &message);

private:
    struct Item
    {
        Kind kind = FolderItem;
        int id = -1;
        int modelId = -1;
        QString name;
        QDateTime date;
        QString comment;
        int folders = 0; // below a folder, the whole sub-tree
        int logs = 0;
        Item *parent = nullptr;
        std::vector<std::unique_ptr<Item>> children;
        int row() const;
    };

    Item *itemAt(const QModelIndex &index) const;
    QModelIndex indexOfItem(const Item *item, int column = 0) const;
    const Item *find(const Item *from, Kind kind, int id) const;
    bool buildFolder(Item *folder);
    // The folder a drop on this item lands in: itself, a log's folder, or null for the top level.
    const Item *dropFolder(const QModelIndex &target) const;
    bool decode(const QMimeData *data, Kind *kind, int *id) const;
    bool isInside(const Item *item, const Item *folder) const;
    bool failed(const QString &message);

    ModelLibrary *m_library;
    int m_modelId = -1;
    std::unique_ptr<Item> m_root;
    QString m_lastError;
};
