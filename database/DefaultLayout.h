#pragma once

#include <QByteArray>
#include <QString>

// The layout compiled into the program (":/Data/Resources/defaultLayout.jsn"): what new models start with
// and what the window container falls back to.
class DefaultLayout
{
public:
    static QString resourcePath();
    static QByteArray document();
};
