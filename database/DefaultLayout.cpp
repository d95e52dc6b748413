#include "database/DefaultLayout.h"

#include <QFile>
#include <QString>

// Resources of a static library are registered by hand; outside any namespace, as the macro requires.
static void initDatabaseResources()
{
    Q_INIT_RESOURCE(database);
}

QString DefaultLayout::resourcePath()
{
    return QStringLiteral(":/Data/Resources/defaultLayout.jsn");
}

QByteArray DefaultLayout::document()
{
    static const QByteArray document = [] {
        initDatabaseResources();
        QFile file(resourcePath());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }();
    return document;
}
