#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QMetaType>
#include <QString>

// One row of the models table, as the models tree and the model dialogs pass it around.
struct ModelData
{
    int id = -1;
    QString filename;
    QString name;
    qint64 rx1 = 0; // receiver identifiers of the model
    qint64 rx2 = 0;
    QString description;
    QByteArray screenshot;
    QByteArray data;
    QByteArray layout; // the model's window layout document
    QDateTime dateCreated;
    QDateTime dateModified;

    // Registers the meta-type for queued connections; safe to call repeatedly.
    static void registerMetaType();
};
Q_DECLARE_METATYPE(ModelData)
