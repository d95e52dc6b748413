#pragma once

#include <QCoreApplication>
#include <QIcon>
#include <QString>

// The data window types: the code is the index in the container menus, the key the "Type" value in a
// layout, the title what the container's title bar shows.
class WindowTypes
{
    Q_DECLARE_TR_FUNCTIONS(WindowTypes)
public:
    enum Code
    {
        Models = 0,
        Graph = 1,
        Maps = 2,
        Sensors = 3,
        LXBusDevices = 4,
        RSS = 5,
        Values = 6,
        DataTable = 7,
        Dial = 8,
        Count = 9
    };

    static bool isValid(int code) { return code >= 0 && code < Count; }
    static QString key(int code);
    // Translated.
    static QString title(int code);
    static QString iconPath(int code);
    static QIcon icon(int code);
    // The code of a "Type" value, compared without regard to case; -1 when unknown.
    static int codeOf(const QString &key);
};
