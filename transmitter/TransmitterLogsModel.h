#pragma once

#include "database/ModelData.h"

#include <QAbstractItemModel>
#include <QDate>
#include <QDateTime>
#include <QFileInfo>
#include <QHash>
#include <QIcon>
#include <QList>
#include <QPersistentModelIndex>
#include <QTime>

#include <memory>
#include <vector>

// The transmitter's flight logs: the day folders of "<root>/Log" and the "hh-mm-ss.log" files in them,
// with check marks (a folder's mark covers its logs; a folder with some of them checked is partial).
// The model named in a log's header is read from its first lines only when asked for, and kept per
// path, size and modification time, so a view never makes the interface thread read whole logs.
class TransmitterLogsModel : public QAbstractItemModel
{
    Q_OBJECT
public:
    enum Column
    {
        DateColumn,  // the tree: day folders, and each log's time
        ModelColumn, // the model named in the log
        ColumnCount
    };
    enum Role
    {
        DateRole = Qt::UserRole + 1, // QDate of a day folder ("yyyyMMdd"); invalid when not a date
        TimeRole,                    // QTime of a log ("hh-mm-ss.log"); invalid when not a time
        ModelDataRole, // a log's model as a new ModelData (filename, name, description, default layout)
        FilePathRole,  // the absolute path of the file or folder
    };
    Q_ENUM(Role)

    // How much of a log is read to find the model: the header lines come first and are short.
    static constexpr qint64 kHeaderBytes = 4096;

    explicit TransmitterLogsModel(QObject *parent = nullptr);
    ~TransmitterLogsModel() override;

    // Shows the logs below root (the drive root; the logs are in its "Log" folder); all unchecked.
    void setDriveRoot(const QString &root);
    QString driveRoot() const { return m_root; }
    // Reads the drive again, keeping the marks of what is still there.
    void reload();

    // Whether a path component may be shown, and whether a file name is a log.
    static bool acceptsComponent(const QString &name);
    // The flight's date and time from the day folder and file names; invalid when either is not valid.
    static QDateTime logDateTime(const QString &dayFolder, const QString &fileName);

    void setAllChecked(bool checked);
    // The checked logs, in tree order (days, then times, by name).
    QList<QPersistentModelIndex> checkedLogs() const;
    int logCount() const;
    bool isLog(const QModelIndex &index) const;
    QFileInfo fileInfo(const QModelIndex &index) const;
    // The flight's date and time (day folder date plus file time); invalid when either does not parse.
    QDateTime logDateTime(const QModelIndex &index) const;
    // The index of a file or folder by its absolute path; invalid when not shown.
    QModelIndex indexForPath(const QString &path) const;

    QModelIndex index(int row, int column, const QModelIndex &parent = QModelIndex()) const override;
    QModelIndex parent(const QModelIndex &child) const override;
    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    struct Node;
    struct Header
    {
        qint64 size = -1;
        QDateTime modified;
        QString name;
        QString description;
    };
    Node *nodeOf(const QModelIndex &index) const;
    QModelIndex indexOf(const Node *node, int column = 0) const;
    void scan(const std::vector<std::unique_ptr<Node>> *keep);
    const Header &header(const Node *node) const;
    ModelData modelData(const Node *node) const;
    void setFolderChecked(Node *folder, Qt::CheckState state);
    void updateFolderState(Node *folder);

    QString m_root;
    std::vector<std::unique_ptr<Node>> m_days;
    // Read lazily on the first question about a log; keyed by path, checked against size and time.
    mutable QHash<QString, Header> m_headers;
    mutable QIcon m_chartIcon;
    mutable QIcon m_folderIcon;
};
