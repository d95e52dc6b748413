#pragma once

#include "database/ModelData.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVector>

class DatabaseConnection;

// The models and folders tables, and the statements of the models tree: its folders and the logs filed
// in them, listed, created, renamed, moved and deleted. A folder or parent id of -1 means the model's
// top level (null).
class ModelTables
{
    // To the pilot it is one database: its messages read (and translate) as the manager's.
    Q_DECLARE_TR_FUNCTIONS(DatabaseManager)
public:
    struct FolderRow
    {
        int id = -1;
        int modelId = -1;
        QString name;
    };
    struct LogRow
    {
        int id = -1;
        int modelId = -1;
        QString filename;
        QDateTime dateCreated;
        QString comment;
    };

    explicit ModelTables(DatabaseConnection *db) : m_db(db) {}

    static QStringList createStatements();

    // Models
    int insertModel(const ModelData &model);
    QVector<ModelData> models(bool *ok);
    bool model(int id, ModelData *model);
    bool updateModel(const ModelData &model);
    bool renameModel(int id, const QString &name, const QString &description);
    bool deleteModel(int id);

    // The models tree
    QVector<FolderRow> topLevelFolders(bool *ok);
    QVector<FolderRow> subFolders(int parentId, bool *ok);
    QVector<LogRow> logsInFolder(int folderId, bool *ok);
    QVector<LogRow> topLevelLogs(bool *ok);
    int insertFolder(int parentId, int modelId, const QString &name);
    int insertLog(int modelId, int folderId, const QString &filename, const QString &comment, qint64 lengthms,
                  const QDateTime &dateCreated);
    int findLog(int modelId, int folderId, const QString &filename, bool *ok);
    bool editLogComment(int id, const QString &comment);
    bool deleteFolder(int id);
    bool deleteLog(int id);
    bool renameFolder(int id, const QString &name);
    bool renameLog(int id, const QString &filename);
    bool moveFolder(int id, int parentId);
    bool moveLog(int id, int folderId);
    bool folderParent(int id, int *parentId, int *modelId);

private:
    QVector<FolderRow> folderRows(const QString &statement, bool *ok);
    QVector<LogRow> logRows(const QString &statement, bool *ok);
    bool renameOrMove(const QString &target, const QVariant &value, int id);

    DatabaseConnection *m_db;
};
