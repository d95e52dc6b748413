#pragma once

#include "transmitter/BackupRules.h"

#include <QFileSystemModel>
#include <QMap>
#include <QStringList>

// The transmitter drive as a tree with check marks. The check marks are kept for every file and folder
// of the drive, read from the file system when the root is set, so what is checked is known without the
// view having opened a folder: checking a folder checks everything below it, loaded or not, and a folder
// with some of its contents checked shows the partial state.
class CheckableFileSystemModel : public QFileSystemModel
{
    Q_OBJECT
public:
    explicit CheckableFileSystemModel(QObject *parent = nullptr);

    // Reads the drive below root and shows it; every check mark is cleared.
    QModelIndex setDriveRoot(const QString &root);
    QString driveRoot() const { return m_root; }
    // Reads the drive again, keeping the marks of what is still there.
    void reload();

    // Sets the check marks a scope takes (Custom keeps them as they are).
    void applyScope(BackupRules::Scope scope);
    // The checked files, and empty checked folders with a trailing "/", relative to the root with "/"
    // separators, in the tree's order (folders first, each level by name without regard to case).
    QStringList checkedFiles() const;
    qint64 checkedSize() const;
    Qt::CheckState checkState(const QString &relativePath) const;
    // Sets a mark as the user would (announced by checkedByHand).
    bool setChecked(const QString &relativePath, bool checked);

    Qt::ItemFlags flags(const QModelIndex &index) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;

signals:
    // A mark was changed by hand: the selection no longer follows a scope.
    void checkedByHand();

private:
    struct Entry
    {
        bool checked = false;
        bool folder = false;
        qint64 size = 0;
    };
    void scan(const QString &folder, const QString &prefix);
    QString relativePath(const QModelIndex &index) const;
    void setSubtree(const QString &key, bool checked);
    void announceAll(const QModelIndex &parent);
    void announceChange(const QModelIndex &index);
    void adoptNewRows(const QModelIndex &parent, int first, int last);

    QString m_root;
    // Keyed by relative path, folders with a trailing "/": everything below a folder follows its key.
    QMap<QString, Entry> m_entries;
    // The tree order, for checkedFiles().
    QStringList m_order;
};
