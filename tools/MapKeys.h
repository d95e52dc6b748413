#pragma once

#include <QCoreApplication>
#include <QString>

// The API keys of the two keyed map providers as the user entered them in the configuration: kept in a
// small file of their own in the data folder, readable by the user only, never in the program.
class MapKeys
{
    Q_DECLARE_TR_FUNCTIONS(MapKeys)
public:
    static constexpr int kProviders = 2;
    static QString fileName() { return QStringLiteral("mapkeys.jsn"); }

    // Empty keys for a missing or damaged file.
    static void load(const QString &dataFolder, QString keys[kProviders]);
    // Replaces the file as a whole; false with the reason in error.
    static bool save(const QString &dataFolder, const QString keys[kProviders], QString *error);
};
